#include <qtagent/stategraph.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

const RouterFunction router = [](const QJsonObject &) { return QString(); };

StateGraph reviewGraph()
{
    StateGraph graph;
    graph.addNode("review", {});
    graph.addNode("draft", {});
    graph.addEdge(StartNode, "draft");
    graph.addEdge("draft", "review");
    graph.addEdge("review", "only an edge that a route overrides leads here");
    graph.addConditionalEdges("review", router, {{"again", "draft"}, {"accept", EndNode}, {"send", "send"}});
    graph.addInterruptBefore("review");
    return graph;
}

StateGraph graphOfOneRoute(const QString &name, const QString &key)
{
    StateGraph graph;
    graph.addNode(name, {});
    graph.addConditionalEdges(StartNode, router, {{key, name}});
    return graph;
}

} // namespace

// Graphs as text for programs that draw.
class TestStateGraphPictures : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void dotShowsNodesEdgesAndRoutes();
    void mermaidShowsNodesEdgesAndRoutes();
    void emptyGraphHasAStartAndAnEnd();
    void pictureDoesNotDependOnTheOrderOfBuilding();
    void textsCannotLeaveTheirLabels_data();
    void textsCannotLeaveTheirLabels();
};

void TestStateGraphPictures::dotShowsNodesEdgesAndRoutes()
{
    QCOMPARE(toDot(reviewGraph()), QString("digraph {\n"
                                           "    node [shape=box];\n"
                                           "    n0 [label=\"__start__\", shape=ellipse];\n"
                                           "    n1 [label=\"draft\"];\n"
                                           "    n2 [label=\"review\", peripheries=2];\n"
                                           "    n3 [label=\"send\", style=dashed];\n"
                                           "    n4 [label=\"__end__\", shape=ellipse];\n"
                                           "    n0 -> n1;\n"
                                           "    n1 -> n2;\n"
                                           "    n2 -> n4 [label=\"accept\"];\n"
                                           "    n2 -> n1 [label=\"again\"];\n"
                                           "    n2 -> n3 [label=\"send\"];\n"
                                           "}\n"));
}

void TestStateGraphPictures::mermaidShowsNodesEdgesAndRoutes()
{
    QCOMPARE(toMermaid(reviewGraph()), QString("flowchart TD\n"
                                               "    n0([\"__start__\"])\n"
                                               "    n1[\"draft\"]\n"
                                               "    n2[[\"review\"]]\n"
                                               "    n3[\"send\"]\n"
                                               "    n4([\"__end__\"])\n"
                                               "    n0 --> n1\n"
                                               "    n1 --> n2\n"
                                               "    n2 -->|\"accept\"| n4\n"
                                               "    n2 -->|\"again\"| n1\n"
                                               "    n2 -->|\"send\"| n3\n"
                                               "    style n3 stroke-dasharray: 4\n"));
}

void TestStateGraphPictures::emptyGraphHasAStartAndAnEnd()
{
    QCOMPARE(toDot({}), QString("digraph {\n"
                                "    node [shape=box];\n"
                                "    n0 [label=\"__start__\", shape=ellipse];\n"
                                "    n1 [label=\"__end__\", shape=ellipse];\n"
                                "}\n"));
    QCOMPARE(toMermaid({}), QString("flowchart TD\n"
                                    "    n0([\"__start__\"])\n"
                                    "    n1([\"__end__\"])\n"));
}

void TestStateGraphPictures::pictureDoesNotDependOnTheOrderOfBuilding()
{
    StateGraph graph;
    graph.addInterruptBefore("review");
    graph.addConditionalEdges("review", router, {{"send", "send"}, {"accept", EndNode}, {"again", "draft"}});
    graph.addEdge("draft", "review");
    graph.addEdge(StartNode, "draft");
    graph.addNode("draft", {});
    graph.addNode("review", {});
    QCOMPARE(toDot(graph), toDot(reviewGraph()));
    QCOMPARE(toMermaid(graph), toMermaid(reviewGraph()));
}

void TestStateGraphPictures::textsCannotLeaveTheirLabels_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("dot");
    QTest::addColumn<QString>("mermaid");
    QTest::newRow("quotation marks") << "\"]; evil [\""
                                     << R"(\"]; evil [\")"
                                     << "#34;#93;#59; evil #91;#34;";
    QTest::newRow("a backslash at the end") << "a\\"
                                            << R"(a\\)"
                                            << "a#92;";
    QTest::newRow("escapes of the language") << R"(\N\l#35;)"
                                             << R"(\\N\\l#35;)"
                                             << "#92;N#92;l#35;35#59;";
    QTest::newRow("markup") << "<b>&lt;"
                            << "<b>&amp;lt;"
                            << "#60;b#62;#38;lt#59;";
    QTest::newRow("a directive") << "%%{init: {}}%%"
                                 << "%%{init: {}}%%"
                                 << "#37;#37;#123;init#58; #123;#125;#125;#37;#37;";
    QTest::newRow("a symbol") << "fa:fa-ban"
                              << "fa:fa-ban"
                              << "fa#58;fa-ban";
    QTest::newRow("control characters") << QString("a\nb\rc\td") + QChar(0) + QChar(0x85) << "a b c d  "
                                        << "a b c d  ";
    QTest::newRow("placeholders") << "%1%2"
                                  << "%1%2"
                                  << "#37;1#37;2";
    QTest::newRow("beyond ASCII") << "审核“一”"
                                  << "审核“一”"
                                  << "审核“一”";
    QTest::newRow("harmless") << "Draft_2, or 3.0-a"
                              << "Draft_2, or 3.0-a"
                              << "Draft_2, or 3.0-a";
    QTest::newRow("nothing") << ""
                             << ""
                             << " ";
}

void TestStateGraphPictures::textsCannotLeaveTheirLabels()
{
    QFETCH(QString, text);
    QFETCH(QString, dot);
    QFETCH(QString, mermaid);
    const StateGraph graph = graphOfOneRoute(text, text);
    QCOMPARE(toDot(graph), QString("digraph {\n"
                                   "    node [shape=box];\n"
                                   "    n0 [label=\"__start__\", shape=ellipse];\n"
                                   "    n1 [label=\""
                                   + dot
                                   + "\"];\n"
                                     "    n2 [label=\"__end__\", shape=ellipse];\n"
                                     "    n0 -> n1 [label=\""
                                   + dot + "\"];\n}\n"));
    QCOMPARE(toMermaid(graph), QString("flowchart TD\n"
                                       "    n0([\"__start__\"])\n"
                                       "    n1[\""
                                       + mermaid
                                       + "\"]\n"
                                         "    n2([\"__end__\"])\n"
                                         "    n0 -->|\""
                                       + mermaid + "\"| n1\n"));
}

QTEST_APPLESS_MAIN(TestStateGraphPictures)
#include "tst_stategraph_pictures.moc"
