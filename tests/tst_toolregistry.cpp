#include "support/heapusage.h"

#include <qtagent/toolregistry.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestToolRegistry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void emptyRegistryOffersNothing();
    void refusesNull();
    void refusesBlankNames_data();
    void refusesBlankNames();
    void refusesASecondToolOfTheSameName();
    void refusalNeedsNoErrorText();
    void successLeavesTheErrorTextAlone();
    void nameIsFreeAgainWhenItsToolDies();
    void findsToolsUnderExactlyTheirName();
    void ownsToolsWithoutAParent();
    void leavesOtherToolsToTheirOwner();
    void offersLivingToolsInTheOrderOfRegistration();
    void nameBelongsToTheToolRegisteredInASlotOfDestroyed();
    void toolMayRegisterAnotherWhenItIsAsked();
    void keepsNothingOfDeletedTools();
};

namespace {

FunctionTool *makeTool(const QString &name, QObject *parent = nullptr)
{
    return new FunctionTool(name, "Does " + name, {{"title", name}}, ToolPermission::Write, {}, parent);
}

QStringList offeredNames(const ToolRegistry &registry)
{
    QStringList names;
    for (const ToolDefinition &definition : registry.definitions())
        names.append(definition.name);
    return names;
}

} // namespace

void TestToolRegistry::emptyRegistryOffersNothing()
{
    const ToolRegistry registry;
    QVERIFY(registry.definitions().isEmpty());
    QVERIFY(!registry.tool("any"));
}

void TestToolRegistry::refusesNull()
{
    ToolRegistry registry;
    QString error;
    QVERIFY(!registry.registerTool(nullptr, &error));
    QCOMPARE(error, "Tool is null.");
}

void TestToolRegistry::refusesBlankNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("empty") << "";
    QTest::newRow("spaces") << "  ";
    QTest::newRow("other blanks") << "\t\n";
}

void TestToolRegistry::refusesBlankNames()
{
    QFETCH(QString, name);
    ToolRegistry registry;
    const std::unique_ptr<AgentTool> tool(makeTool(name));
    QString error;
    QVERIFY(!registry.registerTool(tool.get(), &error));
    QCOMPARE(error, "Tool name is empty.");
    QVERIFY(!tool->parent());
    QVERIFY(!registry.tool(name));
}

void TestToolRegistry::refusesASecondToolOfTheSameName()
{
    ToolRegistry registry;
    AgentTool *first = makeTool("%1 pump");
    const std::unique_ptr<AgentTool> second(makeTool("%1 pump"));
    QString error;
    QVERIFY(registry.registerTool(first));
    QVERIFY(!registry.registerTool(second.get(), &error));
    QCOMPARE(error, "Tool already registered: %1 pump");
    QCOMPARE(registry.tool("%1 pump"), first);
    QVERIFY(!second->parent());
    QVERIFY(!registry.registerTool(first, &error));
}

void TestToolRegistry::refusalNeedsNoErrorText()
{
    ToolRegistry registry;
    QVERIFY(!registry.registerTool(nullptr));
}

void TestToolRegistry::successLeavesTheErrorTextAlone()
{
    ToolRegistry registry;
    QString error = "untouched";
    QVERIFY(registry.registerTool(makeTool("pump"), &error));
    QCOMPARE(error, "untouched");
}

void TestToolRegistry::nameIsFreeAgainWhenItsToolDies()
{
    ToolRegistry registry;
    auto *first = makeTool("pump");
    registry.registerTool(first);
    delete first;
    QVERIFY(!registry.tool("pump"));
    QVERIFY(registry.definitions().isEmpty());

    AgentTool *second = makeTool("pump");
    QVERIFY(registry.registerTool(second));
    QCOMPARE(registry.tool("pump"), second);
    QCOMPARE(offeredNames(registry), QStringList{"pump"});
}

