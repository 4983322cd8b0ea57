#ifndef MIRELOQTLIB_QTAGENT_SCRIPTEDMODEL_H
#define MIRELOQTLIB_QTAGENT_SCRIPTEDMODEL_H

#include <qtagent/chatmodel.h>
#include <qtagent/testing/qtagent_testing_export.h>

#include <QJsonArray>
#include <QMetaType>
#include <QObject>
#include <QQueue>
#include <QString>
#include <QStringList>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {

struct ReplyStep;

/// A model for tests: it answers from a queue and keeps what it was asked.
///
/// @code
/// ScriptedModel model;
/// model.addToolCalls({makeToolCall("call-1", "read_pump", {})});
/// model.addText({"The pump ", "runs."});
/// AgentSession session;
/// session.setModel(&model);
/// session.setToolRegistry(registry);
/// session.send("Does the pump run?");
/// @endcode
///
/// Every request takes the next answer, which begins on the next turn of the event loop. One that finds no
/// answer fails with "ScriptedModel has no answer left.". The profile is ignored. A reply that is owned by
/// somebody else goes on when the model is deleted. Both belong to one thread.
class QTAGENT_TESTING_EXPORT ScriptedModel : public ChatModel
{
    Q_OBJECT

public:
    /// What a request held.
    struct Request
    {
        /// The conversation.
        QVector<ChatMessage> messages;
        /// The tools that were offered.
        QVector<ToolDefinition> tools;

        /// Returns whether both fields are equal.
        friend bool operator==(const Request &left, const Request &right)
        {
            return left.messages == right.messages && left.tools == right.tools;
        }
        /// Returns whether a field differs.
        friend bool operator!=(const Request &left, const Request &right) { return !(left == right); }
    };

    /// Creates a model without answers.
    explicit ScriptedModel(QObject *parent = nullptr);
    ~ScriptedModel() override;

    /// Adds an answer that streams @p pieces, each @p pauseMs milliseconds after the one before it, and
    /// finishes right behind the last one. Without a pause all arrive in one turn of the event loop.
    void addText(const QStringList &pieces, int pauseMs = 0);

    /// Adds an answer that asks for @p toolCalls (see makeToolCall()) and says @p content, as a service does
    /// that does not stream: responseReceived(), one deltaReceived() with the content, empty or not, and
    /// finished().
    void addToolCalls(const QJsonArray &toolCalls, const QString &content = {});

    /// Adds an answer that fails with @p error.
    void addFailure(const QString &error);

    /// Adds an answer that never comes: the reply runs until it is canceled or deleted.
    void addSilence();

    /// Returns the requests so far, the first one first.
    QVector<Request> requests() const;

    /// Returns how many answers no request has taken.
    int answersLeft() const;

    /// Answers from the queue, as ChatModel::chat() describes.
    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                    QObject *parent) override;

private:
    QQueue<QVector<ReplyStep>> m_answers;
    QVector<Request> m_requests;
};

} // namespace QtAgent
} // namespace MireloQtLib

Q_DECLARE_METATYPE(MireloQtLib::QtAgent::ScriptedModel::Request)

#endif
