#include <qtagent/simpleragchain.h>
#include <qtagent/testing/scriptedmodel.h>

#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

/// Returns a ranking as "score text" lines.
QStringList linesOf(const QList<ScoredDocument> &documents)
{
    QStringList lines;
    for (const ScoredDocument &document : documents)
        lines.append(QStringLiteral("%1 %2").arg(QString::number(document.score), document.text));
    return lines;
}

QStringList retrieved(const QStringList &documents, const QString &question, int topK)
{
    SimpleRagChain chain;
    chain.setDocuments(documents);
    return linesOf(chain.retrieve(question, topK));
}

} // namespace

class TestSimpleRagChain : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void documentsAreRankedByTerms_data();
    void documentsAreRankedByTerms();
    void topKCutsTheList_data();
    void topKCutsTheList();
    void caseAndPunctuationDoNotChangeTheRanking();
    void equalScoresKeepTheOrderOfManyDocuments_data();
    void equalScoresKeepTheOrderOfManyDocuments();
    void retrieveAsksNoModelAndKeepsTheContext();
    void requestCarriesContextAndQuestion();
    void requestIsMadeWithoutAnyMatch_data();
    void requestIsMadeWithoutAnyMatch();
    void fillMarksInTextsStay();
    void lastContextIsThatOfTheLatestRequest();
    void documentsAreReplaced();
    void replyOfTheModelIsReturned();
    void replyBelongsToTheParentElseToTheChain();
    void withoutAModelTheReplyFailsOnTheNextTurn_data();
    void withoutAModelTheReplyFailsOnTheNextTurn();
    void withoutAModelTheContextIsUntouched();
    void scoredDocumentHasDefaults();
};

void TestSimpleRagChain::documentsAreRankedByTerms_data()
{
    QTest::addColumn<QStringList>("documents");
    QTest::addColumn<QString>("question");
    QTest::addColumn<QStringList>("ranking");
    const QStringList fruit{"Apple pie", "apple and PEAR", "plum"};
    QTest::newRow("more terms rank first")
        << fruit << "apple pear" << QStringList{"2 apple and PEAR", "1 Apple pie", "0 plum"};
    QTest::newRow("repeating a word raises no score")
        << fruit << "apple apple Apple" << QStringList{"1 Apple pie", "1 apple and PEAR", "0 plum"};
    QTest::newRow("a term counts within a word") << QStringList{"a net", "the network", "new"} << "net"
                                                 << QStringList{"1 a net", "1 the network", "0 new"};
    QTest::newRow("a term counts once a document")
        << QStringList{"one net", "net net net"} << "net" << QStringList{"1 one net", "1 net net net"};
    QTest::newRow("a question in Chinese scores nothing")
        << QStringList{"路由", "什么是路由"} << "什么是路由？" << QStringList{"0 路由", "0 什么是路由"};
    QTest::newRow("a question without words scores nothing")
        << fruit << " ?! " << QStringList{"0 Apple pie", "0 apple and PEAR", "0 plum"};
    QTest::newRow("an empty question scores nothing")
        << fruit << "" << QStringList{"0 Apple pie", "0 apple and PEAR", "0 plum"};
    QTest::newRow("ASCII words of a Chinese question count")
        << QStringList{"无关", "RAG 是检索增强生成"} << "什么是RAG？"
        << QStringList{"1 RAG 是检索增强生成", "0 无关"};
    QTest::newRow("underscores join, hyphens separate")
        << QStringList{"lookup term", "lookup_term"} << "lookup_term"
        << QStringList{"1 lookup_term", "0 lookup term"};
    QTest::newRow("an equal document stays twice")
        << QStringList{"b", "a", "a"} << "a" << QStringList{"1 a", "1 a", "0 b"};
    QTest::newRow("no documents") << QStringList() << "apple" << QStringList();
}

void TestSimpleRagChain::documentsAreRankedByTerms()
{
    QFETCH(QStringList, documents);
    QFETCH(QString, question);
    QFETCH(QStringList, ranking);
    QCOMPARE(retrieved(documents, question, 10), ranking);
}

void TestSimpleRagChain::topKCutsTheList_data()
{
    QTest::addColumn<int>("topK");
    QTest::addColumn<QStringList>("ranking");
    const QStringList all{"1 b", "0 a", "0 c"};
    QTest::newRow("below zero") << -1 << QStringList();
    QTest::newRow("the smallest number") << std::numeric_limits<int>::min() << QStringList();
    QTest::newRow("zero") << 0 << QStringList();
    QTest::newRow("the best") << 1 << QStringList{"1 b"};
    QTest::newRow("the best and the first of the others") << 2 << QStringList{"1 b", "0 a"};
    QTest::newRow("as many as there are") << 3 << all;
    QTest::newRow("more than there are") << 4 << all;
    QTest::newRow("the largest number") << std::numeric_limits<int>::max() << all;
}