void TestToolRegistry::findsToolsUnderExactlyTheirName()
{
    ToolRegistry registry;
    AgentTool *tool = makeTool(" pump ");
    registry.registerTool(tool);
    QCOMPARE(registry.tool(" pump "), tool);
    QVERIFY(!registry.tool("pump"));
    QVERIFY(!registry.tool(" Pump "));
    QVERIFY(registry.registerTool(makeTool("pump")));
}

void TestToolRegistry::ownsToolsWithoutAParent()
{
    auto registry = std::make_unique<ToolRegistry>();
    const QPointer<AgentTool> tool = makeTool("pump");
    registry->registerTool(tool);
    QCOMPARE(tool->parent(), registry.get());
    registry.reset();
    QVERIFY(!tool);
}

void TestToolRegistry::leavesOtherToolsToTheirOwner()
{
    QObject owner;
    auto registry = std::make_unique<ToolRegistry>();
    const QPointer<AgentTool> tool = makeTool("pump", &owner);
    registry->registerTool(tool);
    QCOMPARE(tool->parent(), &owner);
    registry.reset();
    QVERIFY(tool);
}

void TestToolRegistry::offersLivingToolsInTheOrderOfRegistration()
{
    ToolRegistry registry;
    for (const char *name : {"valve", "pump", "fan", "motor"})
        registry.registerTool(makeTool(name));
    delete registry.tool("pump");
    QCOMPARE(offeredNames(registry), (QStringList{"valve", "fan", "motor"}));
    registry.registerTool(makeTool("pump"));
    QCOMPARE(offeredNames(registry), (QStringList{"valve", "fan", "motor", "pump"}));

    const ToolDefinition definition = registry.definitions().first();
    QCOMPARE(definition.description, "Does valve");
    QCOMPARE(definition.parameters, (QJsonObject{{"title", "valve"}}));
    QCOMPARE(definition.permission, ToolPermission::Write);
}

void TestToolRegistry::nameBelongsToTheToolRegisteredInASlotOfDestroyed()
{
    ToolRegistry registry;
    auto *first = makeTool("pump");
    AgentTool *second = makeTool("pump");
    // This slot learns of it before the registry.
    connect(first, &QObject::destroyed, this, [&] { QVERIFY(registry.registerTool(second)); });
    registry.registerTool(first);
    registry.registerTool(makeTool("valve"));
    delete first;
    QCOMPARE(registry.tool("pump"), second);
    QCOMPARE(offeredNames(registry), (QStringList{"valve", "pump"}));
}

void TestToolRegistry::toolMayRegisterAnotherWhenItIsAsked()
{
    class Parent : public FunctionTool
    {
    public:
        explicit Parent(ToolRegistry *registry)
            : FunctionTool("parent", {}, {}, ToolPermission::ReadOnly, {})
            , m_registry(registry)
        {}

        QString description() const override
        {
            m_registry->registerTool(makeTool("child"));
            return {};
        }

    private:
        ToolRegistry *const m_registry;
    };
    ToolRegistry registry;
    registry.registerTool(new Parent(&registry));
    QCOMPARE(offeredNames(registry), QStringList{"parent"});
    QVERIFY(registry.tool("child"));
}

void TestToolRegistry::keepsNothingOfDeletedTools()
{
    if (!heapUsage())
        QSKIP("nobody tells the heap's size here");
    ToolRegistry registry;
    const auto registerAndDelete = [&](int first, int count) {
        for (int number = first; number < first + count; ++number) {
            auto *tool = makeTool(QStringLiteral("tool%1").arg(number));
            QVERIFY(registry.registerTool(tool));
            delete tool;
        }
    };
    registerAndDelete(0, 100);
    const qint64 before = *heapUsage();
    registerAndDelete(100, 20000);
    QVERIFY(*heapUsage() - before < 20000);
    QVERIFY(registry.definitions().isEmpty());
}

QTEST_APPLESS_MAIN(TestToolRegistry)
#include "tst_toolregistry.moc"
