#include "toolcallassembly_p.h"

#include <QJsonDocument>

#include <algorithm>
#include <limits>
#include <numeric>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// Returns -1 where there is none that counts.
int indexFrom(const QJsonValue &value)
{
    const double number = value.toDouble(-1);
    const bool isIndex = number >= 0 && number < std::numeric_limits<int>::max() && int(number) == number;
    return isIndex ? int(number) : -1;
}

QString idFrom(const QJsonValue &value)
{
    const QString id = value.toString();
    return id == QLatin1String("null") ? QString() : id;
}

// What is neither text nor absent becomes its JSON, so that nothing is lost that makes a call wrong.
QString argumentsFrom(const QJsonValue &value)
{
    if (value.isString() || value.isNull() || value.isUndefined())
        return value.toString();
    if (value.isObject())
        return QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
    return QString::fromUtf8(QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact));
}

// What came first stays.
void addKeys(const QJsonObject &from, const QStringList &known, QJsonObject *keys)
{
    for (auto key = from.begin(); key != from.end(); ++key) {
        if (!known.contains(key.key()) && keys->value(key.key()).isUndefined())
            keys->insert(key.key(), key.value());
    }
}

bool isObject(const QString &json)
{
    return QJsonDocument::fromJson(json.toUtf8()).isObject();
}

bool isBlank(const QString &text)
{
    return text.trimmed().isEmpty();
}

// One service takes ids of nine letters and digits only. @p number is the last one tried.
QString freeId(const QSet<QString> &takenIds, int *number)
{
    QString id;
    do
        id = QStringLiteral("qa%1").arg(++*number, 7, 10, QLatin1Char('0'));
    while (takenIds.contains(id));
    return id;
}

bool isJsonSpace(QChar character)
{
    return QLatin1String(" \t\n\r").contains(character);
}

} // namespace

void JsonObjectScanner::append(const QString &text)
{
    for (const QChar character : text)
        read(character);
}

void JsonObjectScanner::read(QChar character)
{
    switch (m_state) {
    case State::Before:
        if (character == QLatin1Char('{'))
            readInside(character);
        else if (!isJsonSpace(character))
            m_state = State::Broken;
        break;
    case State::Inside:
        readInside(character);
        break;
    case State::Text:
        if (character == QLatin1Char('\\'))
            m_state = State::Escape;
        else if (character == QLatin1Char('"'))
            m_state = State::Inside;
        break;
    case State::Escape:
        m_state = State::Text;
        break;
    case State::Closed:
        if (!isJsonSpace(character))
            m_state = State::Broken;
        break;
    case State::Broken:
        break;
    }
}

void JsonObjectScanner::readInside(QChar character)
{
    m_state = character == QLatin1Char('"') ? State::Text : State::Inside;
    if (character == QLatin1Char('{'))
        ++m_depth;
    else if (character == QLatin1Char('}') && --m_depth == 0)
        m_state = State::Closed;
}

ToolCallAssembly::ToolCallAssembly(const QStringList &toolNames)
    : m_toolNames(toolNames)
{}

int ToolCallAssembly::addPiece(const QJsonValue &value)
{
    if (!value.isObject())
        return -1;
    const Piece piece = pieceFrom(value.toObject());
    const int number = callOf(piece);
    Call &call = m_calls[number];
    call.event = m_event;
    if (call.id.isEmpty() && !piece.id.isEmpty()) {
        call.id = piece.id;
        m_newestById.insert(piece.id, number);
    }
    addName(piece.name, &call);
    addArguments(piece.arguments, &call);
    addKeys(
        piece.keys,
        {QStringLiteral("id"), QStringLiteral("index"), QStringLiteral("type"), QStringLiteral("function")},
        &call.otherKeys);
    addKeys(piece.functionKeys, {QStringLiteral("name"), QStringLiteral("arguments")},
            &call.otherFunctionKeys);
    return number;
}

ToolCallAssembly::Piece ToolCallAssembly::pieceFrom(const QJsonObject &object)
{
    Piece piece;
    piece.keys = object;
    piece.functionKeys = object.value(QLatin1String("function")).toObject();
    piece.index = indexFrom(object.value(QLatin1String("index")));
    piece.id = idFrom(object.value(QLatin1String("id")));
    piece.name = piece.functionKeys.value(QLatin1String("name")).toString();
    piece.arguments = argumentsFrom(piece.functionKeys.value(QLatin1String("arguments")));
    return piece;
}

