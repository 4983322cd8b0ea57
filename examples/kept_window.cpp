// A chat with an agent whose answers are rendered while they arrive, and that goes on at each start. Start
//   kept_window chats.sqlite
// and send "Which device needs a look?"

#include <qtagent/agentsession.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/store/conversationstore.h>
#include <qtagent/widgets/markdowntranscript.h>

#include <QtWidgets>

using namespace MireloQtLib::QtAgent;

static ToolResult findDevices(const QJsonObject & /*arguments*/)
{
    ToolResult result;
    result.success = true;
    result.content = QStringLiteral("**Pump-002** ⚠\n\t- 先看过滤器，再看泵\n\n| 测点 | 实测 | 上限 |\n"
                                    "|:---|---:|---:|\n| 压差 | 0.8 | 0.5 |\n\n```python\n"
                                    "if pressure_drop > 0.5:\n\tswitch_to(\"Pump-003\")\n```\n");
    return result;
}

class KeptWindow : public QWidget
{
public:
    KeptWindow(ConversationStore *store, const Conversation &conversation)
        : m_store(store)
        , m_conversation(conversation)
    {
        auto *layout = new QVBoxLayout(this);
        layout->addWidget(m_transcript);
        layout->addWidget(m_input);
        m_input->setFocus();
        m_registry.registerTool(new FunctionTool(QStringLiteral("find_abnormal_devices"),
                                                 QStringLiteral("Lists the devices that need a look."), {},
                                                 ToolPermission::ReadOnly, &findDevices, &m_registry));
        m_session.setModel(&m_model);
        m_session.setToolRegistry(&m_registry);
        m_session.setConversation(conversation.chatMessages());
        for (const ChatMessage &message : m_session.conversation())
            showMessage(message);
        connect(m_input, &QLineEdit::returnPressed, this, &KeptWindow::ask);
        connect(&m_session, &AgentSession::assistantDelta, this, &KeptWindow::addDelta);
        connect(&m_session, &AgentSession::conversationChanged, this, &KeptWindow::takeConversation);
        connect(&m_session, &AgentSession::runningChanged, m_input, &QLineEdit::setReadOnly);
        connect(&m_session, &AgentSession::runEnded, m_transcript, &MarkdownTranscript::finishMessage);
        connect(qApp, &QCoreApplication::aboutToQuit, &m_session, &AgentSession::cancel);
        connect(&m_timer, &QTimer::timeout, this, &KeptWindow::keep);
        m_timer.start(1000);
    }

private:
    void showMessage(const ChatMessage &message)
    {
        if (message.role == QLatin1String("user"))
            m_transcript->beginMessage(QStringLiteral("用户"), QColor(0x1d4ed8),
                                       MarkdownTranscript::Format::PlainText);
        else if (message.role == QLatin1String("assistant") && !message.content.isEmpty())
            m_transcript->beginMessage(QStringLiteral("智能体"), QColor(0x047857));
        else
            return;
        m_transcript->appendDelta(message.content);
    }

    void ask()
    {
        const QString question = m_input->text();
        if (question.isEmpty() || m_session.isRunning())
            return;
        m_input->clear();
        showMessage(ChatMessage::user(question));
        m_session.send(question);
    }

    void addDelta(const QString &delta)
    {
        if (m_growing.isEmpty())
            showMessage(ChatMessage::assistant(delta));
        else
            m_transcript->appendDelta(delta);
        m_growing += delta;
    }

    void takeConversation()
    {
        m_growing.clear();
        keep();
    }

    // An answer that still grows is not in the session's conversation.
    void keep()
    {
        QVector<ChatMessage> messages = m_session.conversation();
        if (!m_growing.isEmpty())
            messages.append(ChatMessage::assistant(m_growing));
        m_conversation.setMessages(messages, QStringLiteral("mock"));
        QString error;
        if (!m_store->save(&m_conversation, &error))
            qCritical("%s", qUtf8Printable(error));
    }

    ConversationStore *const m_store;
    Conversation m_conversation;
    MockChatModel m_model;
    ToolRegistry m_registry;
    AgentSession m_session;
    QString m_growing;
    QTimer m_timer;
    MarkdownTranscript *const m_transcript = new MarkdownTranscript(this);
    QLineEdit *const m_input = new QLineEdit(this);
};

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    ConversationStore store;
    QString error;
    if (!store.open(QCoreApplication::arguments().value(1), &error)) {
        qCritical("%s", qUtf8Printable(error));
        return EXIT_FAILURE;
    }
    const QVector<ConversationEntry> entries = store.list();
    KeptWindow window(&store, entries.isEmpty() ? store.create(QStringLiteral("Chat"))
                                                : store.load(entries.first().id));
    window.resize(560, 600);
    window.show();
    return QApplication::exec();
}
