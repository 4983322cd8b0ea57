#ifndef MIRELOQTLIB_QTAGENT_RECORDING_P_H
#define MIRELOQTLIB_QTAGENT_RECORDING_P_H

#include <qtagent/chatmodel.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {

// A recording is JSON lines: {"recording":1}, then for each reply, in the order of their ends,
// {"request":{"messages":[…],"tools":[…]},"signals":[[ms,"delta","…"],…]}. The last signal is an end.

/// A signal of a reply: "delta", "response", "finished", "failed", "canceled" or "deleted".
struct RecordedSignal
{
    /// When it came, in milliseconds after the request.
    qint64 ms = 0;
    QString name;
    /// A text, the object of "response", or nothing.
    QJsonValue value;
};

struct RecordedReply
{
    QJsonObject request;
    QVector<RecordedSignal> signalsInOrder;
};

/// What a file holds, or why it cannot be used.
struct Recording
{
    QVector<RecordedReply> replies;
    QString error;
};

/// What stands in a recording in the place of what nobody may know.
const QString &hiddenText();

/// Returns the request as it reads when it comes from a file.
QJsonObject requestObject(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools);

/// Reads a whole recording.
Recording readRecording(const QString &path);

/// Returns whether @p asked equals @p recorded. Where texts of that are hidden, any text is equal.
bool isEqual(const QJsonValue &recorded, const QJsonValue &asked);

/// Returns where two requests that are not equal differ first, and how.
QString firstDifference(const QJsonObject &recorded, const QJsonObject &asked);

/// The file that is being written.
class RecordingFile
{
public:
    /// Makes the file. One that exists is left as it is.
    explicit RecordingFile(const QString &path);

    void append(const RecordedReply &reply);

    const QString &error() const { return m_error; }

private:
    void writeLine(const QJsonObject &line);

    QFile m_file;
    QString m_error;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
