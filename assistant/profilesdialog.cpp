#include "profilesdialog.h"

#include "keychain.h"
#include "profileform.h"
#include "profilekeys.h"
#include "profilelistmodel.h"

#include <QDialogButtonBox>
#include <QDir>
#include <QItemSelectionModel>
#include <QLabel>
#include <QListView>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

ProfilesDialog::ProfilesDialog(const AssistantProfiles &profiles, QWidget *parent)
    : QDialog(parent)
    , m_profiles(profiles)
{
    if (!profiles.isFromFile) {
        m_profiles.profiles.clear();
        m_profiles.currentIndex = 0;
    }
    setWindowTitle(tr("模型"));
    m_model = new ProfileListModel(m_profiles.profiles, this);
    setUpLayout();
    if (m_profiles.profiles.isEmpty())
        add();
    m_list->setCurrentIndex(m_model->index(qBound(0, m_profiles.currentIndex, m_model->rowCount() - 1)));
    showCurrent();
}

ProfilesDialog::~ProfilesDialog() = default;

QWidget *ProfilesDialog::createList()
{
    m_list = new QListView;
    m_list->setObjectName(QStringLiteral("profileList"));
    m_list->setAccessibleName(tr("模型"));
    m_list->setModel(m_model);
    auto *addButton = new QPushButton(tr("添加(&D)"));
    addButton->setObjectName(QStringLiteral("addProfile"));
    m_remove = new QPushButton(tr("删除(&R)"));
    m_remove->setObjectName(QStringLiteral("removeProfile"));
    connect(addButton, &QPushButton::clicked, this, &ProfilesDialog::add);
    connect(m_remove, &QPushButton::clicked, this, &ProfilesDialog::remove);
    connect(m_list->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &ProfilesDialog::showCurrent);

    auto *widget = new QWidget;
    auto *layout = new QVBoxLayout(widget);
    layout->setContentsMargins({});
    layout->addWidget(m_list, 1);
    layout->addWidget(addButton);
    layout->addWidget(m_remove);
    return widget;
}

QWidget *ProfilesDialog::createForm()
{
    m_form = new ProfileForm;
    m_form->setObjectName(QStringLiteral("profileForm"));
    connect(m_form, &ProfileForm::changed, this, &ProfilesDialog::takeForm);
    auto *area = new QScrollArea;
    area->setFrameShape(QFrame::NoFrame);
    area->setWidgetResizable(true);
    area->setWidget(m_form);
    return area;
}

void ProfilesDialog::setUpLayout()
{
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &ProfilesDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &ProfilesDialog::reject);
    m_file = new QLabel;
    m_file->setObjectName(QStringLiteral("profileFile"));
    m_file->setTextFormat(Qt::PlainText);
    m_file->setWordWrap(true);
    showPlace();

    auto *row = new QHBoxLayout;
    row->addWidget(createList(), 1);
    row->addWidget(createForm(), 3);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(row, 1);
    layout->addWidget(m_file);
    layout->addWidget(buttons);
    resize(680, 540);
}

void ProfilesDialog::showPlace()
{
    const QString path = QDir::toNativeSeparators(m_profiles.path);
    QString place = m_keychain ? tr("保存在 %1，密钥保存在系统的密钥环中。").arg(path)
                               : tr("保存在 %1，密钥也在其中，只有您可以读取。").arg(path);
    if (m_profiles.isFileDamaged)
        place += tr("那里的文件已损坏，保存时会改名保留。");
    m_file->setText(place);
}

void ProfilesDialog::setKeychain(Keychain *keychain)
{
    m_keychain = keychain && keychain->isBuilt() && m_profiles.isOwnFile ? keychain : nullptr;
    showPlace();
}

const AssistantProfiles &ProfilesDialog::profiles() const
{
    return m_profiles;
}

void ProfilesDialog::accept()
{
    AssistantProfiles edited = m_profiles;
    edited.profiles = m_model->profiles();
    if (!m_keychain)
        return save(withoutEntries(edited));
    setEnabled(false);
    storeKeys(m_keychain, edited, this, [this](const AssistantProfiles &stored, const QString &error) {
        setEnabled(true);
        if (error.isEmpty())
            return save(stored);
        m_keychain.clear();
        m_file->setText(tr("系统的密钥环不能使用：%1\n再保存一次，密钥就写入 %2，只有您可以读取。")
                            .arg(error, QDir::toNativeSeparators(m_profiles.path)));
    });
}

void ProfilesDialog::save(const AssistantProfiles &profiles)
{
    QString error;
    if (!saveProfiles(profiles, &error))
        return m_file->setText(tr("无法保存到 %1：%2").arg(QDir::toNativeSeparators(profiles.path), error));
    for (const QString &entry : entriesOf(m_profiles)) {
        if (m_keychain && !entriesOf(profiles).contains(entry))
            m_keychain->remove(entry);
    }
    const bool isOwnFile = m_profiles.isOwnFile;
    m_profiles =
        profiles.profiles.isEmpty() ? loadProfiles({profiles.path}, QProcessEnvironment()) : profiles;
    m_profiles.isFromFile = !profiles.profiles.isEmpty();
    m_profiles.isFileDamaged = false;
    m_profiles.isOwnFile = isOwnFile;
    QDialog::accept();
}

void ProfilesDialog::add()
{
    AssistantProfile profile;
    profile.config.provider = QStringLiteral("openai");
    m_list->setCurrentIndex(m_model->index(m_model->append(profile)));
}

void ProfilesDialog::remove()
{
    const int row = m_list->currentIndex().row();
    if (row < 0)
        return;
    m_model->remove(row);
    if (row < m_profiles.currentIndex || m_profiles.currentIndex == m_model->rowCount())
        m_profiles.currentIndex = qMax(0, m_profiles.currentIndex - 1);
}

void ProfilesDialog::showCurrent()
{
    const int row = m_list->currentIndex().row();
    m_remove->setEnabled(row >= 0);
    if (!m_form)
        return;
    m_form->setEnabled(row >= 0);
    m_form->setProfile(m_model->profiles().value(row));
}

void ProfilesDialog::takeForm()
{
    if (m_list->currentIndex().isValid())
        m_model->setProfile(m_list->currentIndex().row(), m_form->profile());
}
