#ifndef ORVANE_MODELPROVIDER_H
#define ORVANE_MODELPROVIDER_H

#include <QVector>

#include <functional>

QT_BEGIN_NAMESPACE
class QObject;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {
class ChatModel;
class ChatReply;
class ToolRegistry;
struct ChatMessage;
} // namespace QtAgent
} // namespace MireloQtLib

/// Returns the model that the user chose, configured as the profile form shows at that moment, or null where
/// that model was deleted. Pages call it whenever they ask a model, never while they are built.
using ModelProvider = std::function<MireloQtLib::QtAgent::ChatModel *()>;

/// Returns the registry that all pages share, or null where it was deleted.
using ToolRegistryProvider = std::function<MireloQtLib::QtAgent::ToolRegistry *()>;

/// Asks the model of @p provider for an answer to @p messages, without tools. The reply belongs to @p parent;
/// without a model it fails with "智能体模型尚未配置。".
MireloQtLib::QtAgent::ChatReply *askModel(const ModelProvider &provider,
                                          const QVector<MireloQtLib::QtAgent::ChatMessage> &messages,
                                          QObject *parent);

#endif
