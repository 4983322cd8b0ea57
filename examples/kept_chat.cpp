// A chat that goes on at each start, and that can be searched:
//   kept_chat chats.sqlite "What is a valve?"    asks, after all that was said before
//   kept_chat chats.sqlite --find valve          prints where the words were said

#include <qtagent/mockchatmodel.h>
#include <qtagent/store/conversationstore.h>

#include <QCoreApplication>
#include <QTimer>

#include <cstdio>
#include <cstdlib>

using namespace MireloQtLib::QtAgent;

static Conversation lastConversation(ConversationStore *store)
{
    const QVector<ConversationEntry> entries = store->list();
    return entries.isEmpty() ? store->create(QStringLiteral("Chat")) : store->load(entries.first().id);
}

static void keep(ConversationStore *store, Conversation *conversation, const QVector<ChatMessage> &messages)
{
    QString error;
    conversation->setMessages(messages, QStringLiteral("mock"));
    if (!store->save(conversation, &error))
        qCritical("%s", qUtf8Printable(error));
}

static int ask(ConversationStore *store, const QString &question)
{
    Conversation conversation = lastConversation(store);
    QVector<ChatMessage> messages = conversation.chatMessages();
    messages.append(ChatMessage::user(question));

    MockChatModel model;
    ChatReply *reply = model.chat(messages, {}, &model);
    const auto keepAnswer = [&, reply] {
        keep(store, &conversation, messages + QVector<ChatMessage>{ChatMessage::assistant(reply->text())});
    };
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, reply, keepAnswer);
    timer.start(1000);
    reply->whenEnded(&timer, [&](const ChatResult &result) {
        keepAnswer();
        std::puts(qUtf8Printable(result.text + result.error));
        QCoreApplication::exit(result.end == ChatResult::End::Finished ? EXIT_SUCCESS : EXIT_FAILURE);
    });
    return QCoreApplication::exec();
}

static int find(const ConversationStore &store, const QString &words)
{
    for (const SearchHit &hit : store.search(words))
        std::printf("%s, message %d: %s\n", qUtf8Printable(hit.title), hit.messageIndex,
                    qUtf8Printable(hit.excerpt));
    return EXIT_SUCCESS;
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    ConversationStore store;
    QString error;
    if (!store.open(arguments.value(1), &error)) {
        qCritical("%s", qUtf8Printable(error));
        return EXIT_FAILURE;
    }
    if (!store.setAsidePath().isEmpty())
        qWarning("The chats could not be read. They are in %s.", qUtf8Printable(store.setAsidePath()));
    if (arguments.value(2) == QLatin1String("--find"))
        return find(store, arguments.value(3));
    return ask(&store, arguments.value(2));
}
