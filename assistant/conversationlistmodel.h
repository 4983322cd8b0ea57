#ifndef ORVANE_CONVERSATIONLISTMODEL_H
#define ORVANE_CONVERSATIONLISTMODEL_H

#include <QAbstractListModel>
#include <QDateTime>
#include <QHash>
#include <QPointer>
#include <QString>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {
class ConversationStore;
struct SearchHit;
} // namespace QtAgent
} // namespace MireloQtLib

/// The conversations of a store, the newest change first; or those in which words were found.
///
/// Call refresh() after each change of the store. Rows stay, and those that change their place move, so that
/// a view keeps what is selected while an answer is saved every second. Another search begins anew:
/// modelReset().
class ConversationListModel : public QAbstractListModel
{
    Q_OBJECT

public:
    /// What a row tells besides the title, which is Qt::DisplayRole and Qt::EditRole.
    enum Role {
        IdRole = Qt::UserRole, ///< what the store takes
        ChangedRole,           ///< when it was changed last, in local time
        ExcerptRole,           ///< the text around the word that was found, else empty
        MessageIndexRole,      ///< the message in which it was found, or -1
    };

    /// Lists what @p store has, which is not owned.
    explicit ConversationListModel(MireloQtLib::QtAgent::ConversationStore *store, QObject *parent = nullptr);
    ~ConversationListModel() override;

    /// Lists the conversations that have every word of @p text, or all where it has none. At most 10,000
    /// places are looked at, the newest first.
    void setSearchText(const QString &text);

    /// Returns the row of the conversation @p id, or an invalid index.
    QModelIndex indexOf(const QString &id) const;

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;

    /// Lets titles be edited.
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    /// Asks for another title with renameRequested(). Returns whether @p value is one.
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;

public Q_SLOTS:
    /// Reads the store again.
    void refresh();

Q_SIGNALS:
    /// The title of the conversation @p id was edited, and is not blank.
    void renameRequested(const QString &id, const QString &title);

    /// The store could not be read; the list is as it was.
    void failed(const QString &error);

private:
    struct Row
    {
        QString id;
        QString title;
        QDateTime changed;
        QString excerpt;
        int messageIndex = -1;
    };
    friend bool operator!=(const Row &left, const Row &right);

    void setRows(const QVector<Row> &rows);
    void takeRows(const QVector<Row> &rows);
    void removeOthers(const QVector<Row> &rows);
    int rowOf(const QString &id, int from) const;
    QVector<Row> currentRows(QString *error) const;
    QVector<Row> allRows(QString *error) const;
    QVector<Row> foundRows(QString *error) const;
    QHash<QString, MireloQtLib::QtAgent::SearchHit> firstHits(QString *error) const;

    QPointer<MireloQtLib::QtAgent::ConversationStore> m_store;
    QString m_searchText;
    QVector<Row> m_rows;
};

#endif
