// A parsed text gives an object or an error, and a fence around an object changes nothing.

#include "fuzztarget.h"

#include <qtagent/outputparsers.h>

#include <QJsonDocument>

using namespace MireloQtLib::QtAgent;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput input(data, size);
    const QString field = QString::fromUtf8(input.takeField());
    const QString text = QString::fromUtf8(input.rest());

    QString error = "left from before";
    const QJsonObject object = JsonOutputParser::parseObject(text, &error);
    FUZZ_REQUIRE(error.isEmpty() || object.isEmpty());
    FUZZ_REQUIRE(JsonOutputParser::parseObject(text) == object);

    QString requiredError;
    const QJsonObject complete = JsonOutputParser({field}).parse(text, &requiredError);
    const bool isComplete = error.isEmpty() && object.contains(field);
    FUZZ_REQUIRE(requiredError.isEmpty() == isComplete);
    FUZZ_REQUIRE(complete == (isComplete ? object : QJsonObject()));

    if (error.isEmpty()) {
        const QString compact = QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
        for (const QString &end : {QString("\n```"), QString("```")}) {
            QString fenceError;
            FUZZ_REQUIRE(JsonOutputParser::parseObject("```json\n" + compact + end, &fenceError) == object);
            FUZZ_REQUIRE(fenceError.isEmpty());
        }
    }
    return 0;
}
