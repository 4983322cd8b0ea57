// Shows the chat panel until it has been painted.

#include <qtagent/widgets/agentchatpanel.h>

#include <QApplication>
#include <QTextEdit>
#include <QTimer>

using namespace MireloQtLib::QtAgent;

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    AgentChatPanel panel;
    panel.appendSystemMessage("A note");
    panel.show();
    QTimer::singleShot(0, &panel, [&panel] {
        const QString transcript = panel.findChild<QTextEdit *>("agentChatHistory")->toPlainText();
        QApplication::exit(transcript.contains("A note") && !panel.grab().isNull() ? 0 : 1);
    });
    return application.exec();
}