void TestSimpleRagChain::topKCutsTheList()
{
    QFETCH(int, topK);
    QFETCH(QStringList, ranking);
    QCOMPARE(retrieved({"a", "b", "c"}, "B", topK), ranking);
}

void TestSimpleRagChain::caseAndPunctuationDoNotChangeTheRanking()
{
    const QStringList documents{"agents call tools", "chains", "a graph of agents",
                                "tools, agents and graphs"};
    const QStringList ranking = retrieved(documents, "graph agents tools", 4);
    QCOMPARE(ranking.first(), "3 tools, agents and graphs");
    QCOMPARE(retrieved(documents, "GRAPH... Agents?!(tools)", 4), ranking);
    QCOMPARE(retrieved(documents, "请问：graph，agents、TOOLS。", 4), ranking);
}

void TestSimpleRagChain::equalScoresKeepTheOrderOfManyDocuments_data()
{
    QTest::addColumn<int>("topK");
    QTest::newRow("the best three") << 3;
    QTest::newRow("half") << 500;
    QTest::newRow("all") << 1000;
}

void TestSimpleRagChain::equalScoresKeepTheOrderOfManyDocuments()
{
    QFETCH(int, topK);
    QStringList documents;
    QStringList matches;
    QStringList others;
    for (int number = 0; number < 1000; ++number) {
        const bool match = number % 7 == 3;
        documents.append(QStringLiteral("%1 %2").arg(QString::number(number), match ? "pump" : "fan"));
        (match ? matches : others).append(QStringLiteral("%1 %2").arg(match ? "1" : "0", documents.last()));
    }
    QCOMPARE(retrieved(documents, "pump", topK), (matches + others).mid(0, topK));
}

void TestSimpleRagChain::retrieveAsksNoModelAndKeepsTheContext()
{
    ScriptedModel model;
    SimpleRagChain chain;
    chain.setModel(&model);
    chain.setDocuments({"a", "b"});
    chain.retrieve("a", 2);
    QVERIFY(model.requests().isEmpty());
    QCOMPARE(chain.lastContext(), "");
}

void TestSimpleRagChain::requestCarriesContextAndQuestion()
{
    ScriptedModel model;
    SimpleRagChain chain;
    chain.setModel(&model);
    chain.setDocuments({"Fans cool.", "Pumps move\nwater.", "Pumps and valves."});
    chain.invoke("What do Pumps and VALVES do?", 2);

    QCOMPARE(model.requests().size(), 1);
    const ScriptedModel::Request call = model.requests().last();
    const QString context = "- Pumps and valves.\n- Pumps move\nwater.";
    QCOMPARE(call.messages.size(), 2);
    QCOMPARE(messageToJson(call.messages[0]),
             (QJsonObject{{"role", "system"},
                          {"content", "Answer only from the supplied context. If the context is "
                                      "insufficient, say so briefly."}}));
    QCOMPARE(
        messageToJson(call.messages[1]),
        (QJsonObject{{"role", "user"},
                     {"content", "Context:\n" + context + "\n\nQuestion: What do Pumps and VALVES do?"}}));
    QVERIFY(call.tools.isEmpty());
    QCOMPARE(chain.lastContext(), context);
}

void TestSimpleRagChain::requestIsMadeWithoutAnyMatch_data()
{
    QTest::addColumn<QStringList>("documents");
    QTest::addColumn<QString>("question");
    QTest::addColumn<int>("topK");
    QTest::addColumn<QString>("context");
    const QStringList abc{"a", "b", "c"};
    QTest::newRow("the first documents are sent") << abc << "unknown" << 2 << "- a\n- b";
    QTest::newRow("a question without ASCII terms") << abc << "什么？" << 1 << "- a";
    QTest::newRow("no documents") << QStringList() << "a" << 3 << "";
    QTest::newRow("topK zero") << abc << "a" << 0 << "";
    QTest::newRow("topK below zero") << abc << "a" << -5 << "";
    QTest::newRow("an empty document is a line") << QStringList{"", "b"} << "x" << 2 << "- \n- b";
}

