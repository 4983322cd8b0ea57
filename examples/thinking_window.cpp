// A chat window that folds the model's reasoning away, and counts tokens.

#include <qtagent/completionreply.h>
#include <qtagent/widgets/agentchatpanel.h>

#include <QtWidgets>

using namespace MireloQtLib::QtAgent;

// Stands in for a model that thinks. An OpenAICompatibleModel tells the same.
class ThinkingModel : public ChatModel
{
public:
    ChatReply *chat(const QVector<ChatMessage> & /*messages*/, const QVector<ToolDefinition> & /*tools*/,
                    QObject *parent) override
    {
        auto *reply = new CompletionReply(parent ? parent : this);
        QTimer::singleShot(0, reply, [reply] {
            reply->appendReasoning(QStringLiteral("压差 0.8 bar 超过 0.5 bar 的上限。\n"));
            reply->appendReasoning(QStringLiteral("先确认过滤器，再看泵。"));
            reply->setUsage({42, 128, 96});
            const QString answer = QStringLiteral("过滤器很可能堵塞，请切换到备用泵后更换滤芯。");
            reply->appendDelta(answer);
            reply->finish(answer);
        });
        return reply;
    }
};

class ThinkingWindow : public QWidget
{
public:
    ThinkingWindow()
    {
        m_fold->setObjectName(QStringLiteral("thinkingFold"));
        m_fold->setText(QStringLiteral("思考"));
        m_fold->setCheckable(true);
        m_fold->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        m_fold->setAutoRaise(true);
        m_thinking->setObjectName(QStringLiteral("thinkingText"));
        m_thinking->setReadOnly(true);
        m_thinking->setTabChangesFocus(true);
        m_thinking->setMaximumHeight(96);
        m_tokens->setObjectName(QStringLiteral("tokenLine"));
        m_tokens->setTextFormat(Qt::PlainText);
        auto *layout = new QVBoxLayout(this);
        layout->addWidget(m_fold);
        layout->addWidget(m_thinking);
        layout->addWidget(m_panel, 1);
        layout->addWidget(m_tokens);
        connect(m_fold, &QToolButton::toggled, this, &ThinkingWindow::unfold);
        connect(m_panel, &AgentChatPanel::sendRequested, this, &ThinkingWindow::ask);
        unfold(false);
    }

private:
    void unfold(bool unfolded)
    {
        m_fold->setArrowType(unfolded ? Qt::DownArrow : Qt::RightArrow);
        m_thinking->setVisible(unfolded);
    }

    void ask(const QString &question)
    {
        m_panel->appendUserMessage(question);
        m_panel->beginAgentMessage();
        m_panel->setBusy(true);
        m_thinking->clear();
        m_tokens->clear();

        auto *reply = qobject_cast<CompletionReply *>(m_model.chat({ChatMessage::user(question)}, {}, this));
        connect(reply, &CompletionReply::reasoningReceived, this, &ThinkingWindow::appendThought);
        connect(reply, &ChatReply::deltaReceived, m_panel, &AgentChatPanel::appendAgentDelta);
        connect(m_panel, &AgentChatPanel::stopRequested, reply, &ChatReply::cancel);
        reply->whenEnded(this, [this, reply](const ChatResult &result) {
            if (!result.error.isEmpty())
                m_panel->appendSystemMessage(result.error);
            m_panel->finishAgentMessage();
            m_panel->setBusy(false);
            showTokens(reply->usage());
            reply->deleteLater();
        });
    }

    // The field's own cursor is the user's.
    void appendThought(const QString &piece)
    {
        QTextCursor cursor(m_thinking->document());
        cursor.movePosition(QTextCursor::End);
        cursor.insertText(piece);
    }

    void showTokens(const TokenUsage &usage)
    {
        const auto count = [](qint64 tokens) {
            return tokens < 0 ? QStringLiteral("未知") : QString::number(tokens);
        };
        m_tokens->setText(QStringLiteral("词元：输入 %1，输出 %2，其中思考 %3")
                              .arg(count(usage.prompt), count(usage.completion), count(usage.reasoning)));
    }

    ThinkingModel m_model;
    QToolButton *const m_fold = new QToolButton(this);
    QPlainTextEdit *const m_thinking = new QPlainTextEdit(this);
    AgentChatPanel *const m_panel = new AgentChatPanel(this);
    QLabel *const m_tokens = new QLabel(this);
};

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    ThinkingWindow window;
    window.resize(640, 480);
    window.show();
    return QApplication::exec();
}
