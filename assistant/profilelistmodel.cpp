#include "profilelistmodel.h"

#include "librarytexts.h"

#include <QCoreApplication>

ProfileListModel::ProfileListModel(const QVector<AssistantProfile> &profiles, QObject *parent)
    : QAbstractListModel(parent)
    , m_profiles(profiles)
{}

ProfileListModel::~ProfileListModel() = default;

const QVector<AssistantProfile> &ProfileListModel::profiles() const
{
    return m_profiles;
}

void ProfileListModel::setProfile(int row, const AssistantProfile &profile)
{
    m_profiles[row] = profile;
    Q_EMIT dataChanged(index(row), index(row));
}

int ProfileListModel::append(const AssistantProfile &profile)
{
    const int row = rowCount();
    beginInsertRows({}, row, row);
    m_profiles.append(profile);
    endInsertRows();
    return row;
}

void ProfileListModel::remove(int row)
{
    beginRemoveRows({}, row, row);
    m_profiles.remove(row);
    endRemoveRows();
}

int ProfileListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_profiles.size());
}

QVariant ProfileListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid) || role != Qt::DisplayRole)
        return {};
    return shownName(m_profiles.at(index.row()));
}

QString shownName(const AssistantProfile &profile)
{
    if (!profile.config.name.isEmpty())
        return shownText(profile.config.name);
    return profile.config.model.isEmpty() ? QCoreApplication::translate("ProfileListModel", "未命名")
                                          : profile.config.model;
}
