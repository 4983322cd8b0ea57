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
    const auto end = [panel, reply] {
        panel->finishAgentMessage();
        panel->setBusy(false);
        reply->deleteLater();
    };
    QObject::connect(reply, &ChatReply::deltaReceived, panel, &AgentChatPanel::appendAgentDelta);
    QObject::connect(reply, &ChatReply::failed, panel, &AgentChatPanel::appendSystemMessage);
    QObject::connect(reply, &ChatReply::finished, panel, end);
    QObject::connect(reply, &ChatReply::failed, panel, end);
    QObject::connect(reply, &ChatReply::canceled, panel, end);
    QObject::connect(panel, &AgentChatPanel::stopRequested, reply, &ChatReply::cancel);
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
