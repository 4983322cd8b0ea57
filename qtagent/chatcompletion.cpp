#include "chatcompletion_p.h"

#include <QJsonDocument>
#include <QStringList>

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int summaryLimit = 2000;

bool hasIndexZero(const QJsonValue &choice)
{
    const QJsonValue index = choice.toObject().value(QLatin1String("index"));
    return index.isNull() || index.isUndefined() || index.toDouble(-1) == 0;
}

QString errorObjectSummary(const QJsonObject &error)
{
    const QString message = error.value(QLatin1String("message")).toString();
    const QString type = error.value(QLatin1String("type")).toString();
    const QString code = error.value(QLatin1String("code")).toString();
    QStringList pieces;
    if (!message.isEmpty())
        pieces.append(message);
    if (!type.isEmpty())
        pieces.append(QStringLiteral("type=%1").arg(type));
    if (!code.isEmpty())
        pieces.append(QStringLiteral("code=%1").arg(code));
    return pieces.join(QLatin1String("; "));
}

QString compactSummary(const QJsonDocument &document)
{
    const QString json = QString::fromUtf8(document.toJson(QJsonDocument::Compact));
    const bool cutsCharacter = json.size() > summaryLimit && json.at(summaryLimit - 1).isHighSurrogate();
    return json.left(cutsCharacter ? summaryLimit - 1 : summaryLimit);
}

// What the client itself relies on.
bool isFixedKey(const QString &key)
{
    const QStringList keys{QStringLiteral("model"), QStringLiteral("messages"), QStringLiteral("tools"),
                           QStringLiteral("stream")};
    return keys.contains(key);
}

void changeBody(const RequestOptions &options, QJsonObject *body)
{
    for (const QString &key : options.without) {
        if (!isFixedKey(key))
            body->remove(key);
    }
    for (auto value = options.extra.begin(); value != options.extra.end(); ++value) {
        if (!isFixedKey(value.key()))
            body->insert(value.key(), value.value());
    }
}

constexpr char byteOrderMark[] = "\xef\xbb\xbf";
constexpr int byteOrderMarkSize = 3;

} // namespace

QJsonArray messagesToJson(const QVector<ChatMessage> &messages)
{
    QJsonArray array;
    for (const ChatMessage &message : messages)
        array.append(messageToJson(message));
    return array;
}

