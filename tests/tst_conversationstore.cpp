#include <qtagent/store/conversationstore.h>

#include <QJsonArray>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <limits>
#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

const QString noSuchConversation = QStringLiteral("There is no such conversation.");
const QString changedByAnother = QStringLiteral("The conversation was changed by another program.");
const QString notOpen = QStringLiteral("The store is not open.");

StoredMessage answerWithEverything()
{
    ChatMessage message = ChatMessage::assistant(
        "压力 is 6 bar 🙂", {makeToolCall("c1", "read_pressure", {{"device", "Pump-001"}})});
    message.name = "helper";
    message.metadata = {{"reasoning", "…"}, {"tries", 2}, {"ratio", 0.1}};
    return {message, QDateTime({2026, 1, 31}, {23, 59, 59, 7}, Qt::UTC), "model-a", 5000000000, 0};
}

QStringList idsOf(const QVector<ConversationEntry> &entries)
{
    QStringList ids;
    for (const ConversationEntry &entry : entries)
        ids.append(entry.id);
    return ids;
}

QVector<ChatMessage> questions(const QStringList &texts)
{
    QVector<ChatMessage> messages;
    for (const QString &text : texts)
        messages.append(ChatMessage::user(text));
    return messages;
}

} // namespace

class TestConversationStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void defaultPathIsInTheDataFolder();
    void newConversationIsKept();
    void everythingOfAConversationIsKept();
    void textsAreKeptExactly_data();
    void textsAreKeptExactly();
    void nullAndEmptyContentsDiffer();
    void conversationStandsInTheNextStore();
    void saveBringsTheConversationUpToDate();
    void unchangedConversationIsNotWritten();
    void messagesMayChangeGoAndCome();
    void newestChangeIsListedFirst();
    void listTellsWhatALoadWould();
    void fasterProgramWins();
    void olderRevisionInTheFileIsReplaced();
    void removedConversationIsGone();
    void removedMeanwhileIsNotSaved();
    void unknownConversationIsNoConversation();
    void metadataThatCannotBeReadBackIsRefused();
    void everyCallFailsWithoutAFile();
    void failedOpenLeavesTheStoreClosed();
    void errorsMayBeLeftOut();
    void setMessagesKeepsTheUnchangedHead();
    void setMessagesTakesOverWhatComparesEqual();
    void recordsAreComparable();
    void recordsTravelInVariants();

private:
    QString path() const { return m_folder->filePath("conversations.sqlite"); }
    Conversation saved(const QVector<StoredMessage> &messages);

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<ConversationStore> m_store;
};

void TestConversationStore::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    m_store = std::make_unique<ConversationStore>();
    QString error = "before";
    QVERIFY2(m_store->open(path(), &error), qPrintable(error));
    QVERIFY(error.isEmpty());
}

void TestConversationStore::cleanup()
{
    m_store.reset();
    m_folder.reset();
}

Conversation TestConversationStore::saved(const QVector<StoredMessage> &messages)
{
    Conversation conversation = m_store->create("Pumps");
    conversation.messages = messages;
    QString error;
    if (!m_store->save(&conversation, &error))
        qFatal("%s", qPrintable(error));
    return conversation;
}

void TestConversationStore::defaultPathIsInTheDataFolder()
{
    QCOMPARE(ConversationStore::defaultPath(),
             QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + "/conversations.sqlite");
}

void TestConversationStore::newConversationIsKept()
{
    const QDateTime before = QDateTime::currentDateTimeUtc();
    QString error = "before";
    const Conversation conversation = m_store->create("Pumps", &error);
    QVERIFY(error.isEmpty());
    QVERIFY(!conversation.id.isEmpty());
    QCOMPARE(conversation.title, "Pumps");
    QVERIFY(conversation.created >= before && conversation.created <= QDateTime::currentDateTimeUtc());
    QCOMPARE(conversation.changed, conversation.created);
    QVERIFY(conversation.messages.isEmpty());
    QCOMPARE(m_store->load(conversation.id), conversation);
    QVERIFY(m_store->create().id != conversation.id);
}

void TestConversationStore::everythingOfAConversationIsKept()
{
    Conversation conversation = m_store->create();
    conversation.title = "Pumps and 阀门";
    conversation.model = "model-b";
    conversation.messages = {{ChatMessage::system("Be brief."), {}, {}},
                             answerWithEverything(),
                             {ChatMessage::tool("c1", "read_pressure", "6"), {}, "model-a", 1, 2}};
    QString error = "before";
    QVERIFY(m_store->save(&conversation, &error));
    QVERIFY(error.isEmpty());
    const Conversation loaded = m_store->load(conversation.id, &error);
    QCOMPARE(loaded, conversation);
    QCOMPARE(loaded.messages.at(1).time.timeSpec(), Qt::UTC);
    QCOMPARE(loaded.messages.at(1).time.time().msec(), 7);
    QVERIFY(!loaded.messages.at(0).time.isValid());
    QCOMPARE(loaded.messages.at(0).promptTokens, -1);
    QCOMPARE(loaded.chatMessages(), conversation.chatMessages());
}

