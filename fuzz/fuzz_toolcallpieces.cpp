// Tool calls that are put together from pieces are whole, keep everything that came, and stand in order.

#include "fuzztarget.h"

#include <qtagent/toolcallassembly_p.h>

#include <QJsonDocument>
#include <QMap>

using namespace MireloQtLib::QtAgent;

namespace {

QJsonObject functionOf(const QJsonValue &call)
{
    return call.toObject().value(QStringLiteral("function")).toObject();
}

QString argumentsOf(const QJsonValue &call)
{
    return functionOf(call).value(QStringLiteral("arguments")).toString();
}

// The text that a piece adds to the arguments of its call.
QString addedBy(const QJsonValue &piece)
{
    const QJsonValue arguments = functionOf(piece).value(QStringLiteral("arguments"));
    if (arguments.isNull() || arguments.isUndefined() || arguments.isString())
        return arguments.toString();
    if (arguments.isObject())
        return QString::fromUtf8(QJsonDocument(arguments.toObject()).toJson(QJsonDocument::Compact));
    return QString::fromUtf8(QJsonDocument(QJsonArray{arguments}).toJson(QJsonDocument::Compact));
}

// A piece that only says the complete arguments again adds nothing.
bool isRepeated(const QJsonValue &piece, const QString &before, const QString &after)
{
    return addedBy(piece) == before && after == before && QJsonDocument::fromJson(before.toUtf8()).isObject();
}

// All calls are sound, and all of @p ids differ from what is taken.
void requireSound(const QJsonArray &calls, const QSet<QString> &taken)
{
    for (const QJsonValue &call : calls) {
        FUZZ_REQUIRE(QJsonDocument::fromJson(argumentsOf(call).toUtf8()).isObject());
        const QString id = call.toObject().value(QStringLiteral("id")).toString();
        FUZZ_REQUIRE(!id.isEmpty());
        FUZZ_REQUIRE(!taken.contains(id) || !id.startsWith(QStringLiteral("qa")));
        FUZZ_REQUIRE(!call.toObject().contains(QStringLiteral("index")));
    }
}

} // namespace

// Each line is the "tool_calls" of an event.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QList<QByteArray> lines = FuzzInput(data, size).rest().split('\n');
    ToolCallAssembly assembly({QStringLiteral("add"), QStringLiteral("now"), QStringLiteral("add_numbers")});
    QMap<int, QString> latest;
    for (const QByteArray &line : lines) {
        assembly.beginEvent();
        const QJsonArray pieces = QJsonDocument::fromJson(line).array();
        for (const QJsonValue &piece : pieces) {
            const int number = assembly.addPiece(piece);
            FUZZ_REQUIRE((number >= 0) == piece.isObject());
            if (number < 0)
                continue;
            // Nothing that came for a call goes away, and numbers are given in order of arrival.
            FUZZ_REQUIRE(number <= latest.size());
            FUZZ_REQUIRE(assembly.arguments(number) == latest.value(number) + addedBy(piece)
                         || isRepeated(piece, latest.value(number), assembly.arguments(number)));
            latest.insert(number, assembly.arguments(number));
        }
    }
    FUZZ_REQUIRE(assembly.isEmpty() == latest.isEmpty());
    if (!assembly.isComplete())
        return 0;
    const QSet<QString> taken{QStringLiteral("qa0000001"), QStringLiteral("qa0000003")};
    const QJsonArray calls = assembly.calls(taken);
    FUZZ_REQUIRE(calls.size() == latest.size());
    requireSound(calls, taken);

    // The same pieces under an index and an id each give the same calls in the order of the index.
    ToolCallAssembly again;
    for (int number = int(calls.size()) - 1; number >= 0; --number) {
        QJsonObject piece = calls.at(number).toObject();
        piece.insert(QStringLiteral("index"), number);
        again.addPiece(piece);
    }
    FUZZ_REQUIRE(again.isComplete());
    FUZZ_REQUIRE(again.calls({}) == calls);
    return 0;
}
