#include <qtagent/agenttool.h>
#include <qtagent/completionreply.h>
#include <qtagent/requestoptions.h>
#include <qtagent/simpleragchain.h>
#include <qtagent/stategraph.h>
#include <qtagent/toolcalltrace.h>

#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

// A record with a value in each field, and for each field a copy in which that one differs.
template<typename Record>
struct Sample
{
    Record record;
    QVector<Record> others;

    template<typename Field, typename Value>
    void add(Field Record::*field, const Value &value)
    {
        Record other = record;
        other.*field = value;
        others.append(other);
    }
};

const QJsonObject object{{"a", 1}};
const QJsonObject otherObject{{"a", 2}};

Sample<ChatMessage> messages()
{
    Sample<ChatMessage> sample{{"user", "Hi", "n", object, {1}, "c1"}, {}};
    sample.add(&ChatMessage::role, "tool");
    sample.add(&ChatMessage::content, "hi");
    sample.add(&ChatMessage::name, "");
    sample.add(&ChatMessage::metadata, otherObject);
    sample.add(&ChatMessage::toolCalls, QJsonArray{2});
    sample.add(&ChatMessage::toolCallId, "c2");
    return sample;
}

Sample<ToolDefinition> toolDefinitions()
{
    Sample<ToolDefinition> sample{{"n", "d", object, ToolPermission::Write}, {}};
    sample.add(&ToolDefinition::name, "N");
    sample.add(&ToolDefinition::description, "D");
    sample.add(&ToolDefinition::parameters, otherObject);
    sample.add(&ToolDefinition::permission, ToolPermission::ReadOnly);
    return sample;
}

Sample<ModelConfig> configs()
{
    Sample<ModelConfig> sample{{"n", "openai", "u", "k", "m", 0.3, 1, 2, false}, {}};
    sample.add(&ModelConfig::name, "N");
    sample.add(&ModelConfig::provider, "mock");
    sample.add(&ModelConfig::baseUrl, "U");
    sample.add(&ModelConfig::apiKey, "K");
    sample.add(&ModelConfig::model, "M");
    sample.add(&ModelConfig::temperature, 0.4);
    sample.add(&ModelConfig::maxTokens, 2);
    sample.add(&ModelConfig::timeoutMs, 3);
    sample.add(&ModelConfig::stream, true);
    return sample;
}

Sample<ModelProfiles> profiles()
{
    Sample<ModelProfiles> sample{{{ModelConfig(), ModelConfig()}, 1}, {}};
    sample.add(&ModelProfiles::profiles, QList<ModelConfig>{ModelConfig()});
    sample.add(&ModelProfiles::currentIndex, 0);
    return sample;
}

Sample<ToolResult> toolResults()
{
    Sample<ToolResult> sample{{true, object, "c", "e", object}, {}};
    sample.add(&ToolResult::success, false);
    sample.add(&ToolResult::data, otherObject);
    sample.add(&ToolResult::content, "C");
    sample.add(&ToolResult::error, "E");
    sample.add(&ToolResult::metadata, otherObject);
    return sample;
}

Sample<ToolCallTrace> traces()
{
    const QDateTime time(QDate(2024, 1, 2), QTime(3, 4));
    Sample<ToolCallTrace> sample{{"c1", "n", "failed", ToolPermission::Write, object, "o", "e", 5, time}, {}};
    sample.add(&ToolCallTrace::callId, "c2");
    sample.add(&ToolCallTrace::toolName, "N");
    sample.add(&ToolCallTrace::status, "denied");
    sample.add(&ToolCallTrace::permission, ToolPermission::ReadOnly);
    sample.add(&ToolCallTrace::arguments, otherObject);
    sample.add(&ToolCallTrace::output, "O");
    sample.add(&ToolCallTrace::error, "E");
    sample.add(&ToolCallTrace::durationMs, 6);
    sample.add(&ToolCallTrace::timestamp, time.addMSecs(1));
    return sample;
}

Sample<ApprovalRequest> approvalRequests()
{
    Sample<ApprovalRequest> sample{{"c1", "n", ToolPermission::Write, object, "r"}, {}};
    sample.add(&ApprovalRequest::approvalId, "c2");
    sample.add(&ApprovalRequest::toolName, "N");
    sample.add(&ApprovalRequest::permission, ToolPermission::ReadOnly);
    sample.add(&ApprovalRequest::arguments, otherObject);
    sample.add(&ApprovalRequest::reason, "R");
    return sample;
}

Sample<ScoredDocument> documents()
{
    Sample<ScoredDocument> sample{{"t", 1}, {}};
    sample.add(&ScoredDocument::text, "T");
    sample.add(&ScoredDocument::score, 2);
    return sample;
}

