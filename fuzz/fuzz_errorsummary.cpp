// The summary of an error's body says something, and is short unless the server itself said more.

#include "fuzztarget.h"

#include <qtagent/chatcompletion_p.h>

#include <QJsonDocument>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int limit = 2000;

// Whether the server gave a text of its own, which is shown whole.
bool hasMessage(const QJsonObject &object)
{
    const QJsonValue error = object.value("error");
    if (error.isString())
        return true;
    if (!error.isObject())
        return !object.value("message").toString().isEmpty();
    const QJsonObject fields = error.toObject();
    return !(fields["message"].toString() + fields["type"].toString() + fields["code"].toString()).isEmpty();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray body = FuzzInput(data, size).rest();
    const QString summary = bodySummary(body);
    const QJsonDocument document = QJsonDocument::fromJson(body.trimmed());
    if (body.trimmed().isEmpty())
        FUZZ_REQUIRE(summary == "(empty response body)");
    else if (document.isNull())
        FUZZ_REQUIRE(summary.size() <= limit);
    else if (!hasMessage(document.object()))
        FUZZ_REQUIRE(summary.size() <= limit && !summary.isEmpty());
    else if (document.object().value("error").isString())
        FUZZ_REQUIRE(summary == document.object().value("error").toString());
    else
        FUZZ_REQUIRE(!summary.isEmpty());
    return 0;
}
