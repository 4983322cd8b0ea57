// Whatever two stores do with one file, both have what a plain list of conversations would have.

#include <qtagent/store/conversationstore.h>

#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int runCount = 10;
constexpr int stepCount = 80;

const QStringList &words()
{
    static const QStringList list =
        QStringLiteral(
            "pump Pumps valve 设备 设备的 压力 力设 a 🙂 STRASSE straße \n at the edge he")
            .split(' ');
    return list;
}

// Two stores and what they should have.
class Run
{
public:
    explicit Run(quint32 seed)
        : m_random(seed)
    {}

    bool open() { return m_stores[0].open(path()) && m_stores[1].open(path()); }

    // Does something, and returns what is wrong with the result, or nothing.
    QString step()
    {
        const QVector<QString (Run::*)()> steps{&Run::create, &Run::save,   &Run::save,   &Run::save,
                                                &Run::remove, &Run::import, &Run::search, &Run::saveOld};
        return (this->*steps.at(below(int(steps.size()))))();
    }

    // The same as both stores list and load.
    QString compare()
    {
        for (const ConversationStore &store : m_stores) {
            QStringList ids;
            for (const ConversationEntry &entry : store.list())
                ids.append(entry.id);
            QStringList expected;
            for (const Conversation &conversation : m_model) {
                expected.append(conversation.id);
                if (!(store.load(conversation.id) == conversation))
                    return "another conversation was loaded";
            }
            if (ids != expected)
                return "listed: " + ids.join(' ') + "\nexpected: " + expected.join(' ');
        }
        return {};
    }

private:
    QString path() const { return m_folder.filePath("conversations.sqlite"); }
    int below(int bound) { return int(m_random.bounded(bound)); }
    ConversationStore &store() { return m_stores[below(2)]; }

    QString text()
    {
        QStringList taken;
        for (int count = below(6); count >= 0; --count)
            taken.append(words().at(below(int(words().size()))));
        return taken.join(below(3) == 0 ? QString() : " ");
    }

    // The newest change comes first, and of two at the same time the one that was saved last.
    void keep(const Conversation &conversation)
    {
        const auto place =
            std::find_if(m_model.cbegin(), m_model.cend(), [&conversation](const Conversation &other) {
                return other.changed <= conversation.changed;
            });
        m_model.insert(int(place - m_model.cbegin()), conversation);
    }
    int anyIndex() { return below(int(m_model.size())); }

    QString create()
    {
        const Conversation conversation = store().create(text());
        keep(conversation);
        return conversation.id.isEmpty() ? "create" : QString();
    }

    void change(Conversation *conversation)
    {
        QVector<ChatMessage> messages = conversation->chatMessages();
        if (below(4) == 0)
            conversation->title = text();
        else if (below(4) == 0 && !messages.isEmpty())
            messages.removeAt(below(int(messages.size())));
        else if (below(3) == 0 && !messages.isEmpty())
            messages[below(int(messages.size()))].content += text();
        else if (below(6) == 0)
            messages.append(ChatMessage::system(text()));
        else
            messages.append(below(2) ? ChatMessage::user(text()) : ChatMessage::assistant(text()));
        conversation->setMessages(messages);
    }

    QString save()
    {
        if (m_model.isEmpty())
            return {};
        const int index = anyIndex();
        Conversation conversation = m_model.at(index);
        if (below(5) > 0)
            change(&conversation);
        const qint64 revision = conversation.revision;
        m_old = m_model.at(index);
        if (!store().save(&conversation))
            return "save";
        if (conversation.revision == revision)
            return conversation == m_model.at(index) ? QString() : "a change was not saved";
        m_model.removeAt(index);
        keep(conversation);
        return {};
    }

    QString remove()
    {
        if (m_model.isEmpty() || below(3) > 0)
            return {};
        m_old = m_model.takeAt(anyIndex());
        return store().remove(m_old.id) ? QString() : "remove";
    }

    QString import()
    {
        if (m_model.isEmpty())
            return {};
        const Conversation original = m_model.at(anyIndex());
        const Conversation imported = store().importJson(store().toJson(original.id));
        keep(imported);
        return imported.id != original.id && imported.messages == original.messages ? QString() : "import";
    }

    // An old copy is refused, unless it still is the newest one.
    QString saveOld()
    {
        const auto current =
            std::find_if(m_model.cbegin(), m_model.cend(),
                         [this](const Conversation &conversation) { return conversation.id == m_old.id; });
        if (m_old.id.isEmpty() || (current != m_model.cend() && current->revision == m_old.revision))
            return {};
        Conversation copy = m_old;
        copy.title += "old";
        QString error;
        const QString expected = current == m_model.cend()
                                   ? QString("There is no such conversation.")
                                   : QString("The conversation was changed by another program.");
        return !store().save(&copy, &error) && error == expected ? QString() : "an old copy: " + error;
    }

    static bool hasAll(const QString &text, const QStringList &searched)
    {
        const auto folded = [](const QString &one) {
            return one.toCaseFolded().replace(QString("ß"), QString("ss"));
        };
        return std::all_of(searched.cbegin(), searched.cend(),
                           [&](const QString &word) { return folded(text).contains(folded(word)); });
    }

    QString search()
    {
        const QString searched = text();
        const QStringList all = searched.simplified().split(' ', Qt::SkipEmptyParts);
        QStringList expected;
        for (const Conversation &conversation : std::as_const(m_model)) {
            if (!all.isEmpty() && hasAll(conversation.title, all))
                expected.append(conversation.id + " -1");
            for (int i = 0; i < conversation.messages.size(); ++i) {
                const ChatMessage &message = conversation.messages.at(i).message;
                if (!all.isEmpty() && message.role != "system" && hasAll(message.content, all))
                    expected.append(conversation.id + ' ' + QString::number(i));
            }
        }
        const int limit = 1 + below(20);
        QStringList found;
        for (const SearchHit &hit : store().search(searched, limit))
            found.append(hit.conversationId + ' ' + QString::number(hit.messageIndex));
        return found == expected.mid(0, limit) ? QString() : "searched: " + searched;
    }

    QTemporaryDir m_folder;
    ConversationStore m_stores[2];
    QRandomGenerator m_random;
    QVector<Conversation> m_model;
    Conversation m_old;
};

} // namespace

class TestConversationStoreRandom : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void storesHaveWhatAListWouldHave_data();
    void storesHaveWhatAListWouldHave();
};

void TestConversationStoreRandom::storesHaveWhatAListWouldHave_data()
{
    QTest::addColumn<quint32>("seed");
    for (quint32 seed = 0; seed < runCount; ++seed)
        QTest::addRow("seed %u", seed) << seed;
}

void TestConversationStoreRandom::storesHaveWhatAListWouldHave()
{
    QFETCH(quint32, seed);
    Run run(seed);
    QVERIFY(run.open());
    for (int step = 0; step < stepCount; ++step) {
        QCOMPARE(run.step(), QString());
        QCOMPARE(run.compare(), QString());
    }
}

QTEST_GUILESS_MAIN(TestConversationStoreRandom)
#include "tst_conversationstore_random.moc"
