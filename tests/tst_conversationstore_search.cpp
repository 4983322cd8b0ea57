// What a search finds, in which order, and what an excerpt shows.

#include "support/sqlitefile.h"

#include <qtagent/store/conversationstore.h>

#include <QTemporaryDir>
#include <QtTest>

#include <limits>
#include <memory>

using namespace MireloQtLib::QtAgent;

class TestConversationStoreSearch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void wordsAreFound_data();
    void wordsAreFound();
    void wordsAreNotFound_data();
    void wordsAreNotFound();
    void onlyTitlesAndWhatWasSaidIsSearched();
    void hitTellsItsPlace();
    void newestChangeComesFirst();
    void limitIsKept();
    void changedTextsAreFoundAsTheyAre();
    void frequentBeginningsHideNothing();
    void frequentPairsHideNothing();
    void frequentEndsHideNothing();
    void longQueriesAreSearched();
    void whatTheIndexAloneHasIsNoHit();
    void excerptIsOneLine();
    void excerptShowsTheFirstWord_data();
    void excerptShowsTheFirstWord();
    void excerptCutsNoCharacterInHalf();

private:
    Conversation keep(const QVector<ChatMessage> &messages, const QString &title = {});
    QStringList found(const QString &text, int limit = 100);

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<ConversationStore> m_store;
};

void TestConversationStoreSearch::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    m_store = std::make_unique<ConversationStore>();
    QVERIFY(m_store->open(m_folder->filePath("conversations.sqlite")));
}

void TestConversationStoreSearch::cleanup()
{
    m_store.reset();
    m_folder.reset();
}

Conversation TestConversationStoreSearch::keep(const QVector<ChatMessage> &messages, const QString &title)
{
    Conversation conversation = m_store->create(title);
    conversation.setMessages(messages);
    if (!m_store->save(&conversation))
        qFatal("cannot save");
    return conversation;
}

// The hits as "title index".
QStringList TestConversationStoreSearch::found(const QString &text, int limit)
{
    QString error = "before";
    QStringList places;
    for (const SearchHit &hit : m_store->search(text, limit, &error))
        places.append(QStringLiteral("%1 %2").arg(hit.title, QString::number(hit.messageIndex)));
    return error.isEmpty() ? places : QStringList{error};
}

void TestConversationStoreSearch::wordsAreFound_data()
{
    QTest::addColumn<QString>("content");
    QTest::addColumn<QString>("text");
    QTest::newRow("two Chinese characters") << "请检查设备的压力"
                                            << "设备";
    QTest::newRow("three Chinese characters") << "请检查设备的压力"
                                              << "备的压";
    QTest::newRow("one Chinese character") << "请检查设备"
                                           << "检";
    QTest::newRow("one character at the end") << "请检查设备"
                                              << "备";
    QTest::newRow("rare Chinese characters") << "a 𠮷野家"
                                             << "𠮷野";
    QTest::newRow("emoji") << "done 👍🏽!"
                           << "👍🏽";
    QTest::newRow("one letter") << "valve"
                                << "v";
    QTest::newRow("a text of one letter") << "v"
                                          << "v";
    QTest::newRow("part of a word") << "The thermometer"
                                    << "momet";
    QTest::newRow("several words in any order") << "The pump, the valve"
                                                << "valve pump";
    QTest::newRow("several parts of one word") << "thermometer"
                                               << "meter therm";
    QTest::newRow("blanks of all kinds") << "pump valve"
                                         << " \t\n valve\u3000pump\u00a0 ";
    QTest::newRow("case of Latin letters") << "PumpEN ÄÖÜ"
                                           << "pUMPEn äÖü";
    QTest::newRow("sharp s") << "Straße"
                             << "STRASSE";
    QTest::newRow("case of Greek letters") << "ΟΔΥΣΣΕΥΣ"
                                           << "οδυσσευς";
    QTest::newRow("case of Cyrillic letters") << "НАСОС"
                                              << "насос";
    QTest::newRow("case of Armenian letters") << "ՊՈՄՊ"
                                              << "պոմպ";
    QTest::newRow("case beyond the first plane") << "𐐇𐐔𐐇"
                                                 << "𐐯𐐼𐐯";
    QTest::newRow("full-width letters") << "ＰＵＭＰ"
                                        << "ｐｕｍｐ";
    QTest::newRow("quotes") << R"(say "stop" or 'go')"
                            << R"("stop" 'go')";
    QTest::newRow("operators are text") << "this AND that NOT near(a*, b) OR -x ^y c:d"
                                        << "AND NOT near(a*, OR -x ^y c:d";
    QTest::newRow("wild cards are text") << "100% a_b ?"
                                         << "0% a_b ?";
    QTest::newRow("a statement") << "'); DROP TABLE messages; --"
                                 << "'); DROP --";
    QTest::newRow("null character") << QString("a") + QChar(QChar::Null) + "b"
                                    << QString(QChar(QChar::Null)) + "b";
    QTest::newRow("lone surrogate") << QString("a") + QChar(0xd83d) + "b" << QString(QChar(0xd83d)) + "b";
    QTest::newRow("half of an emoji") << "🙂" << QString(QChar(0xd83d));
    QTest::newRow("no characters") << QString(QChar(0xffff)) + QChar(0xfffe) << QString(QChar(0xfffe));
    QTest::newRow("over a line end") << "pump\nvalve"
                                     << "pump valve";
    QTest::newRow("the same word twice") << "pump"
                                         << "pump PUMP pump";
    QTest::newRow("the whole text") << "请检查设备的压力"
                                    << "请检查设备的压力";
}

