#include <qtagent/agentexecutor.h>
#include <qtagent/deepseekmodel.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/runnablechain.h>
#include <qtagent/simpleragchain.h>
#include <qtagent/stategraph.h>
#include <qtagent/widgets/agentchatpanel.h>
#include <qtagent/widgets/approvaldialog.h>
#include <qtagent/widgets/modelconfigwidget.h>
#include <qtagent/widgets/toolcalltraceview.h>

#include <QMetaMethod>
#include <QtTest>

#include <cstring>

using namespace MireloQtLib::QtAgent;

Q_DECLARE_METATYPE(const QMetaObject *)

// The classes of version 0.1 have kept their signals, slots, virtual functions and fields, in number and
// order. Programs count on them: they derive from the classes and list the fields of the records.
class TestStableInterface : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void classesKeepTheirMetaObject_data();
    void classesKeepTheirMetaObject();
    void classesKeepTheirVirtualFunctions_data();
    void classesKeepTheirVirtualFunctions();
    void recordsKeepTheirFields();
};

namespace {

template<typename Class>
struct Probe : Class
{
    virtual void added() {}
};

// How many entries the table of virtual functions has: the number of the first that is added to it. A pointer
// to a virtual member begins with its place in the table where the ABI is Itanium's.
template<typename Class>
int virtualFunctions()
{
    void (Probe<Class>::*const added)() = &Probe<Class>::added;
    std::ptrdiff_t place = 0;
    std::memcpy(&place, &added, sizeof place);
    return int(place / std::ptrdiff_t(sizeof(void *)));
}

template<typename Class, typename Base>
void addVirtualFunctions(int expected)
{
    QTest::newRow(Class::staticMetaObject.className())
        << virtualFunctions<Class>() - virtualFunctions<Base>() << expected;
}

} // namespace

void TestStableInterface::classesKeepTheirMetaObject_data()
{
    QTest::addColumn<const QMetaObject *>("meta");
    QTest::addColumn<QStringList>("methods");
    const auto row = [](const QMetaObject &meta, const QStringList &methods) {
        QTest::newRow(meta.className()) << &meta << methods;
    };
    row(ChatReply::staticMetaObject,
        {"signal deltaReceived(QString)", "signal responseReceived(QJsonObject)", "signal finished(QString)",
         "signal failed(QString)", "signal canceled()", "slot cancel()"});
    row(AgentExecutor::staticMetaObject,
        {"signal assistantDelta(QString)", "signal assistantFinished(QString)",
         "signal traceAdded(MireloQtLib::QtAgent::ToolCallTrace)",
         "signal approvalRequired(MireloQtLib::QtAgent::ApprovalRequest)", "signal failed(QString)",
         "slot cancel()", "slot resolveApproval(QString,bool)"});
    row(AgentChatPanel::staticMetaObject,
        {"signal sendRequested(QString)", "signal stopRequested()", "signal clearRequested()"});
    row(ModelConfigWidget::staticMetaObject, {"signal configChanged()"});
    row(ChatModel::staticMetaObject, {});
    row(MockChatModel::staticMetaObject, {});
    row(OpenAICompatibleModel::staticMetaObject, {});
    row(DeepSeekModel::staticMetaObject, {});
    row(AgentTool::staticMetaObject, {});
    row(FunctionTool::staticMetaObject, {});
    row(ToolRegistry::staticMetaObject, {});
    row(RunnableChain::staticMetaObject, {});
    row(SimpleRagChain::staticMetaObject, {});
    row(ToolCallTraceView::staticMetaObject, {});
    row(ApprovalDialog::staticMetaObject, {});
}

void TestStableInterface::classesKeepTheirMetaObject()
{
    QFETCH(const QMetaObject *, meta);
    QStringList signatures;
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        const bool isSignal = method.methodType() == QMetaMethod::Signal;
        signatures.append((isSignal ? "signal " : "slot ") + QString::fromLatin1(method.methodSignature()));
    }
    QTEST(signatures, "methods");
    QCOMPARE(meta->propertyCount() - meta->propertyOffset(), 0);
    QCOMPARE(meta->enumeratorCount() - meta->enumeratorOffset(), 0);
}