void TestConversationStore::textsAreKeptExactly_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("empty") << "";
    QTest::newRow("quotes") << R"(it's "quoted"; DROP TABLE messages; --)";
    QTest::newRow("Chinese and emoji") << "设备 👩‍🔧 𠮷";
    QTest::newRow("line ends") << "a\r\nb\rc\n\n";
    QTest::newRow("null characters") << QString(QChar::Null) + "a" + QChar(QChar::Null);
    QTest::newRow("lone surrogates") << QString(QChar(0xd83d)) + "a" + QChar(0xde42);
    QTest::newRow("byte order mark") << QString(QChar(QChar::ByteOrderMark)) + "a";
    QTest::newRow("swapped byte order mark") << QString(QChar(QChar::ByteOrderSwapped)) + "a";
    QTest::newRow("no characters") << QString("a") + QChar(0xffff) + QChar(0xfffe) + QChar(0xfdd0);
    QTest::newRow("a megabyte without a blank") << QString(1 << 20, QChar(0x538b));
}

void TestConversationStore::textsAreKeptExactly()
{
    QFETCH(QString, text);
    ChatMessage message{text, text, text, {{text + "k", text}}, {text}, text};
    Conversation conversation = saved({{message, {}, text}});
    conversation.title = text;
    conversation.model = text;
    QVERIFY(m_store->save(&conversation));
    const Conversation loaded = m_store->load(conversation.id);
    QCOMPARE(loaded, conversation);
    QCOMPARE(m_store->list().first().title, text);
}

void TestConversationStore::nullAndEmptyContentsDiffer()
{
    const Conversation conversation =
        saved({{ChatMessage::assistant(QString()), {}, {}}, {ChatMessage::assistant(""), {}, {}}});
    Conversation loaded = m_store->load(conversation.id);
    QVERIFY(loaded.messages.at(0).message.content.isNull());
    QVERIFY(!loaded.messages.at(1).message.content.isNull());

    loaded.messages[0].message.content = "";
    QVERIFY(m_store->save(&loaded));
    QVERIFY(!m_store->load(conversation.id).messages.at(0).message.content.isNull());
}

void TestConversationStore::conversationStandsInTheNextStore()
{
    const Conversation conversation = saved({answerWithEverything()});
    m_store.reset();
    ConversationStore next;
    QVERIFY(next.open(path()));
    QCOMPARE(next.load(conversation.id), conversation);
    QVERIFY(next.setAsidePath().isEmpty());
}

void TestConversationStore::saveBringsTheConversationUpToDate()
{
    Conversation conversation = m_store->create("Pumps");
    const Conversation created = conversation;
    conversation.messages.append(answerWithEverything());
    QVERIFY(m_store->save(&conversation));
    QCOMPARE(conversation.revision, created.revision + 1);
    QVERIFY(conversation.changed >= created.changed);
    QCOMPARE(conversation.created, created.created);
    QCOMPARE(m_store->load(conversation.id), conversation);
}

void TestConversationStore::unchangedConversationIsNotWritten()
{
    Conversation conversation = saved({answerWithEverything()});
    const Conversation before = conversation;
    ConversationStore other;
    QVERIFY(other.open(path()));
    Conversation same = other.load(conversation.id);
    QVERIFY(other.save(&same));
    QCOMPARE(same, before);
    QVERIFY(m_store->save(&conversation));
    QCOMPARE(conversation, before);
}

void TestConversationStore::messagesMayChangeGoAndCome()
{
    Conversation conversation = saved({});
    for (const QStringList &texts : {QStringList{"a", "b", "c"}, QStringList{"a", "x", "c", "d"},
                                     QStringList{"d"}, QStringList{}, QStringList{"e", "f"}}) {
        conversation.setMessages(questions(texts));
        QVERIFY(m_store->save(&conversation));
        QCOMPARE(m_store->load(conversation.id), conversation);
        QCOMPARE(m_store->list().first().messageCount, texts.size());
    }
}

void TestConversationStore::newestChangeIsListedFirst()
{
    Conversation first = m_store->create("first");
    Conversation second = m_store->create("second");
    Conversation third = m_store->create("third");
    QCOMPARE(idsOf(m_store->list()), QStringList({third.id, second.id, first.id}));
    first.title = "changed";
    QVERIFY(m_store->save(&first));
    QCOMPARE(idsOf(m_store->list()), QStringList({first.id, third.id, second.id}));
    QVERIFY(m_store->save(&second)); // nothing has changed in it
    QCOMPARE(idsOf(m_store->list()), QStringList({first.id, third.id, second.id}));
}

