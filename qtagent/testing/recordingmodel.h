#ifndef MIRELOQTLIB_QTAGENT_RECORDINGMODEL_H
#define MIRELOQTLIB_QTAGENT_RECORDINGMODEL_H

#include <qtagent/chatmodel.h>
#include <qtagent/testing/qtagent_testing_export.h>

#include <QObject>
#include <QPointer>
#include <QString>
#include <QVector>

#include <memory>

namespace MireloQtLib {
namespace QtAgent {

class RecordingFile;

/// A model that passes requests on to another one and writes down what comes of them, for a ReplayModel.
///
/// @code
/// auto *recording = new RecordingModel(model, "tests/pump.jsonl", this);
/// if (!recording->error().isEmpty())
///     qWarning() << recording->error();
/// session->setModel(recording);
/// @endcode
///
/// The file holds a line of JSON for each reply, which is written when the reply ends, before anybody else is
/// told: the messages and tools of the request, and the reply's signals with their times in milliseconds. So
/// it can be read, compared and kept beside a program's sources. Metadata of messages and permissions of
/// tools, which no service is sent, are not in it.
///
/// **Secrets.** What is recorded is what passes between program and model, so neither headers nor addresses
/// nor keys are part of it. Where a service repeats them, and in reports of failures, "[hidden]" takes their
/// place: of every web address in a report, and everywhere of the key, the address and the headers in the
/// profile and the options of the model, as far as they have eight characters or more. The model that a
/// RetryingModel asks is known too. Where a model of your own asks another one, give this object that one's
/// profile, with setConfig(); its headers are then not known. All else in questions and answers is recorded
/// as it is.
///
/// A recording is never overwritten: where the file exists, it is not touched, error() says so, and requests
/// are only passed on. Both models belong to one thread.
class QTAGENT_TESTING_EXPORT RecordingModel : public ChatModel
{
    Q_OBJECT

public:
    /// Creates a model that asks @p model, which is not owned, and makes the file @p path.
    RecordingModel(ChatModel *model, const QString &path, QObject *parent = nullptr);

    /// Closes the file once the last reply has ended: those that somebody else owns are recorded
    /// nevertheless.
    ~RecordingModel() override;

    /// Returns why nothing, or not everything, is recorded, or an empty text:
    /// - "Recording %1 exists already. Nothing is recorded.";
    /// - "Recording %1 cannot be written: %2" with the system's words, after which nothing more is;
    /// - "Recording %1 lacks a reply that is nested too deeply.", which no service sends.
    QString error() const;

    /// Returns the reply of the model, or null where that returns null. It is owned by @p parent, or by this
    /// object where that is null. Where there is no model, or it was deleted, the reply fails with "There is
    /// no model to record.".
    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                    QObject *parent) override;

private:
    const QPointer<ChatModel> m_model;
    const std::shared_ptr<RecordingFile> m_file;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
