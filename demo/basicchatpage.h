#ifndef ORVANE_BASICCHATPAGE_H
#define ORVANE_BASICCHATPAGE_H

#include <demo/modelprovider.h>

#include <QWidget>

namespace MireloQtLib {
namespace QtAgent {
class AgentChatPanel;
class ChatReply;
class ModelConfigWidget;
} // namespace QtAgent
} // namespace MireloQtLib

/// The page "基础对话": the form of model profiles beside a chat.
///
/// Every question is sent on its own, without those before it. Stop cancels the answer; a failure is shown
/// as a system note.
class BasicChatPage : public QWidget
{
    Q_OBJECT

public:
    /// Creates the page. It asks @p modelProvider for a model at every question and makes @p replyParent,
    /// which must outlive the page, the parent of the replies.
    BasicChatPage(ModelProvider modelProvider, QObject *replyParent, QWidget *parent = nullptr);
    ~BasicChatPage() override;

    /// Returns the form. It shows no profile until it is given some.
    MireloQtLib::QtAgent::ModelConfigWidget *modelConfig() const;

private:
    QWidget *createConfigGroup();
    void send(const QString &text);
    void showAnswer(MireloQtLib::QtAgent::ChatReply *reply);
    void stop();

    ModelProvider m_modelProvider;
    QObject *m_replyParent;
    MireloQtLib::QtAgent::ModelConfigWidget *m_modelConfig;
    MireloQtLib::QtAgent::AgentChatPanel *m_chat;
};

#endif
