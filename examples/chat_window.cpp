// A chat with the offline mock model in a window: what a program adds to have one.

#include <qtagent/mockchatmodel.h>
#include <qtagent/widgets/agentchatpanel.h>

#include <QApplication>

using namespace MireloQtLib::QtAgent;

static void answer(AgentChatPanel *panel, ChatModel *model, const QString &question)
{
    panel->appendUserMessage(question);
    panel->beginAgentMessage();
    panel->setBusy(true);

    ChatReply *reply = model->chat({ChatMessage::user(question)}, {}, panel);
    QObject::connect(panel, &AgentChatPanel::stopRequested, reply, &ChatReply::cancel);
    QObject::connect(reply, &ChatReply::deltaReceived, panel, &AgentChatPanel::appendAgentDelta);
    QObject::connect(reply, &ChatReply::failed, panel, &AgentChatPanel::appendSystemMessage);
    reply->whenEnded(panel, [panel](const ChatResult &) {
        panel->finishAgentMessage();
        panel->setBusy(false);
    });
    reply->whenEnded(reply, [reply](const ChatResult &) { reply->deleteLater(); });
}

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    MockChatModel model;
    AgentChatPanel panel;
    QObject::connect(&panel, &AgentChatPanel::sendRequested, &model,
                     [&panel, &model](const QString &question) { answer(&panel, &model, question); });
    panel.resize(640, 480);
    panel.show();
    return QApplication::exec();
}
