#include "agentchatpanel.h"

#include <QBoxLayout>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTextBrowser>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int inputHeight = 82;

QString escaped(const QString &text)
{
    return text.toHtmlEscaped().replace(QLatin1Char('\n'), QLatin1String("<br>"));
}

QString messageBlock(const QString &color, const QString &label, const QString &text)
{
    return QStringLiteral("<p style='margin:10px 0 4px 0;color:%1;font-weight:600;'>%2</p>"
                          "<div style='white-space:pre-wrap;'>%3</div>")
        .arg(color, escaped(label), escaped(text));
}

} // namespace

AgentChatPanel::AgentChatPanel(QWidget *parent)
    : QWidget(parent)
    , m_history(new QTextBrowser(this))
    , m_input(new QPlainTextEdit(this))
    , m_sendButton(new QPushButton(QStringLiteral("发送"), this))
    , m_stopButton(new QPushButton(QStringLiteral("停止"), this))
    , m_clearButton(new QPushButton(QStringLiteral("清空"), this))
{
    m_history->setObjectName(QStringLiteral("agentChatHistory"));
    m_history->setOpenExternalLinks(true);
    m_input->setObjectName(QStringLiteral("agentChatInput"));
    m_input->setPlaceholderText(QStringLiteral("请输入 Orvane 问题..."));
    m_input->setFixedHeight(inputHeight);
    m_sendButton->setObjectName(QStringLiteral("agentChatSend"));
    m_stopButton->setObjectName(QStringLiteral("agentChatStop"));
    m_stopButton->setEnabled(false);
    m_clearButton->setObjectName(QStringLiteral("agentChatClear"));

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_clearButton);
    buttons->addStretch();
    buttons->addWidget(m_stopButton);
    buttons->addWidget(m_sendButton);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    layout->addWidget(m_history, 1);
    layout->addWidget(m_input);
    layout->addLayout(buttons);

    connect(m_sendButton, &QPushButton::clicked, this, &AgentChatPanel::send);
    connect(m_stopButton, &QPushButton::clicked, this, &AgentChatPanel::stopRequested);
    connect(m_clearButton, &QPushButton::clicked, this, &AgentChatPanel::clear);
}

AgentChatPanel::~AgentChatPanel() = default;

void AgentChatPanel::appendUserMessage(const QString &text)
{
    m_history->append(messageBlock(QStringLiteral("#1d4ed8"), QStringLiteral("用户"), text));
}

void AgentChatPanel::appendSystemMessage(const QString &text)
{
    m_history->append(messageBlock(QStringLiteral("#64748b"), QStringLiteral("系统"), text));
}

void AgentChatPanel::beginAgentMessage()
{
    if (m_agentMessageOpen)
        return;
    m_history->append(
        QStringLiteral("<p style='margin:10px 0 4px 0;color:#059669;font-weight:600;'>智能体</p>"
                       "<div style='white-space:pre-wrap;'>"));
    m_agentMessageOpen = true;
}

void AgentChatPanel::appendAgentDelta(const QString &delta)
{
    beginAgentMessage();
    m_history->moveCursor(QTextCursor::End);
    m_history->insertPlainText(delta);
    m_history->moveCursor(QTextCursor::End);
}

void AgentChatPanel::finishAgentMessage()
{
    m_agentMessageOpen = false;
}

void AgentChatPanel::setBusy(bool busy)
{
    m_sendButton->setEnabled(!busy);
    m_stopButton->setEnabled(busy);
}

void AgentChatPanel::send()
{
    const QString text = m_input->toPlainText().trimmed();
    if (text.isEmpty())
        return;
    m_input->clear();
    Q_EMIT sendRequested(text);
}

void AgentChatPanel::clear()
{
    m_history->clear();
    Q_EMIT clearRequested();
}

} // namespace QtAgent
} // namespace MireloQtLib
