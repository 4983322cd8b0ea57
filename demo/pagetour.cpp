#include "pagetour.h"

#include <qtagent/chatmodel.h>
#include <qtagent/widgets/agentchatpanel.h>

#include <QApplication>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTreeWidget>

#include <algorithm>
#include <utility>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int lookIntervalMs = 20;

// Pages

QList<QTreeWidgetItem *> entriesWithPages(QTreeWidget *navigation)
{
    QList<QTreeWidgetItem *> entries;
    for (QTreeWidgetItemIterator it(navigation); *it; ++it) {
        if ((*it)->data(0, Qt::UserRole).isValid())
            entries.append(*it);
    }
    return entries;
}

QString questionFor(const QString &title)
{
    return title == QStringLiteral("数据分析") ? QStringLiteral("查找异常设备并导出报告")
                                               : QStringLiteral("用一句话介绍 Orvane。");
}

QList<QAbstractButton *> buttonsNamed(const QWidget *page, const QStringList &names)
{
    QList<QAbstractButton *> buttons;
    for (const QString &name : names)
        buttons += page->findChildren<QAbstractButton *>(name);
    return buttons;
}

QList<QAbstractButton *> runButtons(const QWidget *page)
{
    return buttonsNamed(page, {QStringLiteral("agentChatSend"), QStringLiteral("runButton"),
                               QStringLiteral("firstTurnButton"), QStringLiteral("secondTurnButton")});
}

QList<QAbstractButton *> enabledStopButtons(const QWidget *page)
{
    QList<QAbstractButton *> buttons =
        buttonsNamed(page, {QStringLiteral("agentChatStop"), QStringLiteral("stopButton")});
    const auto isDisabled = [](const QAbstractButton *button) { return !button->isEnabled(); };
    buttons.erase(std::remove_if(buttons.begin(), buttons.end(), isDisabled), buttons.end());
    return buttons;
}

// Replies

// Pages delete their replies after the end and keep canceled ones.
QList<ChatReply *> runningReplies(const QList<QWidget *> &owners)
{
    QList<ChatReply *> running;
    for (const QWidget *owner : owners) {
        const auto replies = owner->findChildren<ChatReply *>(QString(), Qt::FindDirectChildrenOnly);
        std::copy_if(replies.cbegin(), replies.cend(), std::back_inserter(running),
                     [](const ChatReply *reply) { return reply->isRunning(); });
    }
    return running;
}

// Texts

bool isErrorLine(const QString &line)
{
    const QStringList beginnings{QStringLiteral("错误："), QStringLiteral("分支失败："),
                                 QStringLiteral("汇总节点错误："), QStringLiteral("状态 JSON 无效：")};
    return std::any_of(beginnings.cbegin(), beginnings.cend(),
                       [&line](const QString &beginning) { return line.startsWith(beginning); });
}

template<typename Widget, typename Text>
void appendShownTexts(const QWidget *page, Text text, QStringList *texts)
{
    const auto widgets = page->findChildren<Widget *>();
    for (const Widget *widget : widgets) {
        if (widget->isVisibleTo(page))
            texts->append((widget->*text)());
    }
}

QStringList errorLines(const QWidget *page)
{
    QStringList texts;
    appendShownTexts<QPlainTextEdit>(page, &QPlainTextEdit::toPlainText, &texts);
    appendShownTexts<QTextEdit>(page, &QTextEdit::toPlainText, &texts);
    appendShownTexts<QLineEdit>(page, &QLineEdit::text, &texts);
    appendShownTexts<QLabel>(page, &QLabel::text, &texts);

    const QStringList lines = texts.join(QLatin1Char('\n')).split(QLatin1Char('\n'));
    QStringList errors;
    std::copy_if(lines.cbegin(), lines.cend(), std::back_inserter(errors), isErrorLine);
    return errors;
}

// The notes of a chat: each is the paragraph behind a paragraph "系统" in the colour of notes. The text of
// an answer never has that colour.
QStringList systemNotes(const QWidget *page)
{
    const auto *history = page->findChild<QTextBrowser *>(QStringLiteral("agentChatHistory"));
    QStringList notes;
    if (!history)
        return notes;
    for (QTextBlock block = history->document()->begin(); block.isValid(); block = block.next()) {
        const bool isLabel =
            block.text() == QStringLiteral("系统") && !block.begin().atEnd()
            && block.begin().fragment().charFormat().foreground().color() == QColor(0x64, 0x74, 0x8b);
        if (isLabel)
            notes.append(block.next().text());
    }
    return notes;
}

// Dialogs

