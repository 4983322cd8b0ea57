#ifndef MIRELOQTLIB_QTAGENT_RUNNABLECHAIN_H
#define MIRELOQTLIB_QTAGENT_RUNNABLECHAIN_H

#include <qtagent/chatmodel.h>
#include <qtagent/messagehistory.h>
#include <qtagent/prompttemplate.h>
#include <qtagent/runparallel.h>

#include <QPointer>

namespace MireloQtLib {
namespace QtAgent {

/// A prompt template and the model that answers it.
///
/// @code
/// auto *chain = new RunnableChain(this);
/// chain->setSystemPrompt(QStringLiteral("You are a concise assistant."));
/// chain->setPromptTemplate(QStringLiteral("Explain {topic} in one sentence."));
/// chain->setModel(model);
/// ChatReply *reply = chain->invoke({{QStringLiteral("topic"), QStringLiteral("routing")}}, this);
/// reply->whenEnded(this, [this](const ChatResult &result) { showEnd(result); });
/// @endcode
///
/// A chain belongs to the thread of its model.
class QTAGENT_EXPORT RunnableChain : public QObject
{
    Q_OBJECT

public:
    /// Creates a chain without a model, with empty prompts.
    explicit RunnableChain(QObject *parent = nullptr);
    ~RunnableChain() override;

    /// Sets the user's message, in which `{name}` stands for a variable of invoke() (see
    /// PromptTemplate::render()).
    void setPromptTemplate(const QString &text);

    /// Sets the instruction that precedes the user's message. It is sent as it is, without replacing
    /// placeholders; an empty one is not sent.
    void setSystemPrompt(const QString &text);

    /// Sets the model to ask. The chain does not own it; a model that was deleted counts as none.
    void setModel(ChatModel *model);

    /// Asks the model, without tools, and returns its reply. The reply is owned by @p parent, or by the
    /// chain where that is null.
    ///
    /// Signals follow as ChatReply describes, never before this call returns. Without a model the reply
    /// fails with "RunnableChain has no model." on the next turn of the event loop.
    ChatReply *invoke(const PromptVariables &variables, QObject *parent = nullptr);

private:
    QVector<ChatMessage> conversation(const PromptVariables &variables) const;

    QString m_promptTemplate;
    QString m_systemPrompt;
    QPointer<ChatModel> m_model;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
