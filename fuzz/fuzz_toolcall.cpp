// A tool call that was built parses back to the same, and whatever a model sends gives a call or an error.

#include "fuzztarget.h"

#include <qtagent/chatmessage.h>
#include <qtagent/toolcallrequest_p.h>

#include <QJsonDocument>

using namespace MireloQtLib::QtAgent;

namespace {

void requireCallOrError(const QJsonObject &toolCall)
{
    const PendingCall call = parseToolCall(toolCall);
    FUZZ_REQUIRE(!call.id.isEmpty());
    FUZZ_REQUIRE(!call.error.isEmpty() || !call.name.trimmed().isEmpty());
    FUZZ_REQUIRE(call.error.isEmpty() || call.arguments.isEmpty());
}

void requireSameAfterParsing(const QString &id, const QString &name, const QJsonObject &arguments)
{
    const PendingCall call = parseToolCall(makeToolCall(id, name, arguments));
    FUZZ_REQUIRE(call.error.isEmpty());
    FUZZ_REQUIRE(call.id == id);
    FUZZ_REQUIRE(call.name == name);
    // As they are written: Qt 5 compares the byte-order mark before a key, which it shows nobody.
    FUZZ_REQUIRE(QJsonDocument(call.arguments).toJson() == QJsonDocument(arguments).toJson());
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
