#include "conversationlistmodel.h"

#include <qtagent/store/conversationstore.h>

#include <QHash>

#include <algorithm>

using namespace MireloQtLib::QtAgent;

ConversationListModel::ConversationListModel(ConversationStore *store, QObject *parent)
    : QAbstractListModel(parent)
    , m_store(store)
{}

ConversationListModel::~ConversationListModel() = default;

void ConversationListModel::setSearchText(const QString &text)
{
    m_searchText = text;
    refresh();
}

QModelIndex ConversationListModel::indexOf(const QString &id) const
{
    const auto row =
        std::find_if(m_rows.cbegin(), m_rows.cend(), [&id](const Row &row) { return row.id == id; });
    return row == m_rows.cend() ? QModelIndex() : index(static_cast<int>(row - m_rows.cbegin()));
}

int ConversationListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

QVariant ConversationListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid))
        return {};
    const Row &row = m_rows.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        return row.title;
    case IdRole:
        return row.id;
    case ChangedRole:
        return row.changed;
    case ExcerptRole:
        return row.excerpt;
    case MessageIndexRole:
        return row.messageIndex;
    default:
        return {};
    }
}

Qt::ItemFlags ConversationListModel::flags(const QModelIndex &index) const
{
    const Qt::ItemFlags flags = QAbstractListModel::flags(index);
    return index.isValid() ? flags | Qt::ItemIsEditable | Qt::ItemNeverHasChildren : flags;
}

bool ConversationListModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    const QString title = value.toString().simplified();
    if (role != Qt::EditRole || !index.isValid() || title.isEmpty())
        return false;
    Q_EMIT renameRequested(index.data(IdRole).toString(), title);
    return true;
}

void ConversationListModel::refresh()
{
    if (!m_store)
        return;
    QString error;
    const QVector<Row> rows = m_searchText.trimmed().isEmpty() ? allRows(&error) : foundRows(&error);
    if (!error.isEmpty()) {
        Q_EMIT failed(error);
    } else if (hasSameConversations(rows)) {
        m_rows = rows;
        if (!m_rows.isEmpty())
            Q_EMIT dataChanged(index(0), index(rowCount() - 1));
    } else {
        beginResetModel();
        m_rows = rows;
        endResetModel();
    }
}

QVector<ConversationListModel::Row> ConversationListModel::allRows(QString *error) const
{
    QVector<Row> rows;
    for (const ConversationEntry &entry : m_store->list(error))
        rows.append({entry.id, entry.title, entry.changed.toLocalTime(), {}, -1});
    return rows;
}

// One row a conversation, with its first place.
QVector<ConversationListModel::Row> ConversationListModel::foundRows(QString *error) const
{
    const QVector<SearchHit> hits = m_store->search(m_searchText, 100, error);
    QHash<QString, SearchHit> firstHits;
    for (const SearchHit &hit : hits) {
        if (!firstHits.contains(hit.conversationId))
            firstHits.insert(hit.conversationId, hit);
    }
    QVector<Row> rows = error->isEmpty() ? allRows(error) : QVector<Row>();
    const auto isMissing = [&firstHits](const Row &row) { return !firstHits.contains(row.id); };
    rows.erase(std::remove_if(rows.begin(), rows.end(), isMissing), rows.end());
    for (Row &row : rows) {
        const SearchHit &hit = firstHits[row.id];
        row.messageIndex = hit.messageIndex;
        row.excerpt = hit.messageIndex < 0 ? QString() : hit.excerpt;
    }
    return rows;
}

bool ConversationListModel::hasSameConversations(const QVector<Row> &rows) const
{
    return std::equal(rows.cbegin(), rows.cend(), m_rows.cbegin(), m_rows.cend(),
                      [](const Row &left, const Row &right) { return left.id == right.id; });
}
