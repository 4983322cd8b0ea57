// Whatever the configuration file holds, there is a usable profile.

#include "fuzztarget.h"

#include <qtagent/modelconfig.h>

#include <QFile>
#include <QTemporaryDir>

using namespace MireloQtLib::QtAgent;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const QTemporaryDir folder;
    QFile file(folder.filePath("orvane.local.json"));
    file.remove(); // cheaper than cutting the file off: a journal writes that to the disk at once
    FUZZ_REQUIRE(file.open(QIODevice::WriteOnly));
    FUZZ_REQUIRE(file.write(FuzzInput(data, size).rest()) == qint64(size));
    file.close();

    const ModelProfiles loaded = loadModelProfiles({file.fileName()}, QProcessEnvironment());
    FUZZ_REQUIRE(!loaded.profiles.isEmpty());
    FUZZ_REQUIRE(loaded.currentIndex >= 0 && loaded.currentIndex < loaded.profiles.size());
    for (const ModelConfig &profile : loaded.profiles) {
        FUZZ_REQUIRE(!profile.provider.isEmpty());
        FUZZ_REQUIRE(!profile.baseUrl.isEmpty());
        FUZZ_REQUIRE(!profile.model.isEmpty());
        FUZZ_REQUIRE(qFuzzyCompare(profile.temperature, 0.2));
    }
    return 0;
}
