#include "mcpserverspage.h"

#include "mcpconnection.h"
#include "toolset.h"
#include "visibletext.h"

#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollArea>
#include <QTimer>

namespace {

enum ServerKind { Program, Service };

enum ToolRole { NameRole = Qt::UserRole, TextRole };

QStringList linesOf(const QPlainTextEdit *edit)
{
    QStringList lines = edit->toPlainText().split(QLatin1Char('\n'));
    lines.removeAll(QString());
    return lines;
}

QString linesOf(const QMap<QString, QString> &variables)
{
    QStringList lines;
    for (auto it = variables.begin(); it != variables.end(); ++it)
        lines.append(it.key() + QLatin1Char('=') + it.value());
    return lines.join(QLatin1Char('\n'));
}

QMap<QString, QString> variablesIn(const QStringList &lines)
{
    QMap<QString, QString> variables;
    for (const QString &line : lines) {
        const int sign = line.indexOf(QLatin1Char('='));
        if (sign > 0)
            variables.insert(line.left(sign).trimmed(), line.mid(sign + 1).trimmed());
    }
    return variables;
}

QString shownName(const McpServerSettings &server)
{
    return server.name.isEmpty() ? McpServersPage::tr("未命名") : server.name;
}

// A tool that waits is not ticked, and what the user ticked stays so until it says something else again.
bool isTickedIn(const McpServerSettings &server, const McpConnection *connection, const QString &tool,
                const QString &text)
{
    const bool isAgreed =
        (connection && connection->isAgreed(tool)) || server.agreedTools.value(tool) == text;
    return isAgreed && !server.hiddenTools.contains(tool);
}

QPlainTextEdit *fewLines(const QString &name)
{
    constexpr int lines = 3;
    auto *edit = new QPlainTextEdit;
    edit->setObjectName(name);
    edit->setTabChangesFocus(true);
    edit->setFixedHeight((lines + 1) * edit->fontMetrics().lineSpacing());
    return edit;
}

} // namespace

McpServersPage::McpServersPage(const ToolSet *tools, QWidget *parent)
    : QWidget(parent)
    , m_servers(tools->settings().servers)
{
    for (McpConnection *connection : tools->connections())
        m_connections.append(connection);
    auto *layout = new QHBoxLayout(this);
    layout->addWidget(createList(), 1);
    layout->addWidget(createForm(), 3);
    for (const McpServerSettings &server : qAsConst(m_servers))
        m_list->addItem(shownName(server));
    connect(m_list, &QListWidget::currentRowChanged, this, &McpServersPage::showCurrent);
    connect(tools, &ToolSet::connectionsChanged, this, &McpServersPage::showState);
    m_list->setCurrentRow(m_servers.isEmpty() ? -1 : 0);
    showCurrent();
    auto *listening = new QTimer(this);
    connect(listening, &QTimer::timeout, this, &McpServersPage::showWords);
    listening->start(500);
}

McpServersPage::~McpServersPage() = default;

QWidget *McpServersPage::createList()
{
    m_list = new QListWidget;
    m_list->setObjectName(QStringLiteral("serverList"));
    m_list->setAccessibleName(tr("MCP 服务器"));
    auto *addButton = new QPushButton(tr("添加(&D)"));
    addButton->setObjectName(QStringLiteral("addServer"));
    addButton->setAutoDefault(false);
    m_remove = new QPushButton(tr("删除(&R)"));
    m_remove->setObjectName(QStringLiteral("removeServer"));
    m_remove->setAutoDefault(false);
    connect(addButton, &QPushButton::clicked, this, &McpServersPage::add);
    connect(m_remove, &QPushButton::clicked, this, &McpServersPage::remove);
    auto *widget = new QWidget;
    auto *layout = new QVBoxLayout(widget);
    layout->setContentsMargins({});
    layout->addWidget(m_list, 1);
    layout->addWidget(addButton);
    layout->addWidget(m_remove);
    return widget;
}

QWidget *McpServersPage::createForm()
{
    m_form = new QWidget;
    auto *form = new QFormLayout(m_form);
    form->setRowWrapPolicy(QFormLayout::WrapLongRows);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    addFields(form);
    addState(form);
    m_area = new QScrollArea;
    m_area->setFrameShape(QFrame::NoFrame);
    m_area->setWidgetResizable(true);
    m_area->setWidget(m_form);
    return m_area;
}

