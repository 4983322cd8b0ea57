// Three requests and an agent, one after another, as straight code. Start awaited_chat, press Start, and
// Stop at any time.

#include <qtagent/awaitable.h>
#include <qtagent/mockchatmodel.h>

#include <QtWidgets>

#include <exception>

using namespace MireloQtLib::QtAgent;

// A coroutine that begins at once and ends with its owner, if not before. A coroutine library has such a
// type.
class Task
{
public:
    struct promise_type
    {
        Task get_return_object() { return Task(std::coroutine_handle<promise_type>::from_promise(*this)); }
        std::suspend_never initial_suspend() noexcept { return {}; }
        std::suspend_always final_suspend() noexcept { return {}; }
        void return_void() {}
        void unhandled_exception() { std::terminate(); }
    };

    Task() = default;
    Task(Task &&other) noexcept { swap(other); }
    Task &operator=(Task &&other) noexcept
    {
        Task taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~Task()
    {
        if (m_handle)
            m_handle.destroy();
    }

private:
    explicit Task(std::coroutine_handle<promise_type> handle)
        : m_handle(handle)
    {}
    void swap(Task &other) noexcept { std::swap(m_handle, other.m_handle); }

    std::coroutine_handle<promise_type> m_handle;
};

static ToolResult findAbnormalDevices(const QJsonObject &)
{
    ToolResult result;
    result.success = true;
    result.content = QStringLiteral("Pump-001");
    return result;
}

class Window : public QWidget
{
public:
    Window();

private:
    Task talk();
    void showLine(const QString &speaker, const QString &text);
    void setBusy(bool busy);

    MockChatModel m_model;
    ToolRegistry m_registry;
    AgentSession m_session;
    QPlainTextEdit *const m_transcript = new QPlainTextEdit(this);
    QPushButton *const m_start = new QPushButton(QStringLiteral("Start"), this);
    QPushButton *const m_stop = new QPushButton(QStringLiteral("Stop"), this);
    Task m_talk; // the last one: it ends before what it uses
};

Window::Window()
{
    m_registry.registerTool(new FunctionTool(QStringLiteral("find_abnormal_devices"),
                                             QStringLiteral("Lists the devices that need attention."),
                                             {{QStringLiteral("type"), QStringLiteral("object")}},
                                             ToolPermission::ReadOnly, &findAbnormalDevices));
    m_session.setModel(&m_model);
    m_session.setToolRegistry(&m_registry);

    m_transcript->setReadOnly(true);
    auto *layout = new QGridLayout(this);
    layout->addWidget(m_transcript, 0, 0, 1, 2);
    layout->addWidget(m_start, 1, 0);
    layout->addWidget(m_stop, 1, 1);
    connect(m_start, &QPushButton::clicked, this, [this] { m_talk = talk(); });
    connect(m_stop, &QPushButton::clicked, &m_session, &AgentSession::cancel);
    setBusy(false);
}

Task Window::talk()
{
    setBusy(true);
    m_transcript->clear();
    QVector<ChatMessage> conversation;
    for (const char *question : {"What is a valve?", "Who opens it?", "And who closes it?"}) {
        conversation.append(ChatMessage::user(QLatin1String(question)));
        ChatReply *reply = m_model.chat(conversation, {}, this);
        connect(m_stop, &QPushButton::clicked, reply, &ChatReply::cancel);
        const ChatResult result = co_await *reply;
        reply->deleteLater();
        showLine(QLatin1String(question), result.text + result.error);
        if (result.end != ChatResult::End::Finished) {
            setBusy(false);
            co_return;
        }
        conversation.append(ChatMessage::assistant(result.text));
    }
    m_session.send(QStringLiteral("Which device is abnormal?"));
    const RunOutcome outcome = co_await runOf(&m_session);
    showLine(QStringLiteral("Which device is abnormal?"), outcome.text + outcome.error);
    setBusy(false);
}

void Window::showLine(const QString &speaker, const QString &text)
{
    m_transcript->appendPlainText(speaker + QStringLiteral(" — ") + text.trimmed());
}

void Window::setBusy(bool busy)
{
    m_start->setEnabled(!busy);
    m_stop->setEnabled(busy);
}

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    Window window;
    window.resize(640, 360);
    window.show();
    return QApplication::exec();
}