void TestConversationStoreSearch::wordsAreFound()
{
    QFETCH(QString, content);
    QFETCH(QString, text);
    keep({ChatMessage::user("other"), ChatMessage::assistant(content)}, "t");
    QCOMPARE(found(text), QStringList{"t 1"});
}

void TestConversationStoreSearch::wordsAreNotFound_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("nothing") << "";
    QTest::newRow("blanks") << " \n\u3000";
    QTest::newRow("absent word") << "compressor";
    QTest::newRow("one word is absent") << "pump compressor";
    QTest::newRow("words in different messages") << "pump valve";
    QTest::newRow("word in the title and one in a message") << "title pump";
    QTest::newRow("characters that are not side by side") << "设压";
    QTest::newRow("pairs that are not side by side") << "设备压力";
    QTest::newRow("a word over a blank") << "thepump";
    QTest::newRow("pairs that meet at a blank") << "epum";
    QTest::newRow("wild card") << "pum*";
    QTest::newRow("operator") << "pump OR compressor";
    QTest::newRow("column") << "tokens:pump";
}

void TestConversationStoreSearch::wordsAreNotFound()
{
    QFETCH(QString, text);
    keep({ChatMessage::user("the pump 设备的压力"), ChatMessage::assistant("e valve epu ump")}, "title");
    QCOMPARE(found(text), QStringList());
}

void TestConversationStoreSearch::onlyTitlesAndWhatWasSaidIsSearched()
{
    ChatMessage question = ChatMessage::user("pump");
    question.name = "sensor";
    question.metadata = {{"note", "sensor"}};
    Conversation conversation = keep({ChatMessage::system("sensor"),
                                      question,
                                      ChatMessage::tool("c", "sensor", "sensor"),
                                      ChatMessage::assistant({}, {makeToolCall("c", "sensor", {})}),
                                      {"developer", "sensor", {}, {}, {}, {}},
                                      ChatMessage::assistant("pump")},
                                     "pump");
    conversation.model = "sensor";
    QVERIFY(m_store->save(&conversation));
    QCOMPARE(found("sensor"), QStringList());
    QCOMPARE(found("pump"), QStringList({"pump -1", "pump 1", "pump 5"}));
}

void TestConversationStoreSearch::hitTellsItsPlace()
{
    const Conversation conversation = keep({ChatMessage::user("a pump")}, "Pumps");
    const SearchHit title{conversation.id, "Pumps", -1, "Pumps"};
    const SearchHit message{conversation.id, "Pumps", 0, "a pump"};
    QCOMPARE(m_store->search("pump"), QVector<SearchHit>({title, message}));
}

void TestConversationStoreSearch::newestChangeComesFirst()
{
    Conversation first = keep({ChatMessage::user("pump"), ChatMessage::user("pump")}, "first");
    keep({ChatMessage::user("pump")}, "second");
    QCOMPARE(found("pump"), QStringList({"second 0", "first 0", "first 1"}));
    first.messages.removeLast();
    QVERIFY(m_store->save(&first));
    QCOMPARE(found("pump"), QStringList({"first 0", "second 0"}));
}

void TestConversationStoreSearch::limitIsKept()
{
    keep(QVector<ChatMessage>(250, ChatMessage::user("pump")), "t");
    QCOMPARE(found("pump").size(), 100);
    QCOMPARE(found("pump", 3), QStringList({"t 0", "t 1", "t 2"}));
    QCOMPARE(found("pump", 1000).size(), 250);
    QCOMPARE(found("pump", std::numeric_limits<int>::max()).size(), 250);
    QCOMPARE(found("pump", 0), QStringList());
    QCOMPARE(found("pump", -1), QStringList());
}

void TestConversationStoreSearch::changedTextsAreFoundAsTheyAre()
{
    Conversation conversation = keep({ChatMessage::user("pump"), ChatMessage::assistant("val")}, "alpha");
    conversation.setMessages({ChatMessage::user("motor"), ChatMessage::assistant("valve")});
    conversation.title = "beta";
    QVERIFY(m_store->save(&conversation));
    QCOMPARE(found("pump"), QStringList());
    QCOMPARE(found("alpha"), QStringList());
    QCOMPARE(found("motor"), QStringList{"beta 0"});
    QCOMPARE(found("valve"), QStringList{"beta 1"});
    QCOMPARE(found("beta"), QStringList{"beta -1"});

    conversation.messages[0].message.role = "system";
    conversation.messages.removeLast();
    QVERIFY(m_store->save(&conversation));
    QCOMPARE(found("motor"), QStringList());
    QCOMPARE(found("valve"), QStringList());
}

