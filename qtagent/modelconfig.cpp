#include "modelconfig.h"

namespace MireloQtLib {
namespace QtAgent {

bool operator==(const ModelConfig &left, const ModelConfig &right)
{
    return left.name == right.name && left.provider == right.provider && left.baseUrl == right.baseUrl
        && left.apiKey == right.apiKey && left.model == right.model && left.temperature == right.temperature
        && left.maxTokens == right.maxTokens && left.timeoutMs == right.timeoutMs
        && left.stream == right.stream;
}

} // namespace QtAgent
} // namespace MireloQtLib
