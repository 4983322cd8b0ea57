#include "support/completionrecorder.h"
#include "support/fakenetworkreply.h"
#include "support/streamfixtures.h"

#include <qtagent/answerreceiver_p.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

// What the pieces of streamed tool calls come to.
class TestToolCallAssembly : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void streamMayBeCutAnywhere_data();
    void streamMayBeCutAnywhere();
    void streamMayEndAnywhere_data();
    void streamMayEndAnywhere();
    void piecesFindTheirCall_data();
    void piecesFindTheirCall();
    void scannerTellsACompleteObject_data();
    void scannerTellsACompleteObject();

private:
    void addFixtureRows();
};

namespace {

AnswerRules rules()
{
    AnswerRules result;
    result.options.streamToolCalls = true;
    result.options.readThinkTags = true;
    result.toolNames = QStringList{"add", "now", "add_numbers"};
    return result;
}

// Returns what a stream that arrives in @p portions comes to.
std::unique_ptr<CompletionReply> replyTo(const QVector<QByteArray> &portions, int *progress = nullptr)
{
    auto reply = std::make_unique<CompletionReply>();
    const QSignalSpy progressed(reply.get(), &CompletionReply::toolCallProgressed);
    FakeNetworkReply networkReply;
    AnswerReceiver receiver(&networkReply, reply.get(), rules());
    receiver.receiveStream();
    for (const QByteArray &portion : portions) {
        networkReply.receive(portion);
        QCoreApplication::processEvents();
    }
    networkReply.end();
    QCoreApplication::processEvents();
    if (progress)
        *progress = int(progressed.size());
    return reply;
}

} // namespace

void TestToolCallAssembly::addFixtureRows()
{
    QTest::addColumn<int>("number");
    const QVector<StreamFixture> fixtures = streamFixtures();
    for (int i = 0; i < fixtures.size(); ++i)
        QTest::newRow(fixtures.at(i).name) << i;
}

void TestToolCallAssembly::streamMayBeCutAnywhere_data()
{
    addFixtureRows();
}

void TestToolCallAssembly::streamMayBeCutAnywhere()
{
    QFETCH(int, number);
    const StreamFixture fixture = streamFixtures().at(number);
    const QByteArray bytes = fixture.bytes();
    for (int cut = 0; cut <= bytes.size(); ++cut) {
        const auto reply = replyTo({bytes.left(cut), bytes.mid(cut)});
        QVERIFY(!reply->isRunning());
        QCOMPARE(summaryOf(reply->toolCalls()), fixture.calls);
        QCOMPARE(reply->text(), fixture.text);
        QCOMPARE(reply->reasoning(), fixture.reasoning);
        QCOMPARE(reply->error().section('\n', 0, 0), fixture.fault);
    }
}

void TestToolCallAssembly::streamMayEndAnywhere_data()
{
    addFixtureRows();
}

// Either all calls of the stream, or none and a failure, unless the stream ends before the first piece of
// one.
void TestToolCallAssembly::streamMayEndAnywhere()
{
    QFETCH(int, number);
    const StreamFixture fixture = streamFixtures().at(number);
    const QByteArray bytes = fixture.bytes();
    for (int end = 0; end < bytes.size(); ++end) {
        int progress = 0;
        const auto reply = replyTo({bytes.left(end)}, &progress);
        QVERIFY(!reply->isRunning());
        const QByteArray calls = summaryOf(reply->toolCalls());
        if (calls != "[]")
            QCOMPARE(calls, fixture.calls);
        else if (reply->error().isEmpty())
            QCOMPARE(progress, 0);
    }
}