QByteArray requestBody(const ModelConfig &config, const QJsonArray &messages,
                       const QVector<ToolDefinition> &tools, bool stream, const RequestOptions &options)
{
    QJsonObject body{
        {QStringLiteral("model"), config.model},
        {QStringLiteral("messages"), messages},
        {QStringLiteral("temperature"), config.temperature},
        {QLatin1String(options.useMaxCompletionTokens ? "max_completion_tokens" : "max_tokens"),
         config.maxTokens},
        {QStringLiteral("stream"), stream},
    };
    if (!tools.isEmpty()) {
        QJsonArray toolArray;
        for (const ToolDefinition &tool : tools)
            toolArray.append(toolDefinitionToJson(tool));
        body.insert(QStringLiteral("tools"), toolArray);
        body.insert(QStringLiteral("tool_choice"), QStringLiteral("auto"));
    }
    if (options.askForUsage && stream)
        body.insert(QStringLiteral("stream_options"), QJsonObject{{QStringLiteral("include_usage"), true}});
    changeBody(options, &body);
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

QByteArray requestBody(const ModelConfig &config, const QVector<ChatMessage> &messages,
                       const QVector<ToolDefinition> &tools, bool stream)
{
    return requestBody(config, messagesToJson(messages), tools, stream, {});
}

QJsonObject responseMessage(const QJsonObject &response)
{
    return choiceOf(response, ChoiceRule::First).value(QLatin1String("message")).toObject();
}

QString contentOf(const QJsonObject &message)
{
    return message.value(QLatin1String("content")).toString();
}

QJsonArray toolCallsOf(const QJsonObject &message)
{
    return message.value(QLatin1String("tool_calls")).toArray();
}

QJsonObject toolCallResponse(const QString &content, const QJsonArray &toolCalls)
{
    const QJsonObject message{
        {QStringLiteral("role"), QStringLiteral("assistant")},
        {QStringLiteral("content"), content},
        {QStringLiteral("tool_calls"), toolCalls},
    };
    const QJsonObject choice{
        {QStringLiteral("index"), 0},
        {QStringLiteral("message"), message},
        {QStringLiteral("finish_reason"), QStringLiteral("tool_calls")},
    };
    return {{QStringLiteral("choices"), QJsonArray{choice}}};
}

QJsonObject choiceOf(const QJsonObject &object, ChoiceRule rule)
{
    const QJsonArray choices = object.value(QLatin1String("choices")).toArray();
    if (rule == ChoiceRule::First)
        return choices.at(0).toObject();
    const auto choice = std::find_if(choices.begin(), choices.end(), hasIndexZero);
    return choice == choices.end() ? QJsonObject() : QJsonValue(*choice).toObject();
}

QString bodySummary(const QByteArray &body)
{
    const QByteArray trimmed = body.trimmed();
    if (trimmed.isEmpty())
        return QStringLiteral("(empty response body)");
    const QJsonDocument document = QJsonDocument::fromJson(trimmed);
    if (document.isNull())
        return QString::fromUtf8(trimmed.constData(), qMin(int(trimmed.size()), summaryLimit));

    const QJsonObject object = document.object();
    const QJsonValue error = object.value(QLatin1String("error"));
    if (error.isObject()) {
        const QString summary = errorObjectSummary(error.toObject());
        return summary.isEmpty() ? compactSummary(document) : summary;
    }
    if (error.isString())
        return error.toString();
    const QString message = object.value(QLatin1String("message")).toString();
    return message.isEmpty() ? compactSummary(document) : message;
}

QString invalidJsonReport(const QJsonParseError &error, const QByteArray &body)
{
    return QStringLiteral("Invalid JSON response: %1\nResponse: %2")
        .arg(error.errorString(), bodySummary(body));
}

void SummarizedBody::append(const QByteArray &bytes)
{
    const char *begin = bytes.cbegin();
    if (m_bytes.isEmpty())
        begin = std::find_if_not(begin, bytes.cend(), isWhiteSpace);
    if (m_form == Form::Unknown)
        begin = appendBeginning(begin, bytes.cend());
    if (m_form == Form::Json)
        m_bytes.append(begin, int(bytes.cend() - begin));
    else if (m_form == Form::Text)
        appendText(begin, bytes.cend());
}

// Reads to the byte that tells the form, which follows a byte-order mark and blanks, and returns where that
// stands. No more blanks are kept than a text would show.
const char *SummarizedBody::appendBeginning(const char *begin, const char *end)
{
    for (; begin != end; ++begin) {
        const auto size = int(m_bytes.size());
        const bool isBehindMark = size >= byteOrderMarkSize;
        if (isBehindMark ? !isWhiteSpace(*begin) : *begin != byteOrderMark[size]) {
            const bool mayBeJson = (size == 0 || isBehindMark) && (*begin == '{' || *begin == '[');
            m_form = mayBeJson ? Form::Json : Form::Text;
            return begin;
        }
        if (size < summaryLimit)
            m_bytes.append(*begin);
    }
    return end;
}

// Behind the limit one byte that is not white space tells that the white space before it is not the end.
void SummarizedBody::appendText(const char *begin, const char *end)
{
    const auto missing = std::max<qsizetype>(0, summaryLimit - m_bytes.size());
    const char *const limit = begin + std::min<qsizetype>(missing, end - begin);
    m_bytes.append(begin, int(limit - begin));
    const char *const next = std::find_if_not(limit, end, isWhiteSpace);
    if (next != end && m_bytes.size() == summaryLimit)
        m_bytes.append(*next);
}

const QByteArray &SummarizedBody::bytes() const
{
    return m_bytes;
}

} // namespace QtAgent
} // namespace MireloQtLib
