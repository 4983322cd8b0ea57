#include "checkpointstorage.h"

namespace MireloQtLib {
namespace QtAgent {

bool operator==(const Checkpoint &left, const Checkpoint &right)
{
    return left.threadId == right.threadId && left.state == right.state && left.next == right.next
        && left.interrupted == right.interrupted && left.attempt == right.attempt
        && left.fingerprint == right.fingerprint && left.savedAtMs == right.savedAtMs;
}

CheckpointStorage::~CheckpointStorage() = default;

} // namespace QtAgent
} // namespace MireloQtLib