// Many texts begin like the one that is looked for.
void TestConversationStoreSearch::frequentBeginningsHideNothing()
{
    QVector<ChatMessage> messages(1000, ChatMessage::user("temperature of the pump"));
    messages.prepend(ChatMessage::user("temperatures"));
    messages.append(ChatMessage::user("temperatures"));
    keep(messages, "t");
    QCOMPARE(found("temperatures"), QStringList({"t 0", "t 1001"}));
    QCOMPARE(found("temperatures", 1), QStringList{"t 0"});
}

// Many texts have all pairs of the word, but not the word.
void TestConversationStoreSearch::frequentPairsHideNothing()
{
    QVector<ChatMessage> messages(1000, ChatMessage::user("ab bc"));
    messages.append(ChatMessage::user("abc"));
    keep(messages, "t");
    QCOMPARE(found("abc"), QStringList{"t 1000"});
}

// Many texts have both ends of the word, but not the word.
void TestConversationStoreSearch::frequentEndsHideNothing()
{
    const QString end = QString("end").repeated(30);
    QVector<ChatMessage> messages(1000, ChatMessage::user(end + "-and-" + end));
    messages.append(ChatMessage::user(end + "+and+" + end));
    keep(messages, "t");
    QCOMPARE(found(end + "+and+" + end), QStringList{"t 1000"});
    QCOMPARE(found(end + "+or+" + end), QStringList());
}

void TestConversationStoreSearch::longQueriesAreSearched()
{
    QStringList words;
    for (int i = 0; i < 5000; ++i)
        words.append("word" + QString::number(i));
    const QString text = words.join(' ');
    const QString unbroken = QString("压力").repeated(100000);
    keep({ChatMessage::user(text), ChatMessage::user(unbroken)}, "t");
    QCOMPARE(found(text), QStringList{"t 0"});
    QCOMPARE(found(text + " another"), QStringList());
    QCOMPARE(found(unbroken), QStringList{"t 1"});
    QCOMPARE(found(unbroken + "大"), QStringList());
}

// Another program may remove a message while its place is looked up.
void TestConversationStoreSearch::whatTheIndexAloneHasIsNoHit()
{
    keep({ChatMessage::user("a pump")}, "Pumps");
    const SqliteFile file(m_folder->filePath("conversations.sqlite"));
    QCOMPARE(file.run("DELETE FROM messages"), QStringList());
    QCOMPARE(found("pump"), QStringList{"Pumps -1"});
}

void TestConversationStoreSearch::excerptIsOneLine()
{
    keep({ChatMessage::user("  a\r\n\tpump\u2028and\u0085a  valve\n")});
    QCOMPARE(m_store->search("pump").first().excerpt, "a pump and a valve");
}

void TestConversationStoreSearch::excerptShowsTheFirstWord_data()
{
    QTest::addColumn<QString>("content");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("excerpt");
    const QString x = QString("x").repeated(200);
    QTest::newRow("whole") << "pump" + x.left(116) << "pump"
                           << "pump" + x.left(116);
    QTest::newRow("at the beginning") << "pump" + x << "pump"
                                      << "pump" + x.left(115) + "…";
    QTest::newRow("in the middle") << x + "pump" + x << "pump"
                                   << "…" + x.left(39) + "pump" + x.left(75) + "…";
    QTest::newRow("at the end") << x + "pump"
                                << "pump"
                                << "…" + x.left(115) + "pump";
    QTest::newRow("the word that stands first") << x + "valve" + x + "pump"
                                                << "pump valve"
                                                << "…" + x.left(39) + "valve" + x.left(74) + "…";
    QTest::newRow("behind letters that fold to two")
        << QString("ß").repeated(200) + "PUMP" + x << "pump"
        << "…" + QString("ß").repeated(39) + "PUMP" + x.left(75) + "…";
    QTest::newRow("a word longer than the line") << "y" + x << x << "y" + x.left(118) + "…";
}

void TestConversationStoreSearch::excerptShowsTheFirstWord()
{
    QFETCH(QString, content);
    QFETCH(QString, text);
    keep({ChatMessage::user(content)});
    const auto hits = m_store->search(text);
    QCOMPARE(hits.size(), 1);
    QVERIFY(hits.first().excerpt.size() <= 120);
    QTEST(hits.first().excerpt, "excerpt");
}

void TestConversationStoreSearch::excerptCutsNoCharacterInHalf()
{
    for (const QString &lead : {QString(), QString("x")}) {
        keep({ChatMessage::user(lead + QString("🙂").repeated(100) + "pump"
                                + QString("🙂").repeated(100))});
        const QString excerpt = m_store->search("pump").first().excerpt;
        QVERIFY(excerpt.isValidUtf16());
        QVERIFY(excerpt.startsWith("…🙂") && excerpt.contains("🙂pump🙂")
                && excerpt.endsWith("🙂…"));
        QVERIFY(excerpt.size() <= 120);
    }
}

QTEST_GUILESS_MAIN(TestConversationStoreSearch)
#include "tst_conversationstore_search.moc"
