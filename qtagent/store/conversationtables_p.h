#ifndef MIRELOQTLIB_QTAGENT_CONVERSATIONTABLES_P_H
#define MIRELOQTLIB_QTAGENT_CONVERSATIONTABLES_P_H

#include <qtagent/store/conversationstore.h>

#include "sqliteconnection_p.h"

#include <memory>

namespace MireloQtLib {
namespace QtAgent {

class SearchQuery;

/// The tables of a ConversationStore: what stands in them, and what is written when.
///
/// A conversation has a number, and each of its texts a key, which is also the key of the text in the index:
/// the number times 2^32, plus 0 for the title and 1 and more for the messages in their order.
///
/// A function that returns false has changed nothing, and errorText() tells why.
class ConversationTables
{
public:
    ConversationTables();
    ~ConversationTables();

    SqliteConnection::Opening open(const QString &path, SqliteConnection::Look look, QString *error);

    /// Adds @p conversation, whose id and revision it sets.
    bool insert(Conversation *conversation);
    bool save(Conversation *conversation);
    bool load(const QString &id, Conversation *conversation);
    bool list(QVector<ConversationEntry> *entries);
    bool search(const QString &text, int limit, QVector<SearchHit> *hits);
    bool remove(const QString &id);

    QString errorText() const;

private:
    /// The values of a row, in the order of its columns; none where there is no row.
    using Row = QVariantList;
    struct StoredConversation;
    struct KnownConversation;
    struct FoundText;

    bool makeRows(const Conversation &conversation, const KnownConversation *known, QVector<Row> *rows);
    const KnownConversation *stillKnown(const QString &id);
    void keepKnown(const Conversation &conversation, const StoredConversation &stored);
    bool read(const QString &id, StoredConversation *stored);
    bool write(const StoredConversation &stored, const Conversation &conversation,
               const QVector<Row> &messages);
    bool writeMessages(qint64 number, const QVector<Row> &before, const QVector<Row> &after);
    bool writeMessage(qint64 key, const Row &before, const Row &after);
    bool index(qint64 key, const QString &before, const QString &after);
    bool lookUp(const SearchQuery &query, int pairsPerWord, qint64 limit, QVector<FoundText> *texts);
    bool compare(SearchQuery *query, const QVector<FoundText> &texts, int limit, QVector<SearchHit> *hits);
    bool refuse(const QString &reason);

    SqliteConnection m_connection;
    QString m_refusal;
    std::unique_ptr<const KnownConversation> m_known;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