Sample<GraphStep> steps()
{
    Sample<GraphStep> sample{{"n", "r", object, object, object}, {}};
    sample.add(&GraphStep::node, "N");
    sample.add(&GraphStep::route, "R");
    sample.add(&GraphStep::before, otherObject);
    sample.add(&GraphStep::update, otherObject);
    sample.add(&GraphStep::after, otherObject);
    return sample;
}

Sample<GraphRunResult> runResults()
{
    Sample<GraphRunResult> sample{{object, {GraphStep()}, true, "n", "e"}, {}};
    sample.add(&GraphRunResult::state, otherObject);
    sample.add(&GraphRunResult::steps, QVector<GraphStep>());
    sample.add(&GraphRunResult::interrupted, false);
    sample.add(&GraphRunResult::interruptedNode, "N");
    sample.add(&GraphRunResult::error, "E");
    return sample;
}

Sample<ChatResult> chatResults()
{
    Sample<ChatResult> sample{{ChatResult::End::Failed, "t", "e", object}, {}};
    sample.add(&ChatResult::end, ChatResult::End::Canceled);
    sample.add(&ChatResult::text, "T");
    sample.add(&ChatResult::error, "E");
    sample.add(&ChatResult::response, otherObject);
    return sample;
}

Sample<TokenUsage> usages()
{
    Sample<TokenUsage> sample{{1, 2, 3}, {}};
    sample.add(&TokenUsage::prompt, -1);
    sample.add(&TokenUsage::completion, -1);
    sample.add(&TokenUsage::reasoning, -1);
    return sample;
}

Sample<ChatFailure> failures()
{
    Sample<ChatFailure> sample{{429, 299, "t", "c", "m", 5, 1}, {}};
    sample.add(&ChatFailure::httpStatus, 500);
    sample.add(&ChatFailure::networkError, 0);
    sample.add(&ChatFailure::type, "T");
    sample.add(&ChatFailure::code, "C");
    sample.add(&ChatFailure::message, "M");
    sample.add(&ChatFailure::retryAfterMs, 6);
    sample.add(&ChatFailure::shouldRetry, 0);
    return sample;
}

Sample<RequestOptions> requestOptions()
{
    Sample<RequestOptions> sample;
    sample.add(&RequestOptions::extra, object);
    sample.add(&RequestOptions::without, QStringList("k"));
    sample.add(&RequestOptions::headers, QMap<QByteArray, QByteArray>{{"N", "v"}});
    sample.add(&RequestOptions::useMaxCompletionTokens, true);
    sample.add(&RequestOptions::keepReasoning, true);
    sample.add(&RequestOptions::streamToolCalls, true);
    sample.add(&RequestOptions::askForUsage, true);
    sample.add(&RequestOptions::readThinkTags, true);
    sample.add(&RequestOptions::strictStreams, true);
    sample.add(&RequestOptions::applyTimeLimit, true);
    sample.add(&RequestOptions::query, "q");
    return sample;
}

template<typename Record>
void compare(const Sample<Record> &sample)
{
    const Record copy = sample.record;
    QVERIFY(copy == sample.record);
    QVERIFY(!(copy != sample.record));
    for (const Record &other : sample.others) {
        QVERIFY(!(other == sample.record));
        QVERIFY(other != sample.record);
    }
}

template<typename Record>
void storeInVariant(const Sample<Record> &sample)
{
    const QVariant variant = QVariant::fromValue(sample.record);
    QVERIFY(variant.template canConvert<Record>());
    QVERIFY(variant.template value<Record>() == sample.record);
    const QByteArray name = QMetaType::typeName(qMetaTypeId<Record>());
    QVERIFY2(name.startsWith("MireloQtLib::QtAgent::"), name.constData());
}

// Calls @p check with a sample of every record.
template<typename Check>
void forEveryRecord(const Check &check)
{
    check(messages());
    check(toolDefinitions());
    check(configs());
    check(profiles());
    check(toolResults());
    check(traces());
    check(approvalRequests());
    check(documents());
    check(steps());
    check(runResults());
    check(chatResults());
    check(usages());
    check(failures());
    check(requestOptions());
}

} // namespace

// What every record can do: be compared and travel in a QVariant.
class TestRecords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void recordsAreEqualWhereAllFieldsAre();
    void recordsTravelInVariants();
};

void TestRecords::recordsAreEqualWhereAllFieldsAre()
{
    forEveryRecord([](const auto &sample) { compare(sample); });
}

void TestRecords::recordsTravelInVariants()
{
    forEveryRecord([](const auto &sample) { storeInVariant(sample); });
}

QTEST_APPLESS_MAIN(TestRecords)
#include "tst_records.moc"
