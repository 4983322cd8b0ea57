#ifndef ORVANE_PROFILELISTMODEL_H
#define ORVANE_PROFILELISTMODEL_H

#include "profilesfile.h"

#include <QAbstractListModel>

/// The profiles that are being edited, by name.
class ProfileListModel : public QAbstractListModel
{
    Q_OBJECT

public:
    explicit ProfileListModel(const QVector<AssistantProfile> &profiles, QObject *parent = nullptr);
    ~ProfileListModel() override;

    const QVector<AssistantProfile> &profiles() const;

    /// Replaces the profile in @p row.
    void setProfile(int row, const AssistantProfile &profile);

    /// Adds @p profile as the last one and returns its row.
    int append(const AssistantProfile &profile);

    /// Removes the profile in @p row.
    void remove(int row);

    int rowCount(const QModelIndex &parent = {}) const override;

    /// Returns the name; where there is none the model's, and where there is neither, that it has no name.
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;

private:
    QVector<AssistantProfile> m_profiles;
};

/// Returns what @p profile is called in lists.
QString shownName(const AssistantProfile &profile);

#endif