void McpServersPage::addFields(QFormLayout *form)
{
    m_name = new QLineEdit;
    m_name->setObjectName(QStringLiteral("serverNameEdit"));
    m_kind = new QComboBox;
    m_kind->setObjectName(QStringLiteral("serverKindCombo"));
    m_kind->addItem(tr("程序（标准输入输出）"));
    m_kind->addItem(tr("服务（HTTP）"));
    m_target = new QLineEdit;
    m_target->setObjectName(QStringLiteral("serverTargetEdit"));
    m_arguments = fewLines(QStringLiteral("serverArgumentsEdit"));
    m_variables = fewLines(QStringLiteral("serverVariablesEdit"));
    m_variables->setPlaceholderText(QStringLiteral("NAME=VALUE"));
    form->addRow(tr("名称(&N)"), m_name);
    form->addRow(tr("种类(&K)"), m_kind);
    form->addRow(tr("程序或地址(&P)"), m_target);
    form->addRow(tr("参数，每行一个(&A)"), m_arguments);
    form->addRow(tr("环境变量或请求头，每行一个(&V)"), m_variables);
    connect(m_name, &QLineEdit::textEdited, this, &McpServersPage::takeForm);
    connect(m_kind, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &McpServersPage::takeForm);
    connect(m_target, &QLineEdit::textEdited, this, &McpServersPage::takeForm);
    connect(m_arguments, &QPlainTextEdit::textChanged, this, &McpServersPage::takeForm);
    connect(m_variables, &QPlainTextEdit::textChanged, this, &McpServersPage::takeForm);
}

void McpServersPage::addState(QFormLayout *form)
{
    m_state = new QLabel;
    m_state->setObjectName(QStringLiteral("serverState"));
    m_state->setTextFormat(Qt::PlainText);
    m_state->setWordWrap(true);
    m_restart = new QPushButton(tr("重新启动(&S)"));
    m_restart->setObjectName(QStringLiteral("serverRestart"));
    m_restart->setAutoDefault(false);
    connect(m_restart, &QPushButton::clicked, this, &McpServersPage::restart);
    m_offered = new QListWidget;
    m_offered->setObjectName(QStringLiteral("serverTools"));
    m_offered->setFixedHeight(6 * fontMetrics().lineSpacing());
    m_toolText = fewLines(QStringLiteral("serverToolText"));
    m_toolText->setReadOnly(true);
    m_toolText->setWordWrapMode(QTextOption::WrapAnywhere);
    m_words = fewLines(QStringLiteral("serverWords"));
    m_words->setReadOnly(true);
    auto *textLabel = new QLabel(tr("工具说明(&X)"));
    textLabel->setBuddy(m_toolText);
    form->addRow(tr("状态"), m_state);
    form->addRow(m_restart);
    form->addRow(tr("工具(&T)"), m_offered);
    form->addRow(textLabel);
    form->addRow(m_toolText);
    form->addRow(tr("错误输出(&E)"), m_words);
    connect(m_offered, &QListWidget::currentRowChanged, this, &McpServersPage::showToolText);
    connect(m_offered, &QListWidget::itemChanged, this, &McpServersPage::takeForm);
}

QVector<McpServerSettings> McpServersPage::servers() const
{
    QVector<McpServerSettings> complete;
    for (const McpServerSettings &server : m_servers) {
        if (!server.name.isEmpty() && !(server.url + server.program).isEmpty())
            complete.append(server);
    }
    return complete;
}

// Empty where the server can be used, and where nothing at all was entered.
QString McpServersPage::problemOf(int row) const
{
    static const QRegularExpression word(QStringLiteral("\\A[A-Za-z0-9_-]{1,24}\\z"));
    const McpServerSettings &server = m_servers.at(row);
    const QString target = server.url + server.program;
    if (server.name.isEmpty() && target.isEmpty())
        return {};
    if (!word.match(server.name).hasMatch())
        return tr("名称要有 1 到 24 个字符，只能是字母、数字、下划线和连字符。");
    if (target.isEmpty())
        return tr("还没有程序或地址。");
    for (int before = 0; before < row; ++before) {
        if (m_servers.at(before).name == server.name)
            return tr("另一个服务器已有这个名称。");
    }
    return {};
}

bool McpServersPage::showProblem()
{
    for (int row = 0; row < m_servers.size(); ++row) {
        const QString problem = problemOf(row);
        if (problem.isEmpty())
            continue;
        m_list->setCurrentRow(row);
        m_state->setText(problem);
        m_name->setFocus();
        return true;
    }
    return false;
}

void McpServersPage::add()
{
    m_servers.append(McpServerSettings());
    m_connections.append(nullptr);
    m_list->addItem(shownName(m_servers.last()));
    m_list->setCurrentRow(m_list->count() - 1);
    m_name->setFocus();
}

void McpServersPage::remove()
{
    const int row = m_list->currentRow();
    if (row < 0)
        return;
    m_servers.remove(row);
    m_connections.remove(row);
    delete m_list->takeItem(row);
    showCurrent();
}

void McpServersPage::showCurrent()
{
    const int row = m_list->currentRow();
    const McpServerSettings server = m_servers.value(row);
    const bool isService = !server.url.isEmpty();
    m_isFilling = true;
    m_form->setEnabled(row >= 0);
    m_remove->setEnabled(row >= 0);
    m_name->setText(server.name);
    m_kind->setCurrentIndex(isService ? Service : Program);
    m_target->setText(isService ? server.url : server.program);
    m_arguments->setPlainText(server.arguments.join(QLatin1Char('\n')));
    m_variables->setPlainText(linesOf(server.variables));
    m_isFilling = false;
    showState();
}

