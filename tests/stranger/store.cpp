// Keeps a conversation and finds it again.

#include <qtagent/store/conversationstore.h>

#include <QCoreApplication>
#include <QTemporaryDir>

using namespace MireloQtLib::QtAgent;

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QTemporaryDir folder;
    ConversationStore store;
    QString error;
    store.open(folder.filePath("conversations.sqlite"), &error);
    Conversation conversation = store.create("Pumps");
    conversation.setMessages({ChatMessage::user("A valve")});
    if (store.save(&conversation) && store.search("VALVE").size() == 1)
        return 0;
    qCritical("%s", qPrintable(error));
    return 1;
}
