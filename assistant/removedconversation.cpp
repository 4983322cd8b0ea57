#include "removedconversation.h"

#include <qtagent/store/conversationstore.h>

using namespace MireloQtLib::QtAgent;

RemovedConversation::RemovedConversation(ConversationStore *store, QObject *parent)
    : QObject(parent)
    , m_store(store)
{}

RemovedConversation::~RemovedConversation() = default;

bool RemovedConversation::remove(const QString &id)
{
    QString error;
    const QByteArray json = m_store->toJson(id, &error);
    const QString title = error.isEmpty() ? m_store->load(id, &error).title : QString();
    if (!error.isEmpty() || !m_store->remove(id, &error)) {
        Q_EMIT failed(error);
        return false;
    }
    m_json = json;
    Q_EMIT removed(title);
    return true;
}

bool RemovedConversation::canUndo() const
{
    return !m_json.isEmpty();
}

void RemovedConversation::undo()
{
    if (!canUndo())
        return;
    QString error;
    const QString id = m_store->importJson(m_json, &error).id;
    if (id.isEmpty()) {
        Q_EMIT failed(error);
        return;
    }
    m_json.clear();
    Q_EMIT restored(id);
}