void TestConversationStore::listTellsWhatALoadWould()
{
    QVERIFY(m_store->list().isEmpty());
    Conversation conversation = saved({answerWithEverything(), answerWithEverything()});
    conversation.model = "model-b";
    QVERIFY(m_store->save(&conversation));
    QString error = "before";
    const ConversationEntry entry{conversation.id,      "Pumps", "model-b", conversation.created,
                                  conversation.changed, 2};
    QCOMPARE(m_store->list(&error), QVector<ConversationEntry>{entry});
    QVERIFY(error.isEmpty());
}

void TestConversationStore::fasterProgramWins()
{
    Conversation ours = saved({answerWithEverything()});
    ConversationStore other;
    QVERIFY(other.open(path()));
    Conversation theirs = other.load(ours.id);
    theirs.title = "theirs";
    QVERIFY(other.save(&theirs));

    ours.title = "ours";
    const Conversation before = ours;
    QString error;
    QVERIFY(!m_store->save(&ours, &error));
    QCOMPARE(error, changedByAnother);
    QCOMPARE(ours, before);
    QCOMPARE(m_store->load(ours.id), theirs);
}

void TestConversationStore::olderRevisionInTheFileIsReplaced()
{
    Conversation conversation = saved({answerWithEverything()});
    conversation.revision += 10;
    conversation.title = "from a backup";
    QVERIFY(m_store->save(&conversation));
    QCOMPARE(m_store->load(conversation.id), conversation);
}

void TestConversationStore::removedConversationIsGone()
{
    const Conversation kept = saved({answerWithEverything()});
    const Conversation removed = saved({answerWithEverything()});
    QString error = "before";
    QVERIFY(m_store->remove(removed.id, &error));
    QVERIFY(error.isEmpty());
    QVERIFY(m_store->load(removed.id, &error).id.isEmpty());
    QCOMPARE(error, noSuchConversation);
    QCOMPARE(idsOf(m_store->list()), QStringList{kept.id});
    QCOMPARE(m_store->load(kept.id), kept);
    QCOMPARE(m_store->search("pressure 压力").size(), 0);
    QCOMPARE(m_store->search("压力").size(), 1);
}

void TestConversationStore::removedMeanwhileIsNotSaved()
{
    Conversation conversation = saved({answerWithEverything()});
    ConversationStore other;
    QVERIFY(other.open(path()));
    QVERIFY(other.remove(conversation.id));
    const Conversation before = conversation;
    QString error;
    QVERIFY(!m_store->save(&conversation, &error));
    QCOMPARE(error, noSuchConversation);
    QCOMPARE(conversation, before);
    QVERIFY(m_store->list().isEmpty());
}

void TestConversationStore::unknownConversationIsNoConversation()
{
    Conversation never;
    QString error;
    QVERIFY(!m_store->save(&never, &error));
    QCOMPARE(error, noSuchConversation);
    error.clear();
    QVERIFY(!m_store->save(nullptr, &error));
    QCOMPARE(error, noSuchConversation);
    error.clear();
    QVERIFY(!m_store->remove("x", &error));
    QCOMPARE(error, noSuchConversation);
    error.clear();
    QCOMPARE(m_store->load("x", &error), Conversation());
    QCOMPARE(error, noSuchConversation);
    error.clear();
    QVERIFY(m_store->toJson("x", &error).isNull());
    QCOMPARE(error, noSuchConversation);
    error.clear();
    QVERIFY(m_store->toMarkdown("x", &error).isNull());
    QCOMPARE(error, noSuchConversation);
}

void TestConversationStore::metadataThatCannotBeReadBackIsRefused()
{
    QJsonObject deep;
    for (int level = 0; level < 1100; ++level)
        deep = {{"level", deep}};
    for (const QJsonObject &metadata :
         {QJsonObject{{"ratio", std::numeric_limits<double>::quiet_NaN()}}, deep}) {
        Conversation conversation = saved({answerWithEverything()});
        const Conversation before = conversation;
        conversation.messages.append(answerWithEverything());
        conversation.messages.last().message.metadata = metadata;
        QString error;
        QVERIFY(!m_store->save(&conversation, &error));
        QCOMPARE(error, "The metadata or the tool calls of message 1 cannot be kept as JSON.");
        QCOMPARE(m_store->load(before.id), before);
    }
}

