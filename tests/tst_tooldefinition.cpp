#include <qtagent/tooldefinition.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestToolDefinition : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void permissionsHaveTheirNamesAndNeedApprovalUnlessReadOnly_data();
    void permissionsHaveTheirNamesAndNeedApprovalUnlessReadOnly();
    void permissionsPrintTheirNames();
};

void TestToolDefinition::permissionsHaveTheirNamesAndNeedApprovalUnlessReadOnly_data()
{
    QTest::addColumn<int>("value");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("approval");
    QTest::newRow("ReadOnly is free") << 0 << "ReadOnly" << false;
    QTest::newRow("Write") << 1 << "Write" << true;
    QTest::newRow("Destructive") << 2 << "Destructive" << true;
    QTest::newRow("ExternalNetwork") << 3 << "ExternalNetwork" << true;
    QTest::newRow("FileSystem") << 4 << "FileSystem" << true;
    QTest::newRow("SystemCommand") << 5 << "SystemCommand" << true;
    QTest::newRow("a value above the table") << 6 << "Unknown" << true;
    QTest::newRow("a negative value") << -1 << "Unknown" << true;
}

void TestToolDefinition::permissionsHaveTheirNamesAndNeedApprovalUnlessReadOnly()
{
    QFETCH(int, value);
    QFETCH(QString, name);
    QFETCH(bool, approval);
    QCOMPARE(permissionToString(static_cast<ToolPermission>(value)), name);
    QCOMPARE(requiresApproval(static_cast<ToolPermission>(value)), approval);
}

void TestToolDefinition::permissionsPrintTheirNames()
{
    QString text;
    QDebug(&text) << ToolPermission::FileSystem;
    QVERIFY2(text.contains("FileSystem"), qPrintable(text));
}

QTEST_APPLESS_MAIN(TestToolDefinition)
#include "tst_tooldefinition.moc"
