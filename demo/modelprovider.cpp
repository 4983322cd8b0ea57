#include "modelprovider.h"

#include <qtagent/chatmodel.h>

using namespace MireloQtLib::QtAgent;

ChatReply *askModel(const ModelProvider &provider, const QVector<ChatMessage> &messages, QObject *parent)
{
    if (ChatModel *model = provider())
        return model->chat(messages, {}, parent);
    return ChatReply::failLater(QStringLiteral("智能体模型尚未配置。"), parent);
}
