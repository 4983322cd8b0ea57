#ifndef ORVANE_REMOVEDCONVERSATION_H
#define ORVANE_REMOVEDCONVERSATION_H

#include <QByteArray>
#include <QObject>

namespace MireloQtLib {
namespace QtAgent {
class ConversationStore;
}
} // namespace MireloQtLib

/// Removes conversations from a store, and brings the last one back.
class RemovedConversation : public QObject
{
    Q_OBJECT

public:
    /// Works on @p store, which is not owned and outlives it.
    explicit RemovedConversation(MireloQtLib::QtAgent::ConversationStore *store, QObject *parent = nullptr);
    ~RemovedConversation() override;

    /// Removes the conversation @p id. Returns false, with failed(), where it cannot be removed.
    bool remove(const QString &id);

    /// Returns whether there is one to bring back.
    bool canUndo() const;

public Q_SLOTS:
    /// Brings the conversation that was removed last back, under a new id. Does nothing where there is none.
    void undo();

Q_SIGNALS:
    /// A conversation was removed, which undo() brings back.
    void removed(const QString &title);

    /// A conversation is back as @p id.
    void restored(const QString &id);

    void failed(const QString &error);

private:
    MireloQtLib::QtAgent::ConversationStore *const m_store;
    QByteArray m_json;
};

#endif
