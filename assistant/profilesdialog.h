#ifndef ORVANE_PROFILESDIALOG_H
#define ORVANE_PROFILESDIALOG_H

#include "profilesfile.h"

#include <QDialog>
#include <QPointer>

QT_BEGIN_NAMESPACE
class QLabel;
class QListView;
class QPushButton;
QT_END_NAMESPACE
class Keychain;
class ProfileForm;
class ProfileListModel;

/// Lets the user edit the profiles. Accepting it saves them to their file, and their keys to the keychain
/// where there is one; where either fails it says why and stays open. Without a keychain the file has the
/// keys.
///
/// Names: profileList, addProfile, removeProfile, profileForm and what is in it, profileFile.
class ProfilesDialog : public QDialog
{
    Q_OBJECT

public:
    /// Edits @p profiles. Those that are from no file are left out, for they are set elsewhere.
    explicit ProfilesDialog(const AssistantProfiles &profiles, QWidget *parent = nullptr);
    ~ProfilesDialog() override;

    /// Keeps the keys of the assistant's own file in @p keychain, which is not owned and may be null.
    void setKeychain(Keychain *keychain);

    /// Returns the profiles as they were saved.
    const AssistantProfiles &profiles() const;

    void accept() override;

private:
    QWidget *createList();
    QWidget *createForm();
    void setUpLayout();
    void showPlace();
    void save(const AssistantProfiles &profiles);
    void add();
    void remove();
    void showCurrent();
    void takeForm();

    AssistantProfiles m_profiles;
    QPointer<Keychain> m_keychain;
    ProfileListModel *m_model = nullptr;
    QListView *m_list = nullptr;
    QPushButton *m_remove = nullptr;
    ProfileForm *m_form = nullptr;
    QLabel *m_file = nullptr;
};

#endif
