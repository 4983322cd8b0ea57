#include <qtagent/toolcalltrace.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestToolCallTrace : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void recordsStartEmpty();
    void tracesAreFormatted_data();
    void tracesAreFormatted();
    void recordsTravelInVariants();
};

void TestToolCallTrace::recordsStartEmpty()
{
    const ToolCallTrace trace;
    QVERIFY(trace.callId.isEmpty() && trace.toolName.isEmpty() && trace.status.isEmpty());
    QVERIFY(trace.arguments.isEmpty() && trace.output.isEmpty() && trace.error.isEmpty());
    QCOMPARE(trace.permission, ToolPermission::ReadOnly);
    QCOMPARE(trace.durationMs, 0);
    QVERIFY(!trace.timestamp.isValid());
    QCOMPARE(ApprovalRequest().permission, ToolPermission::ReadOnly);
}

void TestToolCallTrace::tracesAreFormatted_data()
{
    const QJsonObject arguments{{"deviceId", "Pump-001"}, {"limit", 3}};
    const QString input = "Input:\n{\n    \"deviceId\": \"Pump-001\",\n    \"limit\": 3\n}\n\n";
    const auto traceOf = [](const QString &status, const QJsonObject &arguments, const QString &output,
                            const QString &error, qint64 durationMs) {
        return ToolCallTrace{"c1",   "query", status,     ToolPermission::Write,       arguments,
                             output, error,   durationMs, QDateTime::currentDateTime()};
    };
    QTest::addColumn<ToolCallTrace>("trace");
    QTest::addColumn<QString>("text");
    QTest::newRow("a success has an output")
        << traceOf("success", arguments, "ok", "", 12)
        << "Tool: query\nStatus: success\nDuration: 12 ms\n" + input + "Output:\nok\n";
    QTest::newRow("a failure without content shows its error twice")
        << traceOf("failed", arguments, "no pump", "no pump", 1)
        << "Tool: query\nStatus: failed\nDuration: 1 ms\n" + input + "Output:\nno pump\nError:\nno pump\n";
    QTest::newRow("a denied call has no output")
        << traceOf("denied", arguments, "", "用户拒绝了审批。", 0)
        << "Tool: query\nStatus: denied\nDuration: 0 ms\n" + input + "Error:\n用户拒绝了审批。\n";
    QTest::newRow("a long call") << traceOf("success", {}, "", "", 5000000000)
                                 << "Tool: query\nStatus: success\nDuration: 5000000000 ms\nInput:\n{\n}\n\n";
    QTest::newRow("place markers are plain text")
        << ToolCallTrace{"", "%2 %3", "%1", ToolPermission::ReadOnly, {{"a", "%1"}}, "%1", "%2", 7, {}}
        << "Tool: %2 %3\nStatus: %1\nDuration: 7 ms\nInput:\n{\n    \"a\": \"%1\"\n}\n\n"
           "Output:\n%1\nError:\n%2\n";
}

void TestToolCallTrace::tracesAreFormatted()
{
    QFETCH(ToolCallTrace, trace);
    QFETCH(QString, text);
    QCOMPARE(formatTrace(trace), text);
}

void TestToolCallTrace::recordsTravelInVariants()
{
    ToolCallTrace trace;
    trace.toolName = "query";
    ApprovalRequest request;
    request.reason = "why";
    QCOMPARE(QVariant::fromValue(trace).value<ToolCallTrace>().toolName, "query");
    QCOMPARE(QVariant::fromValue(request).value<ApprovalRequest>().reason, "why");
}

QTEST_APPLESS_MAIN(TestToolCallTrace)
#include "tst_toolcalltrace.moc"