int ToolCallAssembly::callOf(const Piece &piece)
{
    if (piece.index >= 0)
        return callByIndex(piece);
    return piece.id.isEmpty() ? lastCall(piece) : callById(piece);
}

// Some services send every call under the same index.
int ToolCallAssembly::callByIndex(const Piece &piece)
{
    const int number = m_newestByIndex.value(piece.index, -1);
    if (number < 0)
        return beginCall(piece);
    const Call &call = m_calls.at(number);
    const bool hasOtherId = !piece.id.isEmpty() && !call.id.isEmpty() && piece.id != call.id;
    const bool beginsAnew =
        piece.id.isEmpty() && piece.arguments.startsWith(QLatin1Char('{')) && hasCompleteArguments(call);
    return !piece.name.isEmpty() && (hasOtherId || beginsAnew) ? beginCall(piece) : number;
}

// Others send a second id for the same call, without a name.
int ToolCallAssembly::callById(const Piece &piece)
{
    const int number = m_newestById.value(piece.id, -1);
    if (number >= 0)
        return number;
    return m_calls.isEmpty() || !piece.name.isEmpty() ? beginCall(piece) : int(m_calls.size()) - 1;
}

int ToolCallAssembly::lastCall(const Piece &piece)
{
    if (m_calls.isEmpty())
        return beginCall(piece);
    const Call &call = m_calls.last();
    const bool isAnother = !piece.name.isEmpty() && (call.event == m_event || hasCompleteArguments(call));
    return isAnother ? beginCall(piece) : int(m_calls.size()) - 1;
}

int ToolCallAssembly::beginCall(const Piece &piece)
{
    const int number = int(m_calls.size());
    Call call;
    call.index = piece.index;
    m_calls.append(call);
    if (piece.index >= 0)
        m_newestByIndex.insert(piece.index, number);
    return number;
}

void ToolCallAssembly::addName(const QString &name, Call *call) const
{
    if (name.isEmpty() || name == call->name)
        return;
    if (m_toolNames.contains(call->name) || !call->arguments.isEmpty())
        return;
    if (m_toolNames.contains(name))
        call->name = name;
    else
        call->name += name;
}

void ToolCallAssembly::addArguments(const QString &arguments, Call *call)
{
    if (arguments == call->arguments && hasCompleteArguments(*call))
        return;
    const bool wasClosed = call->scanner.isClosed();
    call->arguments += arguments;
    call->scanner.append(arguments);
    if (call->scanner.isClosed() && !wasClosed)
        call->isObject = isObject(call->arguments);
}

bool ToolCallAssembly::hasCompleteArguments(const Call &call)
{
    return call.scanner.isClosed() && call.isObject;
}

bool ToolCallAssembly::isComplete() const
{
    return std::all_of(m_calls.cbegin(), m_calls.cend(), [](const Call &call) {
        return isBlank(call.arguments) || hasCompleteArguments(call);
    });
}

QJsonArray ToolCallAssembly::calls(const QSet<QString> &takenIds) const
{
    QVector<int> order(m_calls.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [this](int left, int right) {
        return unsigned(m_calls.at(left).index) < unsigned(m_calls.at(right).index);
    });
    QSet<QString> ids = takenIds;
    for (const Call &call : m_calls)
        ids.insert(call.id);
    int lastMade = 0;
    QJsonArray calls;
    for (const int number : qAsConst(order)) {
        const Call &call = m_calls.at(number);
        calls.append(toJson(call, call.id.isEmpty() ? freeId(ids, &lastMade) : call.id));
    }
    return calls;
}

QJsonObject ToolCallAssembly::toJson(const Call &call, const QString &id)
{
    QJsonObject function = call.otherFunctionKeys;
    function.insert(QStringLiteral("name"), call.name);
    function.insert(QStringLiteral("arguments"),
                    isBlank(call.arguments) ? QStringLiteral("{}") : call.arguments);
    QJsonObject json = call.otherKeys;
    json.insert(QStringLiteral("id"), id);
    json.insert(QStringLiteral("type"), QStringLiteral("function"));
    json.insert(QStringLiteral("function"), function);
    return json;
}

} // namespace QtAgent
} // namespace MireloQtLib
