#include "headerparameters_p.h"

#include <QJsonArray>
#include <QJsonValue>
#include <QSet>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr char encodedBegin[] = "=?base64?";
constexpr char encodedEnd[] = "?=";

bool isTokenCharacter(char c)
{
    const bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    return isLetter || (c >= '0' && c <= '9') || (c != '\0' && std::strchr("!#$%&'*+-.^_`|~", c));
}

bool isPlain(const QByteArray &text)
{
    return std::all_of(text.cbegin(), text.cend(), [](char c) { return c >= ' ' && c <= '~'; })
        && !text.startsWith(' ') && !text.endsWith(' ')
        && !(text.startsWith(encodedBegin) && text.endsWith(encodedEnd));
}

// Goes through a schema and notes what is to be a header. Only what "properties" alone lead to can be one.
class SchemaWalk
{
public:
    void visit(const QJsonObject &schema, const QStringList &path, bool isReachable)
    {
        const QJsonValue header = schema.value(QLatin1String("x-mcp-header"));
        if (!header.isUndefined())
            note(header, schema.value(QLatin1String("type")), path, isReachable);
        for (auto keyword = schema.begin(); keyword != schema.end(); ++keyword) {
            if (keyword.key() == QLatin1String("properties"))
                visitProperties(keyword.value().toObject(), path, isReachable);
            else if (!isData(keyword.key()))
                visitOthers(keyword.value());
        }
    }

    QVector<HeaderParameter> parameters;
    bool isValid = true;

private:
    static bool isData(const QString &keyword)
    {
        return keyword == QLatin1String("default") || keyword == QLatin1String("const")
            || keyword == QLatin1String("enum") || keyword == QLatin1String("examples");
    }

    void visitProperties(const QJsonObject &properties, const QStringList &path, bool isReachable)
    {
        for (auto property = properties.begin(); property != properties.end(); ++property)
            visit(property.value().toObject(), path + QStringList(property.key()), isReachable);
    }

    // Schemas that lie in a keyword directly, in its array or, as "$defs" do, under names.
    void visitOthers(const QJsonValue &value)
    {
        if (value.isObject())
            visit(value.toObject(), {}, false);
        const QJsonArray elements = value.toArray();
        for (const QJsonValue &element : elements)
            visitOthers(element);
    }

    void note(const QJsonValue &header, const QJsonValue &type, const QStringList &path, bool isReachable)
    {
        const QByteArray name = header.toString().toUtf8();
        const bool isScalar = type == QLatin1String("string") || type == QLatin1String("integer")
                           || type == QLatin1String("boolean");
        const bool isTaken = m_names.contains(name.toLower());
        isValid = isValid && isReachable && isScalar && !isTaken && !path.isEmpty() && isHeaderName(name);
        m_names.insert(name.toLower());
        parameters.append({name, path});
    }

    QSet<QByteArray> m_names;
};

QJsonValue valueAt(const QJsonObject &arguments, const QStringList &path)
{
    QJsonValue value = arguments;
    for (const QString &key : path)
        value = value.toObject().value(key);
    return value;
}

// Null where the value is none that a header can say.
QString headerText(const QJsonValue &value)
{
    if (value.isString())
        return value.toString(QLatin1String(""));
    if (value.isBool())
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    if (value.isDouble() && value.toDouble() == std::floor(value.toDouble()))
        return value.toVariant().toString();
    return QString();
}

} // namespace

bool isHeaderName(const QByteArray &name)
{
    return !name.isEmpty() && std::all_of(name.cbegin(), name.cend(), isTokenCharacter);
}

bool readHeaderParameters(const QJsonObject &schema, QVector<HeaderParameter> *parameters)
{
    SchemaWalk walk;
    walk.visit(schema, {}, true);
    *parameters = walk.parameters;
    return walk.isValid;
}

HeaderValues headersOf(const QVector<HeaderParameter> &parameters, const QJsonObject &arguments)
{
    HeaderValues headers;
    for (const HeaderParameter &parameter : parameters) {
        const QString text = headerText(valueAt(arguments, parameter.path));
        if (!text.isNull())
            headers.append({"Mcp-Param-" + parameter.name, headerValue(text)});
    }
    return headers;
}

QByteArray headerValue(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    return isPlain(bytes) ? bytes : encodedBegin + bytes.toBase64() + encodedEnd;
}

} // namespace QtAgent
} // namespace MireloQtLib
