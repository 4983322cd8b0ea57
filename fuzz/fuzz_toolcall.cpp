// A tool call that was built parses back to the same, and whatever a model sends gives a call or an error.

#include "fuzztarget.h"

#include <qtagent/chatmessage.h>
#include <qtagent/toolcallrequest_p.h>

#include <QJsonDocument>

using namespace MireloQtLib::QtAgent;

namespace {

void requireCallOrError(const QJsonObject &toolCall)
{
    QString error = "left from before";
    const ToolCallRequest request = parseToolCall(toolCall, &error);
    FUZZ_REQUIRE(error.isEmpty() != request.name.trimmed().isEmpty());
    FUZZ_REQUIRE(error.isEmpty() != request.id.isEmpty());
    FUZZ_REQUIRE(error.isEmpty() || request.arguments.isEmpty());
}

void requireSameAfterParsing(const QString &id, const QString &name, const QJsonObject &arguments)
{
    QString error;
    const ToolCallRequest request = parseToolCall(makeToolCall(id, name, arguments), &error);
    FUZZ_REQUIRE(error.isEmpty());
    FUZZ_REQUIRE(request.id == id);
    FUZZ_REQUIRE(request.name == name);
    FUZZ_REQUIRE(request.arguments == arguments);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput input(data, size);
    const QString id = QString::fromUtf8(input.takeField());
    const QString name = QString::fromUtf8(input.takeField());
    const QByteArray json = input.rest();
    const QJsonObject object = QJsonDocument::fromJson(json).object();
    const QJsonObject function{{"name", name}, {"arguments", QString::fromUtf8(json)}};

    requireCallOrError({{"id", id}, {"type", "function"}, {"function", function}});
    requireCallOrError(object);
    requireCallOrError({{"function", object}});
    if (!id.isEmpty() && !name.trimmed().isEmpty())
        requireSameAfterParsing(id, name, object);
    return 0;
}
