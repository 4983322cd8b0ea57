#include "deepseekmodel.h"

namespace MireloQtLib {
namespace QtAgent {

namespace {

ModelConfig withDeepSeekDefaults(ModelConfig config)
{
    const QString deepSeek = QStringLiteral("deepseek");
    if (config.provider.isEmpty())
        config.provider = deepSeek;
    if (config.baseUrl.trimmed().isEmpty())
        config.baseUrl = defaultBaseUrl(deepSeek);
    if (config.model.trimmed().isEmpty())
        config.model = defaultModelName(deepSeek);
    return config;
}

} // namespace

DeepSeekModel::DeepSeekModel(QObject *parent)
    : OpenAICompatibleModel(parent)
{
    // Without it the service refuses the request that follows a tool.
    m_alwaysKeepsReasoning = true;
    m_defaultBaseUrl = defaultBaseUrl(QStringLiteral("deepseek"));
}

DeepSeekModel::~DeepSeekModel() = default;

ChatReply *DeepSeekModel::chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                               QObject *parent)
{
    setConfig(withDeepSeekDefaults(config()));
    return OpenAICompatibleModel::chat(messages, tools, parent);
}

} // namespace QtAgent
} // namespace MireloQtLib
