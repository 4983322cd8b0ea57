#ifndef MIRELOQTLIB_QTAGENT_DEEPSEEKMODEL_H
#define MIRELOQTLIB_QTAGENT_DEEPSEEKMODEL_H

#include <qtagent/openaicompatiblemodel.h>

namespace MireloQtLib {
namespace QtAgent {

/// The OpenAI-compatible client with DeepSeek's defaults: a key is all that its profile needs.
///
/// @code
/// ModelConfig config;
/// config.apiKey = key;
/// auto *model = new DeepSeekModel(this);
/// model->setConfig(config);
/// ChatReply *reply = model->chat({ChatMessage::user(question)}, {}, this);
/// reply->whenEnded(this, [this](const ChatResult &result) { showEnd(result); });
/// @endcode
///
/// The reasoning that came with tool calls goes back with them, whatever RequestOptions::keepReasoning says:
/// the service asks for it. Like every model it is used on the thread that it belongs to.
class QTAGENT_EXPORT DeepSeekModel : public OpenAICompatibleModel
{
    Q_OBJECT

public:
    /// Creates a model with a default ModelConfig.
    explicit DeepSeekModel(QObject *parent = nullptr);
    ~DeepSeekModel() override;

    /// Fills an empty provider, address or model of config() with DeepSeek's, which config() keeps, and
    /// sends the request.
    ChatReply *chat(const QVector<ChatMessage> &messages, const QVector<ToolDefinition> &tools,
                    QObject *parent) override;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