void TestSimpleRagChain::requestIsMadeWithoutAnyMatch()
{
    QFETCH(QStringList, documents);
    QFETCH(QString, question);
    QFETCH(int, topK);
    QFETCH(QString, context);
    ScriptedModel model;
    SimpleRagChain chain;
    chain.setModel(&model);
    chain.setDocuments(documents);
    chain.invoke(question, topK);
    QCOMPARE(model.requests().size(), 1);
    QCOMPARE(model.requests().last().messages[1].content,
             "Context:\n" + context + "\n\nQuestion: " + question);
    QCOMPARE(chain.lastContext(), context);
}

void TestSimpleRagChain::fillMarksInTextsStay()
{
    ScriptedModel model;
    SimpleRagChain chain;
    chain.setModel(&model);
    chain.setDocuments({"x %1 %2"});
    chain.invoke("x %1 %2?", 1);
    QCOMPARE(model.requests().last().messages[1].content, "Context:\n- x %1 %2\n\nQuestion: x %1 %2?");
}

void TestSimpleRagChain::lastContextIsThatOfTheLatestRequest()
{
    ScriptedModel model;
    model.addFailure("busy");
    SimpleRagChain chain;
    chain.setModel(&model);
    chain.setDocuments({"a", "b"});
    QCOMPARE(chain.lastContext(), "");
    chain.invoke("a", 1);
    QCOMPARE(chain.lastContext(), "- a");
    chain.invoke("b", 1);
    QCOMPARE(chain.lastContext(), "- b");
}

void TestSimpleRagChain::documentsAreReplaced()
{
    SimpleRagChain chain;
    chain.setDocuments({"a", "b"});
    chain.setDocuments({"c"});
    QCOMPARE(linesOf(chain.retrieve("a", 5)), (QStringList{"0 c"}));
}

void TestSimpleRagChain::replyOfTheModelIsReturned()
{
    ScriptedModel model;
    model.addText({"From ", "context."});
    SimpleRagChain chain;
    chain.setModel(&model);
    ChatReply *reply = chain.invoke("a", 1);
    QCOMPARE(chain.findChildren<ChatReply *>(), QList<ChatReply *>{reply}); // no other
    QSignalSpy finished(reply, &ChatReply::finished);
    QVERIFY(finished.wait());
    QCOMPARE(finished.first().first().toString(), "From context.");
}

void TestSimpleRagChain::replyBelongsToTheParentElseToTheChain()
{
    ScriptedModel model;
    QObject parent;
    SimpleRagChain chain;
    QCOMPARE(chain.invoke("a", 1, &parent)->parent(), &parent);
    QCOMPARE(chain.invoke("a", 1)->parent(), &chain);
    chain.setModel(&model);
    QCOMPARE(chain.invoke("a", 1, &parent)->parent(), &parent);
    QCOMPARE(chain.invoke("a", 1)->parent(), &chain);
}

void TestSimpleRagChain::withoutAModelTheReplyFailsOnTheNextTurn_data()
{
    QTest::addColumn<bool>("modelWasDeleted");
    QTest::newRow("no model was set") << false;
    QTest::newRow("the model was deleted") << true;
}

void TestSimpleRagChain::withoutAModelTheReplyFailsOnTheNextTurn()
{
    QFETCH(bool, modelWasDeleted);
    SimpleRagChain chain;
    chain.setDocuments({"a"});
    if (modelWasDeleted) {
        const auto model = std::make_unique<ScriptedModel>();
        chain.setModel(model.get());
    }
    ChatReply *reply = chain.invoke("a", 1);
    QSignalSpy failed(reply, &ChatReply::failed);
    QSignalSpy finished(reply, &ChatReply::finished);
    QVERIFY(failed.wait());
    QCoreApplication::processEvents();
    QCOMPARE(failed.size(), 1);
    QCOMPARE(failed.first().first().toString(), "SimpleRagChain has no model.");
    QCOMPARE(finished.size(), 0);
}

void TestSimpleRagChain::withoutAModelTheContextIsUntouched()
{
    SimpleRagChain chain;
    chain.setDocuments({"a", "b"});
    {
        ScriptedModel model;
        chain.setModel(&model);
        chain.invoke("a", 1);
    }
    chain.invoke("b", 1);
    QCOMPARE(chain.lastContext(), "- a");
}

void TestSimpleRagChain::scoredDocumentHasDefaults()
{
    const ScoredDocument document;
    QVERIFY(document.text.isEmpty());
    QCOMPARE(document.score, 0);
}

QTEST_GUILESS_MAIN(TestSimpleRagChain)
#include "tst_simpleragchain.moc"
