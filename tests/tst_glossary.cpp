#include <demo/glossary.h>
#include <qtagent/toolregistry.h>

#include <QPointer>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestGlossary : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void toolIsDescribedForTheModel();
    void workflowToolHasItsOwnDescription();
    void termsAreLookedUpExactly_data();
    void termsAreLookedUpExactly();
    void firstRegisteredToolStays();
};

void TestGlossary::toolIsDescribedForTheModel()
{
    const std::unique_ptr<FunctionTool> tool(createGlossaryTool());
    QCOMPARE(tool->name(), QStringLiteral("lookup_term"));
    QCOMPARE(tool->description(),
             QStringLiteral(
                 "Look up a local Orvane / AI framework glossary term. Use this when the user asks about "
                 "Chain, Workflow, RAG, tool calling, or prompt templates."));
    const QJsonObject term{{"type", "string"}, {"description", "The term to look up."}};
    QCOMPARE(tool->parameters(), (QJsonObject{{"type", "object"},
                                              {"properties", QJsonObject{{"term", term}}},
                                              {"required", QJsonArray{"term"}}}));
    QCOMPARE(tool->permission(), ToolPermission::ReadOnly);
}

void TestGlossary::workflowToolHasItsOwnDescription()
{
    const std::unique_ptr<FunctionTool> tool(createWorkflowGlossaryTool());
    QCOMPARE(tool->name(), QStringLiteral("lookup_term"));
    QCOMPARE(tool->description(), QStringLiteral("查询本地 AI 框架术语。"));
    QCOMPARE(tool->permission(), ToolPermission::ReadOnly);
}

void TestGlossary::termsAreLookedUpExactly_data()
{
    const QString workflow =
        QStringLiteral("Orvane Workflow 用于构建有状态、多步骤、可循环、可恢复的智能体流程。");
    const QString unknown = QStringLiteral("没有找到本地术语说明。");
    QTest::addColumn<QJsonObject>("arguments");
    QTest::addColumn<QString>("text");
    QTest::newRow("Chain") << QJsonObject{{"term", "Chain"}}
                           << "Orvane Chain 用于把模型、提示词、工具和输出解析器组合成应用流程。";
    QTest::newRow("Workflow") << QJsonObject{{"term", "Workflow"}} << workflow;
    QTest::newRow("流程") << QJsonObject{{"term", "流程"}} << workflow;
    QTest::newRow("RAG") << QJsonObject{{"term", "RAG"}}
                         << "RAG 会先检索相关知识，再把知识作为上下文交给模型回答。";
    QTest::newRow("another case") << QJsonObject{{"term", "workflow"}} << unknown;
    QTest::newRow("no term") << QJsonObject{} << unknown;
    QTest::newRow("a term of another type") << QJsonObject{{"term", 7}} << unknown;
}

void TestGlossary::termsAreLookedUpExactly()
{
    QFETCH(QJsonObject, arguments);
    const std::unique_ptr<FunctionTool> tool(createGlossaryTool());
    QTEST(toolResultText(tool->invoke(arguments)), "text");
}

void TestGlossary::firstRegisteredToolStays()
{
    ToolRegistry registry;
    FunctionTool *first = createWorkflowGlossaryTool();
    const QPointer<FunctionTool> second(createGlossaryTool());
    registerOrDelete(&registry, first);
    registerOrDelete(&registry, second);
    QCOMPARE(registry.tool("lookup_term"), first);
    QCOMPARE(first->parent(), &registry);
    QVERIFY(!second);
}

QTEST_APPLESS_MAIN(TestGlossary)
#include "tst_glossary.moc"
