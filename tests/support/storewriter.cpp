// Writes into a store until it is done or killed, for tests of what several programs do to one file:
//   storewriter grow PATH           saves an answer that grows, and prints its length whenever it is saved
//   storewriter add PATH NAME N     adds N conversations with the title NAME and an answer that grows, too

#include <qtagent/store/conversationstore.h>

#include <QCoreApplication>

#include <cstdio>
#include <functional>

using namespace MireloQtLib::QtAgent;

namespace {

// What is printed is read by another program at once.
void print(const QString &text)
{
    std::puts(qUtf8Printable(text));
    std::fflush(stdout);
}

class Writer
{
public:
    bool open(const QString &path)
    {
        return isDone([&] { return m_store.open(path, &m_error); });
    }
    QString error() const { return m_error; }

    bool grow()
    {
        begin("grown");
        for (int length = 1; extendAndSave(); ++length)
            print(QString::number(length));
        return false;
    }

    bool add(const QString &name, int count)
    {
        constexpr int pieces = 3;
        for (int i = 0; i < count; ++i) {
            begin(name);
            for (int piece = 0; piece < pieces; ++piece) {
                if (!extendAndSave())
                    return false;
            }
        }
        return true;
    }

private:
    // A call waits for other programs for a second, which a machine that has other things to do may need.
    bool isDone(const std::function<bool()> &call) const
    {
        constexpr int attempts = 30;
        for (int attempt = 1; attempt < attempts; ++attempt) {
            if (call() || m_error != "The database is locked by another program.")
                return m_error.isEmpty();
        }
        return call();
    }

    void begin(const QString &title)
    {
        isDone([&] {
            m_conversation = m_store.create(title, &m_error);
            return m_error.isEmpty();
        });
        m_answer.clear();
    }

    bool extendAndSave()
    {
        m_answer += "压力";
        m_conversation.setMessages({ChatMessage::user("Q"), ChatMessage::assistant(m_answer)});
        return isDone([&] { return m_store.save(&m_conversation, &m_error); });
    }

    ConversationStore m_store;
    Conversation m_conversation;
    QString m_answer;
    QString m_error;
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    Writer writer;
    const bool isGrowing = arguments.value(1) == "grow";
    if (writer.open(arguments.value(2))
        && (isGrowing ? writer.grow() : writer.add(arguments.value(3), arguments.value(4).toInt())))
        return EXIT_SUCCESS;
    qCritical("%s", qPrintable(writer.error()));
    return EXIT_FAILURE;
}
