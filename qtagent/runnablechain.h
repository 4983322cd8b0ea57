#ifndef MIRELOQTLIB_QTAGENT_RUNNABLECHAIN_H
#define MIRELOQTLIB_QTAGENT_RUNNABLECHAIN_H

#include <qtagent/chatmodel.h>
#include <qtagent/prompttemplate.h>

#include <QPointer>

#include <functional>

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
/// connect(reply, &ChatReply::finished, this, &Window::showAnswer);
/// connect(reply, &ChatReply::failed, this, &Window::showError);
/// @endcode
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

/// The messages of a conversation so far, to be sent with each further question.
///
/// @code
/// MessageHistory history;
/// history.addSystem(QStringLiteral("You are a concise assistant."));
/// history.addUser(question);
/// ChatReply *reply = model->chat(history.messages(), {}, this);
/// @endcode
class QTAGENT_EXPORT MessageHistory
{
public:
    /// Appends an instruction to the model.
    void addSystem(const QString &text);

    /// Appends what the user said.
    void addUser(const QString &text);

    /// Appends what the model answered.
    void addAssistant(const QString &text);

    /// Returns all messages in the order in which they were added.
    QVector<ChatMessage> messages() const;

private:
    QVector<ChatMessage> m_messages;
};

/// One branch of runParallel(): turns the variables into the branch's text.
using ParallelBranch = std::function<QString(const PromptVariables &)>;

/// Runs every branch with the same @p variables and returns the texts under the branches' names.
///
/// @code
/// const auto greeting = [](const PromptVariables &variables) { return "Hello " + variables["name"]; };
/// const auto farewell = [](const PromptVariables &variables) { return "Goodbye " + variables["name"]; };
/// const QMap<QString, QString> texts =
///     runParallel({{"greeting", greeting}, {"farewell", farewell}}, {{"name", "Ada"}});
/// // texts is {"farewell": "Goodbye Ada", "greeting": "Hello Ada"}
/// @endcode
///
/// The branches run on the calling thread, one after another in the order of their names. An empty
/// function among them is a programming error and throws std::bad_function_call; like every exception of
/// a branch it leaves the later branches out.
QTAGENT_EXPORT QMap<QString, QString> runParallel(const QMap<QString, ParallelBranch> &branches,
                                                  const PromptVariables &variables);

} // namespace QtAgent
} // namespace MireloQtLib

#endif