void TestToolCallAssembly::piecesFindTheirCall_data()
{
    QTest::addColumn<QByteArray>("events");
    QTest::addColumn<QByteArray>("calls");
    const auto row = [](const char *name, const QByteArray &events, const QByteArray &calls) {
        QTest::newRow(name) << events << calls;
    };
    row("by index, in any order",
        R"([[{"index":1,"id":"b","function":{"name":"now"}}],[{"index":0,"id":"a","function":{"name":"add"}}]])",
        R"([["a","add","{}"],["b","now","{}"]])");
    row("between each other",
        R"([[{"index":0,"id":"a","function":{"name":"add"}},{"index":1,"id":"b","function":{"name":"add"}}],
            [{"index":1,"function":{"arguments":"{\"x\":2}"}},{"index":0,"function":{"arguments":"{\"x\":1}"}}]])",
        R"([["a","add","{\"x\":1}"],["b","add","{\"x\":2}"]])");
    row("by id where there is no index",
        R"([[{"id":"a","function":{"name":"add","arguments":"{\"x\""}}],
            [{"id":"b","function":{"name":"now","arguments":"{}"}}],
            [{"id":"a","function":{"arguments":":1}"}}]])",
        R"([["a","add","{\"x\":1}"],["b","now","{}"]])");
    row("whole calls under one index without ids",
        R"([[{"index":0,"function":{"name":"add","arguments":"{\"x\":1}"}}],
            [{"index":0,"function":{"name":"add","arguments":"{\"x\":1}"}}]])",
        R"([["qa0000001","add","{\"x\":1}"],["qa0000002","add","{\"x\":1}"]])");
    row("the name repeated with more arguments",
        R"([[{"index":0,"function":{"name":"add","arguments":"{\"x\":"}}],
            [{"index":0,"function":{"name":"add","arguments":"{}}"}}]])",
        R"([["qa0000001","add","{\"x\":{}}"]])");
    row("whole calls without index and id",
        R"([[{"function":{"name":"add","arguments":"{}"}}],[{"function":{"name":"now","arguments":"{}"}}]])",
        R"([["qa0000001","add","{}"],["qa0000002","now","{}"]])");
    row("the complete arguments once more",
        R"([[{"index":0,"id":"a","function":{"name":"add","arguments":"{\"x\":1}"}}],
            [{"index":0,"id":"a","function":{"name":"add","arguments":"{\"x\":1}"}}]])",
        R"([["a","add","{\"x\":1}"]])");
    row("two objects under one index are no arguments",
        R"([[{"index":0,"id":"a","function":{"name":"add","arguments":"{}"}}],
            [{"index":0,"function":{"arguments":"{\"x\":1}"}}]])",
        "");
    row("a list is no arguments", R"([[{"id":"a","function":{"name":"add","arguments":[1]}}]])", "");
    row("a number is no arguments", R"([[{"id":"a","function":{"name":"add","arguments":7}}]])", "");
    row("closed, but no JSON", R"([[{"id":"a","function":{"name":"add","arguments":"{x}"}}]])", "");
    row("blank arguments", R"([[{"id":"a","function":{"name":"add","arguments":" \n"}}]])",
        R"([["a","add","{}"]])");
    row("a whole name in place of a part",
        R"([[{"index":0,"id":"a","function":{"name":"ad"}}],[{"index":0,"function":{"name":"add"}}]])",
        R"([["a","add","{}"]])");
    row("no more name behind an offered one",
        R"([[{"index":0,"id":"a","function":{"name":"add"}}],[{"index":0,"function":{"name":"_x"}}]])",
        R"([["a","add","{}"]])");
    row("no more name behind arguments",
        R"([[{"index":0,"id":"a","function":{"name":"ad","arguments":"{"}}],
            [{"index":0,"function":{"name":"d","arguments":"}"}}]])",
        R"([["a","ad","{}"]])");
    row("ids that are none",
        R"([[{"index":0,"id":null,"function":{"name":"add"}}],[{"index":0,"id":"null"}],[{"index":0,"id":"x"}],
            [{"index":0,"id":"y"}]])",
        R"([["x","add","{}"]])");
    row("an index that is none",
        R"([[{"index":0.5,"id":"a","function":{"name":"add"}}],[{"index":"0","id":"b","function":{"name":"now"}}]])",
        R"([["a","add","{}"],["b","now","{}"]])");
    row("what is no object", R"([[7,null,"x",[],{"id":"a","function":{"name":"add"}}]])",
        R"([["a","add","{}"]])");
}

void TestToolCallAssembly::piecesFindTheirCall()
{
    QFETCH(QByteArray, events);
    QFETCH(QByteArray, calls);
    ToolCallAssembly assembly({"add", "now"});
    const QJsonArray pieces = QJsonDocument::fromJson(events).array();
    QVERIFY(!pieces.isEmpty());
    for (const QJsonValue &event : pieces) {
        assembly.beginEvent();
        const QJsonArray piecesOfEvent = event.toArray();
        for (const QJsonValue &piece : piecesOfEvent)
            QCOMPARE(assembly.addPiece(piece) >= 0, piece.isObject());
    }
    QCOMPARE(assembly.isComplete(), !calls.isEmpty());
    if (assembly.isComplete())
        QCOMPARE(summaryOf(assembly.calls({})), calls);
}

void TestToolCallAssembly::scannerTellsACompleteObject_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("isClosed");
    QTest::newRow("empty") << "" << false;
    QTest::newRow("an object") << "{}" << true;
    QTest::newRow("white space around it") << " \r\n{\t} " << true;
    QTest::newRow("another space") << QString("{}%1").arg(QChar(0xa0)) << false;
    QTest::newRow("braces in a text") << R"({"a":"}{"})" << true;
    QTest::newRow("an escaped quote") << R"({"a":"\"}"})" << true;
    QTest::newRow("an escaped backslash") << R"({"a":"\\"})" << true;
    QTest::newRow("nested") << R"({"a":{"b":[{}]}})" << true;
    QTest::newRow("not closed") << R"({"a":{})" << false;
    QTest::newRow("more behind it") << "{}{}" << false;
    QTest::newRow("something before it") << "x{}" << false;
    QTest::newRow("an array") << "[]" << false;
}

void TestToolCallAssembly::scannerTellsACompleteObject()
{
    QFETCH(QString, text);
    JsonObjectScanner scanner;
    for (const QChar character : text)
        scanner.append(character);
    QTEST(scanner.isClosed(), "isClosed");
}

QTEST_GUILESS_MAIN(TestToolCallAssembly)
#include "tst_toolcallassembly.moc"
