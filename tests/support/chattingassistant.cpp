// The window of the assistant, with an answer that arrives until the program is killed:
//   chattingassistant STORE SETTINGS     asks one question, and prints how long its answer is in the window
//
// A piece arrives every few milliseconds. Its length is printed before the store may have it.

#include <assistant/assistantsettings.h>
#include <assistant/assistantwindow.h>
#include <qtagent/chatmodel.h>
#include <qtagent/store/conversationstore.h>

#include <QAbstractButton>
#include <QApplication>
#include <QPlainTextEdit>
#include <QTimer>

#include <cstdio>

using namespace MireloQtLib::QtAgent;

namespace {

// Never ends.
class EndlessModel : public ChatModel
{
public:
    ChatReply *chat(const QVector<ChatMessage> & /*messages*/, const QVector<ToolDefinition> & /*tools*/,
                    QObject *parent) override
    {
        constexpr int pieceMs = 5;
        auto *reply = new ChatReply(parent);
        auto *timer = new QTimer(reply);
        QObject::connect(timer, &QTimer::timeout, reply, [this, reply] {
            reply->appendDelta("压力");
            std::printf("%d\n", ++m_pieces);
            std::fflush(stdout);
        });
        timer->start(pieceMs);
        return reply;
    }

private:
    int m_pieces = 0;
};

} // namespace

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    ConversationStore store;
    QString error;
    if (!store.open(arguments.value(1), &error))
        qFatal("%s", qPrintable(error));
    AssistantSettings settings(arguments.value(2));
    EndlessModel model;
    AssistantWindow window(&store, &settings);
    window.setModel(&model, "endless");
    window.show();
    window.findChild<QAbstractButton *>("newConversation")->click();
    window.findChild<QPlainTextEdit *>("chatInput")->setPlainText("How high is it?");
    window.findChild<QAbstractButton *>("sendButton")->click();
    return QApplication::exec();
}