void TestStableInterface::classesKeepTheirVirtualFunctions_data()
{
#if !defined(__GNUC__) || !defined(__x86_64__)
    QSKIP("Known for one ABI only.");
#endif
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("expected");
    addVirtualFunctions<ChatReply, QObject>(0);
    addVirtualFunctions<ChatModel, QObject>(1);
    addVirtualFunctions<MockChatModel, ChatModel>(0);
    addVirtualFunctions<OpenAICompatibleModel, ChatModel>(0);
    addVirtualFunctions<DeepSeekModel, OpenAICompatibleModel>(0);
    addVirtualFunctions<AgentTool, QObject>(5);
    addVirtualFunctions<FunctionTool, AgentTool>(0);
    addVirtualFunctions<ToolRegistry, QObject>(0);
    addVirtualFunctions<AgentExecutor, QObject>(0);
    addVirtualFunctions<RunnableChain, QObject>(0);
    addVirtualFunctions<SimpleRagChain, QObject>(0);
    addVirtualFunctions<AgentChatPanel, QWidget>(0);
    addVirtualFunctions<ModelConfigWidget, QWidget>(0);
    addVirtualFunctions<ApprovalDialog, QDialog>(0);
    addVirtualFunctions<ToolCallTraceView, QTableWidget>(0);
}

void TestStableInterface::classesKeepTheirVirtualFunctions()
{
    QFETCH(int, count);
    QTEST(count, "expected");
}

// Each line compiles for exactly this number of fields, and its values for their types and order.
void TestStableInterface::recordsKeepTheirFields()
{
    const QString text;
    const QJsonObject object;
    const ChatMessage message{text, text, text, object, QJsonArray(), text};
    const auto &[role, content, name, metadata, toolCalls, toolCallId] = message;
    const ToolDefinition definition{text, text, object, ToolPermission::Write};
    const auto &[tool, description, parameters, permission] = definition;
    const ModelConfig config{text, text, text, text, text, 0.5, 1, 2, true};
    const auto &[profile, provider, baseUrl, apiKey, model, temperature, maxTokens, timeoutMs, stream] =
        config;
    const ToolResult toolResult{true, object, text, text, object};
    const auto &[success, data, resultText, resultError, resultMetadata] = toolResult;
    const ToolCallTrace trace{text, text, text, ToolPermission::Write, object, text, text, 1, QDateTime()};
    const auto &[callId, called, status, had, arguments, output, traceError, durationMs, timestamp] = trace;
    const ApprovalRequest request{text, text, ToolPermission::Write, object, text};
    const auto &[approvalId, asked, needed, shown, reason] = request;
    const ScoredDocument document{text, 1};
    const auto &[documentText, score] = document;
    const GraphStep step{text, text, object, object, object};
    const auto &[node, route, before, update, after] = step;
    const GraphRunResult runResult{object, {step}, true, text, text};
    const auto &[state, steps, interrupted, interruptedNode, runError] = runResult;

    QVERIFY(&role == &message.role && &toolCallId == &message.toolCallId);
    QVERIFY(&tool == &definition.name && &permission == &definition.permission);
    QVERIFY(&profile == &config.name && &stream == &config.stream);
    QVERIFY(&success == &toolResult.success && &resultMetadata == &toolResult.metadata);
    QVERIFY(&callId == &trace.callId && &timestamp == &trace.timestamp);
    QVERIFY(&approvalId == &request.approvalId && &reason == &request.reason);
    QVERIFY(&documentText == &document.text && &score == &document.score);
    QVERIFY(&node == &step.node && &after == &step.after);
    QVERIFY(&state == &runResult.state && &runError == &runResult.error);
}

QTEST_APPLESS_MAIN(TestStableInterface)
#include "tst_stableinterface.moc"