QAbstractButton *allowButton(const QDialog *dialog)
{
    const auto buttons = dialog->findChildren<QPushButton *>();
    for (QPushButton *button : buttons) {
        if (button->text().remove(QLatin1Char('&')) == QStringLiteral("允许一次"))
            return button;
    }
    return nullptr;
}

} // namespace

PageTour::PageTour(QWidget *window, const QDir &folder, QObject *parent)
    : QObject(parent)
    , m_window(window)
    , m_folder(folder)
    , m_navigation(window->findChild<QTreeWidget *>(QStringLiteral("navigationTree")))
    , m_pages(window->findChild<QStackedWidget *>(QStringLiteral("pageStack")))
    , m_entries(entriesWithPages(m_navigation))
{
    m_timer.setInterval(lookIntervalMs);
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &PageTour::look);
}

PageTour::~PageTour() = default;

void PageTour::setTimeLimit(int milliseconds)
{
    m_timeLimit = milliseconds;
}

void PageTour::start()
{
    QTimer::singleShot(0, this, &PageTour::visitNextPage);
}

void PageTour::visitNextPage()
{
    if (m_pageNumber == m_entries.size()) {
        Q_EMIT finished(m_succeeded);
        return;
    }
    m_navigation->setCurrentItem(m_entries.at(m_pageNumber));
    ++m_pageNumber;
    m_page = m_pages->currentWidget();
    m_buttons = runButtons(m_page);
    m_notesBefore = systemNotes(m_page).size();
    m_dialogs = 0;
    m_failures.clear();
    askQuestion();
    m_timer.start();
    pressNextButton();
}

void PageTour::askQuestion()
{
    auto *input = m_page->findChild<QPlainTextEdit *>(QStringLiteral("agentChatInput"));
    if (input)
        input->setPlainText(questionFor(m_navigation->currentItem()->text(0)));
}

void PageTour::pressNextButton()
{
    m_runTime.start();
    if (!m_buttons.isEmpty())
        m_buttons.takeFirst()->click();
}

void PageTour::look()
{
    m_timer.start(); // anew: a timer does not fire in an event loop that its own slot runs, as a dialog does
    if (auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget()))
        answerDialog(dialog);
    else if (!isIdle() && m_runTime.elapsed() >= m_timeLimit)
        stopPage();
    else if (isIdle() && !m_buttons.isEmpty())
        pressNextButton();
    else if (isIdle())
        leavePage();
}

bool PageTour::isIdle() const
{
    return enabledStopButtons(m_page).isEmpty() && runningReplies({m_page, m_window}).isEmpty();
}

void PageTour::answerDialog(QDialog *dialog)
{
    if (QAbstractButton *allow = allowButton(dialog)) {
        ++m_dialogs;
        const QString suffix = QStringLiteral("-approval");
        savePicture(dialog, m_dialogs == 1 ? suffix : suffix + QString::number(m_dialogs));
        allow->click();
    } else if (m_runTime.elapsed() >= m_timeLimit) {
        m_failures.append(QStringLiteral("unknown dialog \"%1\"").arg(dialog->windowTitle()));
        dialog->reject();
    }
}

void PageTour::stopPage()
{
    m_failures.append(QStringLiteral("not idle after %1 s").arg(m_timeLimit / 1000.0));
    m_buttons.clear();
    const auto stopButtons = enabledStopButtons(m_page);
    for (QAbstractButton *button : stopButtons)
        button->click();
    const auto replies = runningReplies({m_page, m_window});
    for (ChatReply *reply : replies)
        reply->cancel();
    leavePage();
}

void PageTour::leavePage()
{
    m_timer.stop();
    m_failures += errorLines(m_page);
    m_failures += systemNotes(m_page).mid(m_notesBefore);
    savePicture(m_window, QString());
    m_succeeded = m_succeeded && m_failures.isEmpty();

    const QString outcome = m_failures.isEmpty()
                              ? QStringLiteral("ok")
                              : QStringLiteral("failed: ") + m_failures.join(QLatin1String("; "));
    Q_EMIT pageDone(pageName() + QLatin1Char(' ') + outcome);
    visitNextPage();
}

QString PageTour::pageName() const
{
    const QString number = QString::number(m_pageNumber).rightJustified(2, QLatin1Char('0'));
    return number + QLatin1Char('-') + m_navigation->currentItem()->text(0);
}

void PageTour::savePicture(QWidget *widget, const QString &suffix)
{
    // A window that has just opened may be active already or not, and shows its focus only then.
    if (QWidget *focused = widget->focusWidget())
        focused->clearFocus();
    const QString path = m_folder.filePath(pageName() + suffix + QLatin1String(".png"));
    if (!widget->grab().save(path))
        m_failures.append(QStringLiteral("cannot write %1").arg(path));
}
