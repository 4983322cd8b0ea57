#include "basicchatpage.h"

#include "pagelayout.h"

#include <qtagent/chatmodel.h>
#include <qtagent/widgets/agentchatpanel.h>
#include <qtagent/widgets/modelconfigwidget.h>

#include <QGroupBox>
#include <QHBoxLayout>

#include <utility>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int configGroupWidth = 320;

QVector<ChatMessage> conversation(const QString &question)
{
    return {ChatMessage::system(QStringLiteral("你是 Qt Orvane，一个嵌入 Qt Widgets 演示程序的简洁助手。")),
            ChatMessage::user(question)};
}

} // namespace

BasicChatPage::BasicChatPage(ModelProvider modelProvider, QObject *replyParent, QWidget *parent)
    : QWidget(parent)
    , m_modelProvider(std::move(modelProvider))
    , m_replyParent(replyParent)
    , m_modelConfig(new ModelConfigWidget)
    , m_chat(new AgentChatPanel)
{
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(pageMargin, pageMargin, pageMargin, pageMargin);
    layout->setSpacing(pageMargin);
    layout->addWidget(createConfigGroup(), 0);
    layout->addWidget(m_chat, 1);

    m_chat->appendSystemMessage(
        QStringLiteral("Orvane 可以使用模拟模型离线运行。将 orvane.local.json 放到 MireloOrvane 目录，"
                       "或设置 OPENAI_* / DEEPSEEK_* 环境变量后，可测试真实模型接口。"));
    connect(m_chat, &AgentChatPanel::sendRequested, this, &BasicChatPage::send);
    connect(m_chat, &AgentChatPanel::stopRequested, this, &BasicChatPage::stop);
}

BasicChatPage::~BasicChatPage() = default;

ModelConfigWidget *BasicChatPage::modelConfig() const
{
    return m_modelConfig;
}

QWidget *BasicChatPage::createConfigGroup()
{
    auto *group = new QGroupBox(QStringLiteral("模型配置"));
    group->setMinimumWidth(configGroupWidth);
    auto *layout = new QVBoxLayout(group);
    layout->addWidget(m_modelConfig);
    layout->addStretch();
    return group;
}

void BasicChatPage::send(const QString &text)
{
    m_chat->finishAgentMessage(); // a stop or a failure leaves the last answer open
    m_chat->appendUserMessage(text);
    m_chat->beginAgentMessage();
    m_chat->setBusy(true);
    showAnswer(askModel(m_modelProvider, conversation(text), m_replyParent));
}

void BasicChatPage::showAnswer(ChatReply *reply)
{
    connect(reply, &ChatReply::deltaReceived, m_chat, &AgentChatPanel::appendAgentDelta);
    connect(reply, &ChatReply::finished, this, [this, reply] {
        m_chat->finishAgentMessage();
        m_chat->setBusy(false);
        reply->deleteLater();
    });
    connect(reply, &ChatReply::failed, this, [this, reply](const QString &error) {
        m_chat->appendSystemMessage(error);
        m_chat->setBusy(false);
        reply->deleteLater();
    });
    connect(m_chat, &AgentChatPanel::stopRequested, reply, &ChatReply::cancel);
}

void BasicChatPage::stop()
{
    m_chat->setBusy(false);
}
