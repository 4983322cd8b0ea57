// Conversations as JSON and as Markdown, and what is made of JSON that others wrote.

#include <qtagent/store/conversationstore.h>

#include <QJsonDocument>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

Conversation filled(Conversation conversation)
{
    const QDateTime time({2026, 1, 31}, {23, 59, 59, 7}, Qt::UTC);
    ChatMessage question = ChatMessage::user("How high is the *pressure*?");
    question.metadata = {{"draft", true}};
    const QJsonArray calls{makeToolCall("c1", "read_pressure", {{"device", "Pump-001"}})};
    conversation.title = "Pumps";
    conversation.model = "model-b";
    conversation.created = time;
    conversation.messages = {{question, time, {}},
                             {ChatMessage::assistant(QString(), calls), time, "model-a", 12, 3},
                             {ChatMessage::tool("c1", "read_pressure", "6 bar\n```"), {}, {}},
                             {ChatMessage::assistant("6 bar."), time, "model-a"}};
    return conversation;
}

QJsonObject objectOf(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}

} // namespace

class TestConversationStoreFormats : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void jsonHasEverythingButTheId();
    void absentContentIsAbsentInTheJson();
    void importedConversationIsTheExportedOne();
    void textsSurviveTheJson_data();
    void textsSurviveTheJson();
    void importIsKeptUnderANewId();
    void sparseJsonIsImported();
    void whatHasAnotherTypeIsPassedOver();
    void whatIsNoConversationIsRefused_data();
    void whatIsNoConversationIsRefused();
    void markdownIsForReaders();
    void markdownOfAnEmptyConversation();

private:
    Conversation saved(const Conversation &conversation);
    Conversation imported(const QByteArray &json);

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<ConversationStore> m_store;
};

void TestConversationStoreFormats::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    m_store = std::make_unique<ConversationStore>();
    QVERIFY(m_store->open(m_folder->filePath("conversations.sqlite")));
}

void TestConversationStoreFormats::cleanup()
{
    m_store.reset();
    m_folder.reset();
}

Conversation TestConversationStoreFormats::saved(const Conversation &conversation)
{
    Conversation result = conversation;
    if (!m_store->save(&result))
        qFatal("cannot save");
    return result;
}

Conversation TestConversationStoreFormats::imported(const QByteArray &json)
{
    QString error = "before";
    const Conversation conversation = m_store->importJson(json, &error);
    if (!error.isEmpty())
        qFatal("cannot import: %s", qPrintable(error));
    return conversation;
}

void TestConversationStoreFormats::jsonHasEverythingButTheId()
{
    const Conversation conversation = saved(filled(m_store->create()));
    QString error = "before";
    const QJsonObject json = objectOf(m_store->toJson(conversation.id, &error));
    QVERIFY(error.isEmpty());
    QCOMPARE(json.keys(), QStringList({"changed", "created", "messages", "model", "title"}));
    QCOMPARE(json["title"].toString(), "Pumps");
    QCOMPARE(json["model"].toString(), "model-b");
    QCOMPARE(json["created"].toString(), "2026-01-31T23:59:59.007Z");
    QCOMPARE(json["changed"].toString(), conversation.changed.toString(Qt::ISODateWithMs));
    const QJsonObject answer{{"role", "assistant"},
                             {"content", "6 bar."},
                             {"name", ""},
                             {"metadata", QJsonObject()},
                             {"toolCalls", QJsonArray()},
                             {"toolCallId", ""},
                             {"time", "2026-01-31T23:59:59.007Z"},
                             {"model", "model-a"},
                             {"promptTokens", -1},
                             {"completionTokens", -1}};
    QCOMPARE(json["messages"].toArray().last().toObject(), answer);
}

