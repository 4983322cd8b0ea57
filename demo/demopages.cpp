#include "demopages.h"

#include <qtagent/chatmodel.h>

#include <QStackedWidget>
#include <QTreeWidgetItem>

using namespace MireloQtLib::QtAgent;

ChatReply *askModel(const ModelProvider &provider, const QVector<ChatMessage> &messages, QObject *parent)
{
    if (ChatModel *model = provider())
        return model->chat(messages, {}, parent);
    return ChatReply::failLater(QStringLiteral("智能体模型尚未配置。"), parent);
}

void addPage(QTreeWidgetItem *group, QStackedWidget *stack, const QString &title, QWidget *page)
{
    auto *entry = new QTreeWidgetItem(group, {title});
    entry->setData(0, Qt::UserRole, stack->addWidget(page));
}
