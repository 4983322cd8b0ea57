#ifndef MIRELOQTLIB_QTAGENT_MODELLIST_H
#define MIRELOQTLIB_QTAGENT_MODELLIST_H

#include <qtagent/completionreply.h>

#include <QObject>
#include <QStringList>

namespace MireloQtLib {
namespace QtAgent {

/// The answer to the question which models a service has, as OpenAICompatibleModel::listModels() asks it.
///
/// @code
/// ModelListReply *reply = model->listModels(this);
/// connect(reply, &ModelListReply::finished, this, &Window::offer);
/// connect(reply, &ModelListReply::failed, this, &Window::showError);
/// connect(reply, &ModelListReply::canceled, this, &Window::showStopped);
/// @endcode
///
/// A reply ends with exactly one of finished(), failed() and canceled(), the first two from the event loop,
/// unless it or the model is deleted first. It belongs to its parent; call deleteLater() when it has ended.
/// It may be deleted or canceled at any time, which aborts the request. It belongs to the thread of its
/// model.
class QTAGENT_EXPORT ModelListReply : public QObject
{
    Q_OBJECT

public:
    ~ModelListReply() override;

    /// Returns the names once finished() is emitted: sorted, each once. Speech models and the like are among
    /// them.
    QStringList models() const;

    /// Returns the report of failed(), else an empty text.
    QString error() const;

    /// Returns why the request failed; a default one where it has not.
    ChatFailure failure() const;

    /// Returns whether the reply is neither finished, failed nor canceled.
    bool isRunning() const;

public Q_SLOTS:
    /// Aborts the request and emits canceled(). Does nothing once the reply has ended.
    void cancel();

Q_SIGNALS:
    /// The service has these models.
    void finished(const QStringList &models);

    /// The request failed. @p error is a report as that of ChatReply::failed().
    void failed(const QString &error);

    /// cancel() was called.
    void canceled();

private:
    friend class ModelListReceiver;
    friend class OpenAICompatibleModel;

    explicit ModelListReply(QObject *parent);

    void finish(const QStringList &models);
    void fail(const QString &error, const ChatFailure &failure);

    QStringList m_models;
    QString m_error;
    ChatFailure m_failure;
    bool m_isRunning = true;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
