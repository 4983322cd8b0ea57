#include "support/offlineconfiguration.h"

#include <qtagent/agenttool.h>
#include <qtagent/chatmodel.h>
#include <qtagent/modelconfig.h>
#include <qtagent/outputparsers.h>
#include <qtagent/prompttemplate.h>
#include <qtagent/runparallel.h>
#include <qtagent/stategraph.h>
#include <qtagent/toolregistry.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

QString contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

// The sources of a folder of the project, each line without the blanks around it.
QStringList sourcesIn(const QString &folder)
{
    const QDir directory(QStringLiteral(PROJECT_DIR) + '/' + folder);
    QStringList sources;
    for (const QString &name : directory.entryList({"*.cpp"}, QDir::Files)) {
        QString source = contentOf(directory.filePath(name));
        source.replace(QRegularExpression("\\s*\\n\\s*"), "\n");
        sources.append(source.replace(QRegularExpression("\n# +"), "\n#"));
    }
    return sources;
}

bool standsInOneOf(const QStringList &sources, const QString &text)
{
    return std::any_of(sources.cbegin(), sources.cend(),
                       [&text](const QString &source) { return source.contains(text); });
}

} // namespace

// Samples that wait for nothing, pasted into a function, and whether a test runs each sample.
class TestSamplesValues : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everySampleRuns_data();
    void everySampleRuns();

    void conversation();
    void filledPrompt();
    void graphRun();
    void graphRunWithCheckpoints();
    void functionTool();
    void parallelFunctions();
    void answerAsText();
    void answerAsObject_data();
    void answerAsObject();
    void loadedProfile();
};

void TestSamplesValues::everySampleRuns_data()
{
    QTest::addColumn<QString>("sample");
    for (const QString &sample : QStringLiteral(SAMPLES).split(' '))
        QTest::addRow("%s", qPrintable(sample)) << sample;
}

// Either a test includes it, or it stands in an example, each of which a test runs.
void TestSamplesValues::everySampleRuns()
{
    QFETCH(QString, sample);
    static const QStringList tests = sourcesIn("tests");
    static const QStringList examples = sourcesIn("examples");
    QString lines = contentOf(QStringLiteral(SAMPLE_DIR) + '/' + sample).trimmed();
    lines.replace(QRegularExpression("\\s*\\n\\s*"), "\n");
    QVERIFY(!lines.isEmpty());
    QVERIFY2(standsInOneOf(tests, "\n#include \"" + sample + "\"\n") || standsInOneOf(examples, lines),
             qPrintable(lines));
}

void TestSamplesValues::conversation()
{
#include "chatmessage_1.inc"
    QCOMPARE(conversation.last().content, "What is a chain?");
}

void TestSamplesValues::filledPrompt()
{
#include "prompttemplate_1.inc"
    QCOMPARE(conversation.first().content, "You are a teacher of networks.");
    QCOMPARE(conversation.last().content, "Explain routing in three sentences.");
}

void TestSamplesValues::graphRun()
{
#include "stategraph_1.inc"
    QCOMPARE(result.steps.size(), 3);
    QCOMPARE(result.state, (QJsonObject{{"tries", 3}}));
}

void TestSamplesValues::graphRunWithCheckpoints()
{
    QStringList asked;
    StateGraph graph;
    graph.addNode("ask", [&asked](const QJsonObject &state) {
        asked.append(state["question"].toString());
        return QJsonObject();
    });
    graph.addEdge("__start__", "ask");
    graph.addEdge("ask", "__end__");
    const QString first = "first";
    const QString second = "second";
#include "stategraph_2.inc"
    QCOMPARE(asked, QStringList({"first", "second"}));
}

void TestSamplesValues::functionTool()
{
    auto *registry = new ToolRegistry(this);
#include "agenttool_1.inc"
    QCOMPARE(registry->tool("current_time"), clock);
    QVERIFY(clock->invoke({}).success);
}

void TestSamplesValues::parallelFunctions()
{
#include "runparallel_1.inc"
    QCOMPARE(texts, (QMap<QString, QString>{{"farewell", "Goodbye Ada"}, {"greeting", "Hello Ada"}}));
}

void TestSamplesValues::answerAsText()
{
    auto *reply = new ChatReply(this);
    reply->finish("Hello world");
#include "outputparsers_1.inc"
    QCOMPARE(answer, "Hello world");
}

void TestSamplesValues::answerAsObject_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("errors");
    QTest::addRow("both fields") << R"({"title": "Valve", "summary": "Opens."})" << QStringList();
    QTest::addRow("a field is missing")
        << R"({"title": "Valve"})" << QStringList("Missing required field: summary");
}

void TestSamplesValues::answerAsObject()
{
    QFETCH(QString, text);
    auto *reply = new ChatReply(this);
    reply->finish(text);
    QStringList errors;
    const auto showError = [&errors](const QString &error) { errors.append(error); };
#include "outputparsers_2.inc"
    QTEST(errors, "errors");
    QCOMPARE(object.isEmpty(), !errors.isEmpty());
}

void TestSamplesValues::loadedProfile()
{
    const OfflineConfiguration configuration;
#include "modelconfig_1.inc"
    QCOMPARE(config.provider, "mock");
}

QTEST_GUILESS_MAIN(TestSamplesValues)
#include "tst_samples_values.moc"
