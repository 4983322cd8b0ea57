#ifndef ORVANE_ANSWERWATCH_H
#define ORVANE_ANSWERWATCH_H

#include <qtagent/completionreply.h>

#include <QPointer>

/// What is known of an answer besides its text.
struct AnswerDetails
{
    MireloQtLib::QtAgent::TokenUsage usage;
    QString finishReason;
    QString refusal;
    QString thinking;
    MireloQtLib::QtAgent::ChatFailure failure;
};

/// A model that asks another one and watches what its answers tell, for a session hands on their text alone.
class AnswerWatch : public MireloQtLib::QtAgent::ChatModel
{
    Q_OBJECT

public:
    explicit AnswerWatch(QObject *parent = nullptr);
    ~AnswerWatch() override;

    /// Asks @p model from now on, which is not owned.
    void setModel(MireloQtLib::QtAgent::ChatModel *model);

    /// Returns what is known of the last answer; complete in the slots of the signal that tells its end.
    const AnswerDetails &details() const;

    MireloQtLib::QtAgent::ChatReply *chat(const QVector<MireloQtLib::QtAgent::ChatMessage> &messages,
                                          const QVector<MireloQtLib::QtAgent::ToolDefinition> &tools,
                                          QObject *parent) override;

Q_SIGNALS:
    /// A request was sent.
    void asked();

    /// A piece of the thinking arrived.
    void thinkingReceived(const QString &piece);

private:
    void watch(MireloQtLib::QtAgent::CompletionReply *reply);

    QPointer<MireloQtLib::QtAgent::ChatModel> m_model;
    AnswerDetails m_details;
};

#endif