void TestConversationStore::everyCallFailsWithoutAFile()
{
    Conversation conversation = m_store->create("Pumps");
    m_store->close();
    QVERIFY(!m_store->isOpen());
    m_store->close();

    QStringList errors;
    QString error;
    const auto note = [&errors, &error] {
        errors.append(error);
        error.clear();
    };
    QCOMPARE(m_store->create("Pumps", &error), Conversation());
    note();
    QVERIFY(!m_store->save(&conversation, &error));
    note();
    QCOMPARE(m_store->load(conversation.id, &error), Conversation());
    note();
    QVERIFY(m_store->list(&error).isEmpty());
    note();
    QVERIFY(m_store->search("Pumps", 100, &error).isEmpty());
    note();
    QVERIFY(!m_store->remove(conversation.id, &error));
    note();
    QVERIFY(m_store->toJson(conversation.id, &error).isNull());
    note();
    QVERIFY(m_store->toMarkdown(conversation.id, &error).isNull());
    note();
    QCOMPARE(m_store->importJson("[", &error), Conversation());
    note();
    QCOMPARE(errors, QStringList(QVector<QString>(9, notOpen).toList()));
}

void TestConversationStore::failedOpenLeavesTheStoreClosed()
{
    QString error;
    QVERIFY(!m_store->open(m_folder->path(), &error));
    QCOMPARE(error, m_folder->path() + " is not a file.");
    QVERIFY(!m_store->isOpen());
    QVERIFY(m_store->open(path()));
    QVERIFY(m_store->open(path())); // once more
    QVERIFY(m_store->isOpen());
}

void TestConversationStore::errorsMayBeLeftOut()
{
    QVERIFY(m_store->load("x").id.isEmpty());
    QVERIFY(!m_store->remove("x"));
    QVERIFY(m_store->importJson("x").id.isEmpty());
    QVERIFY(!m_store->open(m_folder->path()));
    QVERIFY(m_store->search("x").isEmpty());
}

void TestConversationStore::setMessagesKeepsTheUnchangedHead()
{
    const StoredMessage question{ChatMessage::user("Q"), QDateTime({2026, 1, 1}, {0, 0}, Qt::UTC), "old"};
    const StoredMessage answer{ChatMessage::assistant("A"), question.time, "old", 10, 20};
    Conversation conversation;
    conversation.messages = {question, answer, question};
    const QDateTime before = QDateTime::currentDateTimeUtc();
    conversation.setMessages({question.message, answer.message, ChatMessage::user("R"), question.message},
                             "new");
    QCOMPARE(conversation.messages.size(), 4);
    QCOMPARE(conversation.messages.at(0), question);
    QCOMPARE(conversation.messages.at(1), answer);
    for (int i = 2; i < 4; ++i) {
        const StoredMessage &added = conversation.messages.at(i);
        QVERIFY(added.time >= before && added.time <= QDateTime::currentDateTimeUtc());
        QCOMPARE(added.time.timeSpec(), Qt::UTC);
        QCOMPARE(added.model, "new");
        QCOMPARE(added.promptTokens, -1);
    }
    conversation.setMessages({answer.message, answer.message});
    QCOMPARE(conversation.messages.at(1).model,
             ""); // what follows a changed message is not known, equal or not
    conversation.setMessages({});
    QVERIFY(conversation.messages.isEmpty());
}

void TestConversationStore::setMessagesTakesOverWhatComparesEqual()
{
    Conversation conversation;
    conversation.messages = {{ChatMessage::assistant(QString()), {}, "old"}};
    conversation.setMessages({ChatMessage::assistant("")}, "new");
    QVERIFY(!conversation.messages.first().message.content.isNull());
    QCOMPARE(conversation.messages.first().model, "old");
}

void TestConversationStore::recordsAreComparable()
{
    const StoredMessage message = answerWithEverything();
    StoredMessage other = message;
    QVERIFY(message == other);
    other.completionTokens = 1;
    QVERIFY(message != other);
    Conversation left;
    left.messages = {message};
    Conversation right = left;
    QVERIFY(left == right);
    right.messages = {other};
    QVERIFY(left != right);
    QVERIFY(ConversationEntry() == ConversationEntry());
    QVERIFY(ConversationEntry() != (ConversationEntry{{}, {}, {}, {}, {}, 1}));
    QVERIFY(SearchHit() == SearchHit());
    QVERIFY(SearchHit() != (SearchHit{{}, {}, 0, {}}));
}

void TestConversationStore::recordsTravelInVariants()
{
    const StoredMessage message = answerWithEverything();
    QCOMPARE(QVariant::fromValue(message).value<StoredMessage>(), message);
    Conversation conversation;
    conversation.messages = {message};
    QCOMPARE(QVariant::fromValue(conversation).value<Conversation>(), conversation);
    QCOMPARE(QVariant::fromValue(ConversationEntry{"id", {}, {}, {}, {}}).value<ConversationEntry>().id,
             "id");
    QCOMPARE(QVariant::fromValue(SearchHit{"id", {}, 0, {}}).value<SearchHit>().conversationId, "id");
}

QTEST_GUILESS_MAIN(TestConversationStore)
#include "tst_conversationstore.moc"
