#include "replaymodel.h"

#include "recording_p.h"
#include "replyplayer_p.h"

#include <algorithm>
#include <limits>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr double longestPauseMs = std::numeric_limits<int>::max();

// Null where the signal is the program's own doing.
std::function<void(ChatReply *)> playOf(const RecordedSignal &recorded)
{
    const QString text = recorded.value.toString();
    if (recorded.name == QLatin1String("delta"))
        return [text](ChatReply *reply) { reply->appendDelta(text); };
    if (recorded.name == QLatin1String("finished"))
        return [text](ChatReply *reply) { reply->finish(text); };
    if (recorded.name == QLatin1String("failed"))
        return [text](ChatReply *reply) { reply->fail(text); };
    if (recorded.name == QLatin1String("response"))
        return [response = recorded.value.toObject()](ChatReply *reply) { reply->setResponse(response); };
    return {};
}

QVector<ReplyStep> stepsOf(const RecordedReply &recorded, double speed)
{
    QVector<ReplyStep> steps;
    qint64 lastMs = 0;
    for (const RecordedSignal &signal : recorded.signalsInOrder) {
        const double pauseMs = speed > 0 ? double(signal.ms - lastMs) / speed : 0;
        lastMs = signal.ms;
        if (const auto play = playOf(signal))
            steps.append({qint64(std::min(pauseMs, longestPauseMs)), play});
    }
    return steps;
}

int commonMessages(const QJsonObject &left, const QJsonObject &right)
{
    const QJsonArray leftMessages = left.value(QLatin1String("messages")).toArray();
    const QJsonArray rightMessages = right.value(QLatin1String("messages")).toArray();
    const auto places = std::mismatch(leftMessages.begin(), leftMessages.end(), rightMessages.begin(),
                                      rightMessages.end(), isEqual);
    return int(places.first - leftMessages.begin());
}

QString differenceFrom(const QVector<RecordedReply> &unused, const QJsonObject &asked)
{
    if (unused.isEmpty())
        return QStringLiteral("every recorded request was asked already");
    const auto isFurther = [&asked](const RecordedReply &left, const RecordedReply &right) {
        return commonMessages(left.request, asked) < commonMessages(right.request, asked);
    };
    const auto nearest = std::max_element(unused.cbegin(), unused.cend(), isFurther);
    return firstDifference(nearest->request, asked);
}

} // namespace

ReplayModel::ReplayModel(const QString &path, QObject *parent)
    : ChatModel(parent)
    , m_recording(std::make_unique<Recording>(readRecording(path)))
{}

ReplayModel::~ReplayModel() = default;

void ReplayModel::setSpeed(double factor)
{
    m_speed = factor;
}

ChatReply *ReplayModel::chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                             QObject *parent)
{
    QObject *owner = parent ? parent : this;
    if (!m_recording->error.isEmpty())
        return ChatReply::failLater(m_recording->error, owner);
    const QJsonObject request = requestObject(messages, tools);
    QVector<RecordedReply> &unused = m_recording->replies;
    const auto found = std::find_if(unused.begin(), unused.end(), [&request](const RecordedReply &recorded) {
        return isEqual(recorded.request, request);
    });
    if (found == unused.end()) {
        const auto isUsed = [&request](const QJsonObject &used) { return isEqual(used, request); };
        const QString difference = std::any_of(m_used.cbegin(), m_used.cend(), isUsed)
                                     ? QStringLiteral("it was asked more often than it was recorded")
                                     : differenceFrom(unused, request);
        return ChatReply::failLater(
            QStringLiteral("No recording of this request. First difference: %1").arg(difference), owner);
    }
    auto *reply = new ChatReply(owner);
    playLater(stepsOf(*found, m_speed), reply);
    m_used.append(found->request);
    unused.erase(found);
    return reply;
}

} // namespace QtAgent
} // namespace MireloQtLib
