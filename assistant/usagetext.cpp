#include "usagetext.h"

#include <qtagent/store/conversationstore.h>

#include <QCoreApplication>
#include <QLocale>

using namespace MireloQtLib::QtAgent;

QString usageText(const Conversation &conversation)
{
    qint64 total = 0;
    qint64 last = -1;
    for (const StoredMessage &message : conversation.messages) {
        total += qMax<qint64>(0, message.promptTokens) + qMax<qint64>(0, message.completionTokens);
        if (message.message.role == QLatin1String("assistant"))
            last = message.completionTokens;
    }
    if (total == 0)
        return {};
    const QString answer = last < 0 ? QStringLiteral("–") : QLocale().toString(last);
    return QCoreApplication::translate("UsageText", "回答 %1 令牌，对话共 %2 令牌")
        .arg(answer, QLocale().toString(total));
}
