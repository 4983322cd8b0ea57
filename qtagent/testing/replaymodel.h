#ifndef MIRELOQTLIB_QTAGENT_REPLAYMODEL_H
#define MIRELOQTLIB_QTAGENT_REPLAYMODEL_H

#include <qtagent/chatmodel.h>
#include <qtagent/testing/qtagent_testing_export.h>

#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QVector>

#include <memory>

namespace MireloQtLib {
namespace QtAgent {

struct Recording;

/// A model for tests that answers as a recording has it, see RecordingModel.
///
/// @code
/// ReplayModel model("tests/pump.jsonl");
/// AgentSession session;
/// session.setModel(&model);
/// session.setToolRegistry(registry);
/// session.send("Does the pump run?");
/// @endcode
///
/// A request is answered by the first recorded one that was not used and has the same messages and tools,
/// with the recorded pieces, response and end; whatever else a profile says does not matter. Where the
/// recording has "[hidden]" for what nobody may know, a request may have any text. A reply that was
/// recorded as canceled or deleted stays silent where that happened, for the program to do the same again.
///
/// Any other request fails with "No recording of this request. First difference: " and the place, for example
/// `message 2, content: recorded "Is it on?", asked "Is it off?"`. It is compared with the unused request
/// that has the most of its messages in common; a request that was recorded, but fewer times, is told as "it
/// was asked more often than it was recorded".
///
/// The file is read when the model is created. Where that fails every request does, with
/// - "Recording %1 cannot be read: %2", with the system's words;
/// - "Recording %1 is damaged in line %2.";
/// - "Recording %1 was made by a newer version.".
///
/// Like every model it is used on the thread that it belongs to.
class QTAGENT_TESTING_EXPORT ReplayModel : public ChatModel
{
    Q_OBJECT

public:
    /// Creates a model that answers from the file @p path, at once.
    explicit ReplayModel(const QString &path, QObject *parent = nullptr);
    ~ReplayModel() override;

    /// Sets the pace of the next replies: 1 is the recorded one, 2 is twice as fast. With 0, the default, all
    /// that a reply emits comes in one turn of the event loop. Negative values count as 0.
    void setSpeed(double factor);

    /// Answers from the recording, as ChatModel::chat() describes.
    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                    QObject *parent) override;

private:
    const std::unique_ptr<Recording> m_recording; // what was not used of it
    QVector<QJsonObject> m_used;
    double m_speed = 0;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