void McpServersPage::showState()
{
    const McpConnection *connection = m_connections.value(m_list->currentRow());
    const McpServerSettings server = m_servers.value(m_list->currentRow());
    m_isFilling = true;
    m_state->setText(connection ? connection->stateText() : tr("保存后启动。"));
    m_restart->setEnabled(connection && connection->isOver());
    showWords();
    showOffered(connection, server);
    m_isFilling = false;
}

void McpServersPage::showOffered(const McpConnection *connection, const McpServerSettings &server)
{
    const int row = m_offered->currentRow();
    m_offered->clear();
    for (const QString &name : connection ? connection->toolNames() : QStringList()) {
        const QString text = connection->toolText(name);
        const bool isAgreed = connection->isAgreed(name);
        const bool isTicked = isTickedIn(server, connection, name, text);
        const QString shown = visibleText(name);
        auto *item = new QListWidgetItem(isAgreed ? shown : tr("%1（等待同意）").arg(shown), m_offered);
        item->setData(NameRole, name);
        item->setData(TextRole, text);
        item->setCheckState(isTicked ? Qt::Checked : Qt::Unchecked);
    }
    m_offered->setCurrentRow(qMin(qMax(0, row), m_offered->count() - 1));
    showToolText();
}

void McpServersPage::showToolText()
{
    const McpConnection *connection = m_connections.value(m_list->currentRow());
    const QListWidgetItem *tool = m_offered->currentItem();
    QString shown;
    if (tool && connection) {
        const QString name = tool->data(NameRole).toString();
        const QString agreed = connection->settings().agreedTools.value(name);
        const QString text = tool->data(TextRole).toString();
        shown =
            agreed.isEmpty() || agreed == text ? text : tr("现在：\n%1\n您同意时：\n%2").arg(text, agreed);
    }
    shown = visibleText(shown);
    if (shown != m_toolText->toPlainText()) // a selection stays until there is more
        m_toolText->setPlainText(shown);
}

void McpServersPage::showTools(const QString &serverName)
{
    for (int row = 0; row < m_servers.size(); ++row) {
        if (m_servers.at(row).name == serverName)
            m_list->setCurrentRow(row);
    }
    for (int row = m_offered->count() - 1; row >= 0; --row) {
        if (m_offered->item(row)->checkState() == Qt::Unchecked)
            m_offered->setCurrentRow(row);
    }
    m_offered->setFocus();
    // Where everything is, is known once it is shown.
    QTimer::singleShot(0, m_area, [this] { m_area->ensureWidgetVisible(m_toolText); });
}

// Nothing tells when a server writes. A selection stays until there is more.
void McpServersPage::showWords()
{
    const McpConnection *connection = m_connections.value(m_list->currentRow());
    const QString words = connection ? connection->words() : QString();
    if (words == m_shownWords)
        return;
    m_shownWords = words;
    m_words->setPlainText(words);
}

void McpServersPage::restart()
{
    if (McpConnection *connection = m_connections.value(m_list->currentRow()))
        connection->restart();
}

void McpServersPage::takeForm()
{
    const int row = m_list->currentRow();
    if (m_isFilling || row < 0)
        return;
    McpServerSettings &server = m_servers[row];
    const bool isService = m_kind->currentIndex() == Service;
    server.name = m_name->text().trimmed();
    server.url = isService ? m_target->text().trimmed() : QString();
    server.program = isService ? QString() : m_target->text().trimmed();
    server.arguments = linesOf(m_arguments);
    server.variables = variablesIn(linesOf(m_variables));
    takeTicks(&server);
    m_list->item(row)->setText(shownName(server));
}

// What was agreed to counts for what the list shows, and for the program or service that said so.
void McpServersPage::takeTicks(McpServerSettings *server) const
{
    const McpConnection *connection = m_connections.value(m_list->currentRow());
    const bool isSame = connection && connection->settings().program == server->program
                     && connection->settings().url == server->url;
    if (!isSame)
        server->agreedTools.clear();
    for (int i = 0; i < m_offered->count(); ++i) {
        const QListWidgetItem *tool = m_offered->item(i);
        const QString name = tool->data(NameRole).toString();
        const QString text = tool->data(TextRole).toString();
        const bool isTicked = tool->checkState() == Qt::Checked;
        const bool wasTicked = isTickedIn(*server, connection, name, text);
        if (isTicked)
            server->hiddenTools.removeAll(name);
        else if (wasTicked)
            server->hiddenTools.append(name);
        if (isTicked && isSame)
            server->agreedTools.insert(name, text);
    }
}