void TestConversationStoreFormats::absentContentIsAbsentInTheJson()
{
    const Conversation conversation = saved(filled(m_store->create()));
    const QJsonArray messages = objectOf(m_store->toJson(conversation.id))["messages"].toArray();
    QVERIFY(!messages.at(1).toObject().contains("content"));
    QCOMPARE(messages.at(1)["promptTokens"].toInt(), 12);
    QCOMPARE(messages.at(1)["toolCalls"].toArray(), conversation.messages.at(1).message.toolCalls);
}

void TestConversationStoreFormats::importedConversationIsTheExportedOne()
{
    const Conversation exported = saved(filled(m_store->create()));
    Conversation conversation = imported(m_store->toJson(exported.id));
    QVERIFY(!conversation.id.isEmpty() && conversation.id != exported.id);
    QVERIFY(conversation.messages.at(1).message.content.isNull());
    QCOMPARE(m_store->load(conversation.id), conversation);
    conversation.id = exported.id;
    conversation.revision = exported.revision;
    QCOMPARE(conversation, exported);
}

void TestConversationStoreFormats::textsSurviveTheJson_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("quotes and escapes") << "\"a\\b\\u0041\b\f\n\r\t/";
    QTest::newRow("null character") << QString("a") + QChar(QChar::Null) + "b";
    QTest::newRow("lone surrogates") << QString(QChar(0xd83d)) + "a" + QChar(0xde42);
    QTest::newRow("byte order mark") << QString(QChar(QChar::ByteOrderMark)) + "a";
    QTest::newRow("no characters") << QString(QChar(0xffff)) + QChar(0xfffe);
    QTest::newRow("emoji") << "👩‍🔧";
}

void TestConversationStoreFormats::textsSurviveTheJson()
{
    QFETCH(QString, text);
    Conversation conversation = m_store->create(text);
    conversation.messages = {{{text, text, text, {{text, text}}, {text}, text}, {}, text}};
    conversation = saved(conversation);
    const Conversation copy = imported(m_store->toJson(conversation.id));
    QCOMPARE(copy.title, text);
    QCOMPARE(copy.messages, conversation.messages);
}

void TestConversationStoreFormats::importIsKeptUnderANewId()
{
    const QByteArray json =
        R"({"id": "x", "title": "Pumps", "messages": [{"role": "user", "content": "pump"}]})";
    const Conversation first = imported(json);
    const Conversation second = imported(json);
    QVERIFY(first.id != "x" && second.id != "x" && first.id != second.id);
    QCOMPARE(m_store->list().size(), 2);
    QCOMPARE(m_store->search("pump").size(), 4);
}

void TestConversationStoreFormats::sparseJsonIsImported()
{
    const QDateTime before = QDateTime::currentDateTimeUtc();
    const Conversation conversation = imported(R"({"messages": [{"role": "user"}]})");
    QVERIFY(conversation.created >= before && conversation.changed >= before);
    StoredMessage message;
    message.message.role = "user";
    QCOMPARE(conversation.messages, QVector<StoredMessage>{message});
    QVERIFY(conversation.messages.first().message.content.isNull());
    QVERIFY(imported(R"({"messages": []})").messages.isEmpty());
}

void TestConversationStoreFormats::whatHasAnotherTypeIsPassedOver()
{
    const Conversation conversation = imported(R"({
        "title": 1, "model": [], "created": "yesterday", "changed": null, "revision": 7, "messages": [{
            "role": "user", "content": {}, "name": 1, "metadata": "{}", "toolCalls": {}, "toolCallId": null,
            "time": 5, "model": true, "promptTokens": "12", "completionTokens": 1.5, "apiKey": "secret"
        }, {
            "role": "", "time": "2026-01-31T23:59:59+01:00", "promptTokens": -5, "completionTokens": 1e300
        }]})");
    QCOMPARE(conversation.title, "");
    QCOMPARE(conversation.revision, 1);
    QVERIFY(conversation.created.isValid());
    StoredMessage first;
    first.message.role = "user";
    StoredMessage second;
    second.time = QDateTime({2026, 1, 31}, {22, 59, 59}, Qt::UTC);
    QCOMPARE(conversation.messages, QVector<StoredMessage>({first, second}));
    QCOMPARE(m_store->load(conversation.id), conversation);
    QVERIFY(!m_store->toJson(conversation.id).contains("secret"));
}

