#include "recording_p.h"

#include <QJsonDocument>
#include <QSet>
#include <QStringList>

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int currentVersion = 1;

// Beyond it not every whole number is one of JSON's.
constexpr double longestMs = 9007199254740992.0;

// How much of a text shows a difference: some of what both have, and what follows.
constexpr int shownBefore = 20;
constexpr int shownBehind = 40;
constexpr int shownOfJson = 100;

QByteArray compact(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

bool isEnd(const QString &name)
{
    static const QSet<QString> ends{QStringLiteral("finished"), QStringLiteral("failed"),
                                    QStringLiteral("canceled"), QStringLiteral("deleted")};
    return ends.contains(name);
}

bool hasValueOfItsKind(const RecordedSignal &recorded)
{
    if (recorded.name == QLatin1String("canceled") || recorded.name == QLatin1String("deleted"))
        return recorded.value.isUndefined();
    if (recorded.name == QLatin1String("response"))
        return recorded.value.isObject();
    return recorded.value.isString() && (recorded.name == QLatin1String("delta") || isEnd(recorded.name));
}

RecordedSignal signalOf(const QJsonArray &entry)
{
    const QJsonValue value = entry.size() > 2 ? entry.at(2) : QJsonValue(QJsonValue::Undefined);
    const double ms = entry.at(0).toDouble(-1);
    return {ms <= longestMs ? qint64(std::max(ms, -1.0)) : -1, entry.at(1).toString(), value};
}

// Signals that a reply can have emitted: in the order of their times, with one end behind all others.
bool arePossible(const QVector<RecordedSignal> &recorded)
{
    qint64 ms = 0;
    for (int i = 0; i < recorded.size(); ++i) {
        const bool isLast = i == recorded.size() - 1;
        if (recorded.at(i).ms < ms || !hasValueOfItsKind(recorded.at(i))
            || isEnd(recorded.at(i).name) != isLast)
            return false;
        ms = recorded.at(i).ms;
    }
    return !recorded.isEmpty();
}

bool readReply(const QByteArray &line, RecordedReply *reply)
{
    const QJsonObject object = QJsonDocument::fromJson(line).object();
    reply->request = object.value(QLatin1String("request")).toObject();
    const QJsonArray entries = object.value(QLatin1String("signals")).toArray();
    for (const QJsonValue &entry : entries)
        reply->signalsInOrder.append(signalOf(entry.toArray()));
    return reply->request.value(QLatin1String("messages")).isArray()
        && reply->request.value(QLatin1String("tools")).isArray() && arePossible(reply->signalsInOrder);
}

Recording failure(const QString &error)
{
    return {{}, error};
}

Recording damage(const QString &path, int line)
{
    return failure(QStringLiteral("Recording %1 is damaged in line %2.").arg(path, QString::number(line)));
}

int commonLength(const QString &left, const QString &right)
{
    const auto places = std::mismatch(left.cbegin(), left.cend(), right.cbegin(), right.cend());
    return int(places.first - left.cbegin());
}

// How far two texts are equal.
struct Extent
{
    int inRecorded = 0;
    int inAsked = 0;
};

// What follows a hidden text is looked for behind what precedes it; the last piece ends the text.
Extent equalExtent(const QString &recorded, const QString &asked)
{
    QStringList pieces = recorded.split(hiddenText());
    const int common = commonLength(pieces.first(), asked);
    if (pieces.size() == 1 || common < pieces.first().size())
        return {common, common};
    Extent extent{common, common};
    const QString last = pieces.takeLast();
    for (const QString &piece : pieces.mid(1)) {
        const int found = int(asked.indexOf(piece, extent.inAsked));
        if (found < 0)
            return extent;
        extent = {int(extent.inRecorded + hiddenText().size() + piece.size()), int(found + piece.size())};
    }
    if (asked.size() - extent.inAsked < last.size() || !asked.endsWith(last))
        return extent;
    return {int(recorded.size()), int(asked.size())};
}

bool areEqualTexts(const QString &recorded, const QString &asked)
{
    const Extent extent = equalExtent(recorded, asked);
    return extent.inRecorded == recorded.size() && extent.inAsked == asked.size();
}

// Returns the object with the hidden names of the recorded one in the place of its own. None is used twice.
QJsonObject withHiddenNames(const QJsonObject &recorded, const QJsonObject &asked)
{
    const QStringList hidden = recorded.keys().filter(hiddenText());
    QJsonObject named;
    for (auto member = asked.begin(); member != asked.end(); ++member) {
        const QString name = member.key();
        const auto found = std::find_if(hidden.cbegin(), hidden.cend(), [&](const QString &hiddenName) {
            return !recorded.contains(name) && !asked.contains(hiddenName) && !named.contains(hiddenName)
                && areEqualTexts(hiddenName, name);
        });
        named.insert(found == hidden.cend() ? name : *found, member.value());
    }
    return named;
}

QJsonValue memberOf(const QJsonValue &value, const QString &name)
{
    return value.toObject().value(name);
}

bool areEqualArrays(const QJsonArray &recorded, const QJsonArray &asked)
{
    return std::equal(recorded.begin(), recorded.end(), asked.begin(), asked.end(), isEqual);
}

bool areEqualObjects(const QJsonObject &recorded, const QJsonObject &asked)
{
    const QJsonObject named = withHiddenNames(recorded, asked);
    const auto isEqualMember = [&](const QString &name) {
        return named.contains(name) && isEqual(recorded.value(name), named.value(name));
    };
    const QStringList names = recorded.keys();
    return names.size() == named.size() && std::all_of(names.cbegin(), names.cend(), isEqualMember);
}

// Undefined beyond the end.
QJsonValue elementOf(const QJsonValue &value, int index)
{
    const QJsonArray array = value.toArray();
    return index < array.size() ? array.at(index) : QJsonValue(QJsonValue::Undefined);
}

struct Difference
{
    QString place;
    QJsonValue recorded;
    QJsonValue asked;
};

Difference differenceOf(const QJsonValue &recorded, const QJsonValue &asked, const QString &place);

Difference differenceInObjects(const QJsonValue &recorded, const QJsonValue &object, const QString &place)
{
    const QJsonValue asked = withHiddenNames(recorded.toObject(), object.toObject());
    QStringList names = recorded.toObject().keys() + asked.toObject().keys();
    names.sort();
    const auto differs = [&](const QString &name) {
        return !isEqual(memberOf(recorded, name), memberOf(asked, name));
    };
    const QString name = *std::find_if(names.cbegin(), names.cend(), differs);
    const QString memberPlace = place.isEmpty() ? name : place + QLatin1String(", ") + name;
    return differenceOf(memberOf(recorded, name), memberOf(asked, name), memberPlace);
}

// The second of the "messages" is "message 2".
Difference differenceInArrays(const QJsonValue &recorded, const QJsonValue &asked, QString place)
{
    int index = 0;
    while (isEqual(elementOf(recorded, index), elementOf(asked, index)))
        ++index;
    if (place.endsWith(QLatin1Char('s')))
        place.chop(1);
    const QString elementPlace = place + QLatin1Char(' ') + QString::number(index + 1);
    return differenceOf(elementOf(recorded, index), elementOf(asked, index), elementPlace);
}

Difference differenceOf(const QJsonValue &recorded, const QJsonValue &asked, const QString &place)
{
    if (recorded.isObject() && asked.isObject())
        return differenceInObjects(recorded, asked, place);
    if (recorded.isArray() && asked.isArray())
        return differenceInArrays(recorded, asked, place);
    return {place, recorded, asked};
}

QString jsonText(const QJsonValue &value)
{
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

const QChar ellipsis(0x2026);

QString excerpt(const QString &text, int difference)
{
    const int begin = std::max(0, difference - shownBefore);
    return (begin > 0 ? QString(ellipsis) : QString()) + text.mid(begin, difference - begin + shownBehind)
         + (difference + shownBehind < text.size() ? QString(ellipsis) : QString());
}

QString shown(const QJsonValue &value, int difference)
{
    if (value.isUndefined())
        return QStringLiteral("nothing");
    if (value.isString())
        return jsonText(excerpt(value.toString(), difference));
    const QString text = jsonText(value);
    return text.size() <= shownOfJson ? text : text.left(shownOfJson) + ellipsis;
}

} // namespace

const QString &hiddenText()
{
    static const QString text = QStringLiteral("[hidden]");
    return text;
}

QJsonObject requestObject(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools)
{
    QJsonArray messageArray;
    for (const ChatMessage &message : messages)
        messageArray.append(messageToJson(message));
    QJsonArray toolArray;
    for (const ToolDefinition &tool : tools)
        toolArray.append(toolDefinitionToJson(tool));
    const QJsonObject request{{QStringLiteral("messages"), messageArray},
                              {QStringLiteral("tools"), toolArray}};
    return QJsonDocument::fromJson(compact(request)).object();
}

Recording readRecording(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return failure(QStringLiteral("Recording %1 cannot be read: %2").arg(path, file.errorString()));
    const QJsonObject head = QJsonDocument::fromJson(file.readLine()).object();
    const double version = head.value(QLatin1String("recording")).toDouble();
    if (version > currentVersion)
        return failure(QStringLiteral("Recording %1 was made by a newer version.").arg(path));
    if (version != currentVersion)
        return damage(path, 1);
    Recording recording;
    for (int number = 2; !file.atEnd(); ++number) {
        RecordedReply reply;
        if (!readReply(file.readLine(), &reply))
            return damage(path, number);
        recording.replies.append(reply);
    }
    return recording;
}

bool isEqual(const QJsonValue &recorded, const QJsonValue &asked)
{
    if (recorded.isString() && asked.isString())
        return areEqualTexts(recorded.toString(), asked.toString());
    if (recorded.isArray() && asked.isArray())
        return areEqualArrays(recorded.toArray(), asked.toArray());
    if (recorded.isObject() && asked.isObject())
        return areEqualObjects(recorded.toObject(), asked.toObject());
    return recorded == asked;
}

QString firstDifference(const QJsonObject &recorded, const QJsonObject &asked)
{
    const Difference difference = differenceOf(recorded, asked, {});
    const Extent extent = equalExtent(difference.recorded.toString(), difference.asked.toString());
    return QStringLiteral("%1: recorded %2, asked %3")
        .arg(difference.place, shown(difference.recorded, extent.inRecorded),
             shown(difference.asked, extent.inAsked));
}

RecordingFile::RecordingFile(const QString &path)
    : m_file(path)
{
    if (m_file.open(QIODevice::WriteOnly | QIODevice::NewOnly))
        writeLine({{QStringLiteral("recording"), currentVersion}});
    else if (m_file.exists())
        m_error = QStringLiteral("Recording %1 exists already. Nothing is recorded.").arg(path);
    else
        m_error = QStringLiteral("Recording %1 cannot be written: %2").arg(path, m_file.errorString());
}

void RecordingFile::append(const RecordedReply &reply)
{
    if (!m_file.isOpen())
        return;
    QJsonArray entries;
    for (const RecordedSignal &recorded : reply.signalsInOrder) {
        QJsonArray entry{recorded.ms, recorded.name};
        if (!recorded.value.isUndefined())
            entry.append(recorded.value);
        entries.append(entry);
    }
    writeLine({{QStringLiteral("request"), reply.request}, {QStringLiteral("signals"), entries}});
}

// What could not be read again, because it is nested too deeply, would spoil all the others.
void RecordingFile::writeLine(const QJsonObject &line)
{
    const QByteArray bytes = compact(line);
    if (QJsonDocument::fromJson(bytes).isNull()) {
        m_error =
            QStringLiteral("Recording %1 lacks a reply that is nested too deeply.").arg(m_file.fileName());
        return;
    }
    if (m_file.write(bytes + '\n') == bytes.size() + 1 && m_file.flush())
        return;
    m_error =
        QStringLiteral("Recording %1 cannot be written: %2").arg(m_file.fileName(), m_file.errorString());
    m_file.close();
}

} // namespace QtAgent
} // namespace MireloQtLib
