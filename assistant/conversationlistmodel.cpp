#include "conversationlistmodel.h"

#include <qtagent/store/conversationstore.h>

#include <QSet>

#include <algorithm>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int fewestHits = 100;
constexpr int mostHits = 10000;

} // namespace

ConversationListModel::ConversationListModel(ConversationStore *store, QObject *parent)
    : QAbstractListModel(parent)
    , m_store(store)
{}

ConversationListModel::~ConversationListModel() = default;

void ConversationListModel::setSearchText(const QString &text)
{
    m_searchText = text;
    QString error;
    const QVector<Row> rows = currentRows(&error);
    if (!error.isEmpty())
        Q_EMIT failed(error);
    else
        setRows(rows);
}

QModelIndex ConversationListModel::indexOf(const QString &id) const
{
    const int row = rowOf(id, 0);
    return row < 0 ? QModelIndex() : index(row);
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
    QString error;
    const QVector<Row> rows = currentRows(&error);
    if (!error.isEmpty())
        Q_EMIT failed(error);
    else if (m_rows.isEmpty())
        setRows(rows);
    else
        takeRows(rows);
}

void ConversationListModel::setRows(const QVector<Row> &rows)
{
    beginResetModel();
    m_rows = rows;
    endResetModel();
}

// Row by row, so that a view keeps what is selected and a title that is being edited.
void ConversationListModel::takeRows(const QVector<Row> &rows)
{
    removeOthers(rows);
    for (int i = 0; i < int(rows.size()); ++i) {
        const int before = rowOf(rows.at(i).id, i);
        if (before < 0) {
            beginInsertRows({}, i, i);
            m_rows.insert(i, rows.at(i));
            endInsertRows();
        } else if (before > i) {
            beginMoveRows({}, before, before, {}, i);
            m_rows.move(before, i);
            endMoveRows();
        }
        if (m_rows.at(i) != rows.at(i)) {
            m_rows[i] = rows.at(i);
            Q_EMIT dataChanged(index(i), index(i));
        }
    }
}

void ConversationListModel::removeOthers(const QVector<Row> &rows)
{
    QSet<QString> ids;
    for (const Row &row : rows)
        ids.insert(row.id);
    for (int i = rowCount() - 1; i >= 0; --i) {
        if (ids.contains(m_rows.at(i).id))
            continue;
        beginRemoveRows({}, i, i);
        m_rows.removeAt(i);
        endRemoveRows();
    }
}

int ConversationListModel::rowOf(const QString &id, int from) const
{
    const auto row =
        std::find_if(m_rows.cbegin() + from, m_rows.cend(), [&id](const Row &row) { return row.id == id; });
    return row == m_rows.cend() ? -1 : int(row - m_rows.cbegin());
}

QVector<ConversationListModel::Row> ConversationListModel::currentRows(QString *error) const
{
    if (!m_store)
        return {};
    return m_searchText.trimmed().isEmpty() ? allRows(error) : foundRows(error);
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
    const QHash<QString, SearchHit> firstHits = this->firstHits(error);
    QVector<Row> rows = error->isEmpty() ? allRows(error) : QVector<Row>();
    const auto isMissing = [&firstHits](const Row &row) { return !firstHits.contains(row.id); };
    rows.erase(std::remove_if(rows.begin(), rows.end(), isMissing), rows.end());
    for (Row &row : rows) {
        const SearchHit hit = firstHits.value(row.id);
        row.messageIndex = hit.messageIndex;
        row.excerpt = hit.messageIndex < 0 ? QString() : hit.excerpt;
    }
    return rows;
}

// A conversation may have many places. More are looked up until they are all that there are.
QHash<QString, SearchHit> ConversationListModel::firstHits(QString *error) const
{
    QVector<SearchHit> hits;
    for (int limit = fewestHits; limit <= mostHits; limit *= 10) {
        hits = m_store->search(m_searchText, limit, error);
        if (hits.size() < limit)
            break;
    }
    QHash<QString, SearchHit> result;
    for (const SearchHit &hit : hits) {
        if (!result.contains(hit.conversationId))
            result.insert(hit.conversationId, hit);
    }
    return result;
}

bool operator!=(const ConversationListModel::Row &left, const ConversationListModel::Row &right)
{
    return left.id != right.id || left.title != right.title || left.changed != right.changed
        || left.excerpt != right.excerpt || left.messageIndex != right.messageIndex;
}