void TestConversationStoreFormats::whatIsNoConversationIsRefused_data()
{
    const QString invalid = "The JSON is invalid: ";
    const QString noConversation = "The JSON is no conversation.";
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("error");
    QTest::newRow("nothing") << QByteArray() << invalid + "illegal value";
    QTest::newRow("text") << QByteArray("Dear diary") << invalid + "illegal value";
    QTest::newRow("cut off") << QByteArray(R"({"messages": [)") << invalid + "unterminated array";
    QTest::newRow("no UTF-8") << QByteArray("{\"messages\": [{\"role\": \"\xff\"}]}")
                              << invalid + "invalid UTF8 string";
    QTest::newRow("very deep") << QByteArray(2000, '[') << invalid + "too deeply nested document";
    QTest::newRow("an array") << QByteArray("[]") << noConversation;
    QTest::newRow("an object") << QByteArray("{}") << noConversation;
    QTest::newRow("messages as an object") << QByteArray(R"({"messages": {}})") << noConversation;
    QTest::newRow("a message as a text") << QByteArray(R"({"messages": ["Hello"]})") << noConversation;
    QTest::newRow("a message without a role")
        << QByteArray(R"({"messages": [{"role": "user"}, {"content": "Hello"}]})") << noConversation;
    QTest::newRow("a role that is no text") << QByteArray(R"({"messages": [{"role": 1}]})") << noConversation;
}

void TestConversationStoreFormats::whatIsNoConversationIsRefused()
{
    QFETCH(QByteArray, json);
    QString error;
    QCOMPARE(m_store->importJson(json, &error), Conversation());
    QTEST(error, "error");
    QVERIFY(m_store->list().isEmpty());
}

void TestConversationStoreFormats::markdownIsForReaders()
{
    Conversation conversation = filled(m_store->create());
    conversation.title = "Pumps\n# and valves";
    conversation = saved(conversation);
    QString error = "before";
    const QString markdown = m_store->toMarkdown(conversation.id, &error);
    QVERIFY(error.isEmpty());
    const QString expected = "# Pumps # and valves\n"
                             "\n"
                             "## user · 2026-01-31T23:59:59.007Z\n"
                             "\n"
                             "How high is the *pressure*?\n"
                             "\n"
                             "## assistant · model-a · 2026-01-31T23:59:59.007Z\n"
                             "\n"
                             "```\n"
                             "[\n"
                             "    {\n"
                             "        \"function\": {\n"
                             "            \"arguments\": \"{\\\"device\\\":\\\"Pump-001\\\"}\",\n"
                             "            \"name\": \"read_pressure\"\n"
                             "        },\n"
                             "        \"id\": \"c1\",\n"
                             "        \"type\": \"function\"\n"
                             "    }\n"
                             "]\n"
                             "```\n"
                             "\n"
                             "## tool · read_pressure\n"
                             "\n"
                             "````\n"
                             "6 bar\n"
                             "```\n"
                             "````\n"
                             "\n"
                             "## assistant · model-a · 2026-01-31T23:59:59.007Z\n"
                             "\n"
                             "6 bar.\n";
    QCOMPARE(markdown, expected);
}

void TestConversationStoreFormats::markdownOfAnEmptyConversation()
{
    QCOMPARE(m_store->toMarkdown(m_store->create("Pumps").id), "# Pumps\n");
    const QString untitled = m_store->toMarkdown(m_store->create().id);
    QCOMPARE(untitled, "\n");
}

QTEST_GUILESS_MAIN(TestConversationStoreFormats)
#include "tst_conversationstore_formats.moc"
