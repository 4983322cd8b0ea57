#include "toolsdialog.h"

#include "folder.h"
#include "mcpserverspage.h"
#include "toolset.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QVBoxLayout>

ToolsDialog::ToolsDialog(const ToolSet *tools, QWidget *parent)
    : QDialog(parent)
    , m_servers(new McpServersPage(tools))
{
    setWindowTitle(tr("工具"));
    m_tabs = new QTabWidget;
    m_tabs->setObjectName(QStringLiteral("toolTabs"));
    m_tabs->addTab(createOwnTools(tools->settings()), tr("自带工具(&B)"));
    m_tabs->addTab(m_servers, tr("MCP 服务器(&M)"));
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &ToolsDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &ToolsDialog::reject);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_tabs, 1);
    layout->addWidget(buttons);
    resize(700, 540);
}

ToolsDialog::~ToolsDialog() = default;

QWidget *ToolsDialog::createOwnTools(const ToolSettings &settings)
{
    m_clock = new QCheckBox(tr("时钟：告诉模型现在的日期和时间(&C)"));
    m_clock->setObjectName(QStringLiteral("clockCheck"));
    m_clock->setChecked(settings.hasClock);
    m_folder = new QLineEdit(settings.folder);
    m_folder->setObjectName(QStringLiteral("folderEdit"));
    m_folder->setPlaceholderText(tr("不使用"));
    m_folder->setClearButtonEnabled(true);
    auto *choose = new QPushButton(tr("选择(&H)…"));
    choose->setObjectName(QStringLiteral("folderButton"));
    choose->setAutoDefault(false);
    connect(choose, &QPushButton::clicked, this, &ToolsDialog::chooseFolder);
    auto *label = new QLabel(tr("文件夹(&F)"));
    label->setBuddy(m_folder);
    auto *explanation =
        new QLabel(tr("模型可以列出并读取这个文件夹里的内容；写入之前会先问您。文件夹之外的内容不能访问。"));
    explanation->setWordWrap(true);
    m_folderProblem = new QLabel(tr("没有这个文件夹。请写出完整的路径。"));
    m_folderProblem->setObjectName(QStringLiteral("folderProblem"));
    m_folderProblem->hide();
    connect(m_folder, &QLineEdit::textChanged, m_folderProblem, &QLabel::hide);
    auto *damage = new QLabel(tr("保存工具设置的文件已损坏，保存时会改名保留。"));
    damage->setObjectName(QStringLiteral("damageLabel"));
    damage->setWordWrap(true);
    damage->setVisible(settings.isFileDamaged);

    auto *page = new QWidget;
    auto *row = new QHBoxLayout;
    row->addWidget(m_folder, 1);
    row->addWidget(choose);
    auto *form = new QFormLayout(page);
    form->addRow(m_clock);
    form->addRow(label, row);
    form->addRow(m_folderProblem);
    form->addRow(explanation);
    form->addRow(damage);
    return page;
}

ToolSettings ToolsDialog::settings() const
{
    ToolSettings settings;
    settings.hasClock = m_clock->isChecked();
    settings.folder = m_folder->text();
    settings.servers = m_servers->servers();
    return settings;
}

void ToolsDialog::showServer(const QString &name)
{
    m_tabs->setCurrentWidget(m_servers);
    m_servers->showTools(name);
}

void ToolsDialog::accept()
{
    const QString folder = m_folder->text();
    const bool isFolder = folder.isEmpty() || (QDir::isAbsolutePath(folder) && Folder(folder).isValid());
    m_folderProblem->setVisible(!isFolder);
    if (!isFolder) {
        m_tabs->setCurrentIndex(0);
        return m_folder->setFocus();
    }
    if (m_servers->showProblem())
        return m_tabs->setCurrentWidget(m_servers);
    QDialog::accept();
}

void ToolsDialog::chooseFolder()
{
    const QString folder = QFileDialog::getExistingDirectory(this, tr("选择文件夹"), m_folder->text());
    if (!folder.isEmpty())
        m_folder->setText(folder);
}
