// The text pieces of a stream do not depend on the portions in which it arrives.

#include "fuzztarget.h"

#include "../tests/support/streamtexts.h"

#include <QStringList>

using namespace MireloQtLib::QtAgent;

namespace {

// Feeds the stream in portions of the given size, the whole stream at once where that is 0.
QStringList deltasOf(const QByteArray &stream, int portion)
{
    EventStreamReader reader;
    QStringList deltas;
    QString delta;
    const int step = portion > 0 ? portion : qMax(1, int(stream.size()));
    for (int position = 0; position < stream.size(); position += step) {
        reader.append(stream.mid(position, step));
        while (takeDelta(&reader, &delta))
            deltas.append(delta);
    }
    FUZZ_REQUIRE(bodySummary(reader.body()) == bodySummary(stream));
    FUZZ_REQUIRE(reader.size() == stream.size());
    return deltas;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput input(data, size);
    const int portion = 1 + input.takeByte();
    const QByteArray stream = input.rest();
    const QStringList whole = deltasOf(stream, 0);
    FUZZ_REQUIRE(!whole.contains(QString()));
    FUZZ_REQUIRE(whole.isEmpty() || stream.contains('\n'));
    FUZZ_REQUIRE(deltasOf(stream, 1) == whole);
    FUZZ_REQUIRE(deltasOf(stream, portion) == whole);
    return 0;
}
