#include "assistanttour.h"

#include "assistantwindow.h"
#include "noticebar.h"

#include <qtagent/widgets/approvaldialog.h>

#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QLineEdit>
#include <QListView>
#include <QPixmap>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QTableWidget>
#include <QTextBrowser>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int lookIntervalMs = 20;
constexpr QSize windowSize(800, 600);

} // namespace

AssistantTour::AssistantTour(const QDir &folder, const QString &prefix, QObject *parent)
    : QObject(parent)
    , m_folder(folder)
    , m_prefix(prefix)
{
    m_timer.setInterval(lookIntervalMs);
    connect(&m_timer, &QTimer::timeout, this, &AssistantTour::look);
    addFirstStates();
    addConversationStates();
    addCorrectionStates();
    addListStates();
    addFailureStates();
    addToolStates();
    addDialogStates();
    addLastStates();
}

AssistantTour::~AssistantTour() = default;

void AssistantTour::setTimeLimit(int milliseconds)
{
    m_timeLimit = milliseconds;
}

void AssistantTour::start()
{
    QString error;
    if (!m_store.open(m_place.filePath(QStringLiteral("conversations.sqlite")), &error)) {
        Q_EMIT stateDone(QStringLiteral("store failed: ") + error);
        Q_EMIT finished(false);
        return;
    }
    QDir(m_place.path()).mkdir(QStringLiteral("plans"));
    m_settings = std::make_unique<AssistantSettings>(m_place.filePath(QStringLiteral("assistant.ini")));
    m_choice = std::make_unique<ModelChoice>(
        loadProfiles({m_place.filePath(QStringLiteral("profiles.json"))}, QProcessEnvironment()));
    ToolSettings tools;
    tools.folder = m_place.filePath(QStringLiteral("plans"));
    m_tools = std::make_unique<ToolSet>(tools);
    m_window = std::make_unique<AssistantWindow>(&m_store, m_settings.get());
    m_window->setModelChoice(m_choice.get());
    m_window->setToolSet(m_tools.get(), m_place.filePath(QStringLiteral("tools.json")));
    m_window->resize(windowSize);
    m_window->show();
    m_current = 0;
    beginState();
}

void AssistantTour::addFirstStates()
{
    add(
        QStringLiteral("first-start"), [] {}, [this] { return m_window->isVisible() && isIdle(); });
    add(
        QStringLiteral("mock-answer"), [this] { ask(QStringLiteral("What is a valve?")); },
        [this] {
            return isIdle() && find<QTextBrowser>(QStringLiteral("transcript"))->toPlainText().size() > 40;
        });
}

void AssistantTour::addConversationStates()
{
    add(
        QStringLiteral("markdown"),
        [this] {
            m_window->setModel(&m_model, QStringLiteral("tour"));
            press(QStringLiteral("newConversation"));
            ask(QStringLiteral("markdown: What is a valve?"));
        },
        [this] { return isIdle() && shows(QStringLiteral("gate valves")); });
    add(
        QStringLiteral("streaming"),
        [this] {
            press(QStringLiteral("newConversation"));
            ask(QStringLiteral("half an answer"));
        },
        [this] { return !isIdle() && shows(QStringLiteral("opens and")); });
    add(
        QStringLiteral("stopped"), [this] { press(QStringLiteral("stopButton")); },
        [this] { return isIdle(); });
}

void AssistantTour::addCorrectionStates()
{
    add(
        QStringLiteral("editing"), [this] { choose(QStringLiteral("editRequested")); },
        [this] { return find<NoticeBar>(QStringLiteral("editing"))->isVisible(); });
    add(
        QStringLiteral("cut"),
        [this] {
            choose(QStringLiteral("stopRequested"));
            ask(QStringLiteral("cut short"));
        },
        [this] { return isIdle() && shows(QStringLiteral("opens and")); });
}

void AssistantTour::addListStates()
{
    add(
        QStringLiteral("thinking"),
        [this] {
            press(QStringLiteral("newConversation"));
            ask(QStringLiteral("think of a valve"));
            press(QStringLiteral("thinkingButton"));
        },
        [this] { return isIdle() && find<QPlainTextEdit>(QStringLiteral("thinkingText"))->isVisible(); });
    add(
        QStringLiteral("search"),
        [this] { find<QLineEdit>(QStringLiteral("conversationSearch"))->setText(QStringLiteral("gate")); },
        [this] { return find<QListView>(QStringLiteral("conversationList"))->model()->rowCount() == 2; });
    add(
        QStringLiteral("removed"),
        [this] {
            find<QLineEdit>(QStringLiteral("conversationSearch"))->clear();
            choose(QStringLiteral("removeRequested"));
        },
        [this] { return find<NoticeBar>(QStringLiteral("notice"))->isVisible(); });
}

void AssistantTour::addFailureStates()
{
    for (const int status : {0, 401, 402, 503, 404}) {
        add(
            QStringLiteral("failure-%1").arg(status),
            [this, status] {
                press(QStringLiteral("newConversation"));
                ask(QStringLiteral("fail %1").arg(status));
            },
            [this] { return isIdle() && hasFailure(); });
    }
    add(
        QStringLiteral("refused"),
        [this] {
            press(QStringLiteral("newConversation"));
            ask(QStringLiteral("refuse"));
        },
        [this] { return isIdle() && shows(QStringLiteral("I will not.")); });
    add(
        QStringLiteral("retry"),
        [this] {
            constexpr int delayMs = 4500;
            ask(QStringLiteral("wait"));
            Q_EMIT m_choice->retrying(2, delayMs, QStringLiteral("The service says no (503)."));
        },
        [this] { return !isIdle() && hasFailure(); });
    add(
        QStringLiteral("retry-stopped"), [this] { press(QStringLiteral("stopButton")); },
        [this] { return isIdle() && !hasFailure(); });
}

void AssistantTour::addToolStates()
{
    add(
        QStringLiteral("tool-call"),
        [this] {
            press(QStringLiteral("newConversation"));
            ask(QStringLiteral("clock"));
        },
        [this] { return isIdle() && shows(QStringLiteral("Done.")); });
    add(
        QStringLiteral("tool-call-opened"),
        [this] {
            auto *calls = find<QTableWidget>(QStringLiteral("toolCalls"));
            Q_EMIT calls->cellDoubleClicked(0, 0);
        },
        [] { return true; }, QStringLiteral("toolCallDialog"));
    add(
        QStringLiteral("approval"), [this] { ask(QStringLiteral("write it down")); },
        [this] { return m_window->findChild<ApprovalDialog *>() != nullptr; }, QStringLiteral("approval"));
    add(
        QStringLiteral("approved"), [this] { answerApproval(); },
        [this] { return isIdle() && QFile::exists(m_place.filePath(QStringLiteral("plans/valves.md"))); });
}

void AssistantTour::addDialogStates()
{
    const auto open = [this](const QString &action) { return [this, action] { choose(action); }; };
    const auto always = [] { return true; };
    add(QStringLiteral("models"), open(QStringLiteral("modelsRequested")), always,
        QStringLiteral("profilesDialog"));
    add(QStringLiteral("tools"), open(QStringLiteral("toolsRequested")), always,
        QStringLiteral("toolsDialog"));
    add(
        QStringLiteral("tool-servers"),
        [this] {
            choose(QStringLiteral("toolsRequested"));
            find<QTabWidget>(QStringLiteral("toolTabs"))->setCurrentIndex(1);
            press(QStringLiteral("addServer"));
        },
        always, QStringLiteral("toolsDialog"));
    add(
        QStringLiteral("large-text"),
        [this] {
            for (int i = 0; i < 5; ++i)
                choose(QStringLiteral("enlargeRequested"));
        },
        [this] { return isIdle(); });
}

// Nothing can be saved behind them.
void AssistantTour::addLastStates()
{
    add(
        QStringLiteral("unsaved"),
        [this] {
            m_store.close();
            choose(QStringLiteral("resetRequested"));
            ask(QStringLiteral("cut short"));
        },
        [this] { return isIdle() && find<NoticeBar>(QStringLiteral("unsaved"))->isVisible(); });
}

// A dialog is shown in the picture in place of the window, and closed behind it.
void AssistantTour::add(const QString &name, const std::function<void()> &act,
                        const std::function<bool()> &isReached, const QString &dialog)
{
    const auto shown = [this, dialog]() -> QWidget * {
        if (dialog.isEmpty())
            return m_window.get();
        if (dialog == QLatin1String("approval"))
            return m_window->findChild<ApprovalDialog *>();
        return m_window->findChild<QDialog *>(dialog);
    };
    m_states.append({name, act, isReached, shown});
}

void AssistantTour::beginState()
{
    m_clock.start();
    m_states.at(m_current).act();
    m_timer.start();
}

void AssistantTour::look()
{
    const State &state = m_states.at(m_current);
    QWidget *shown = state.shown();
    if (shown && shown->isVisible() && state.isReached())
        endState(savePicture(state));
    else if (m_clock.elapsed() > m_timeLimit)
        endState(QStringLiteral("not reached"));
}

void AssistantTour::endState(const QString &failure)
{
    m_timer.stop();
    m_succeeded = m_succeeded && failure.isEmpty();
    Q_EMIT stateDone(stateName()
                     + (failure.isEmpty() ? QStringLiteral(" ok") : QStringLiteral(" failed: ") + failure));
    auto *dialog = qobject_cast<QDialog *>(m_states.at(m_current).shown());
    if (dialog && !qobject_cast<ApprovalDialog *>(dialog))
        dialog->reject();
    if (++m_current == m_states.size())
        Q_EMIT finished(m_succeeded);
    else
        QTimer::singleShot(0, this, &AssistantTour::beginState);
}

QString AssistantTour::savePicture(const State &state) const
{
    const QString path = m_folder.filePath(m_prefix + stateName() + QStringLiteral(".png"));
    return state.shown()->grab().save(path) ? QString() : QStringLiteral("cannot save ") + path;
}

QString AssistantTour::stateName() const
{
    return QStringLiteral("%1-%2")
        .arg(m_current + 1, 2, 10, QLatin1Char('0'))
        .arg(m_states.at(m_current).name);
}

void AssistantTour::ask(const QString &question)
{
    find<QPlainTextEdit>(QStringLiteral("chatInput"))->setPlainText(question);
    press(QStringLiteral("sendButton"));
}

void AssistantTour::press(const QString &button)
{
    find<QAbstractButton>(button)->click();
}

void AssistantTour::choose(const QString &action)
{
    find<QAction>(action)->trigger();
}

void AssistantTour::answerApproval()
{
    if (auto *dialog = m_window->findChild<ApprovalDialog *>())
        dialog->accept();
}

bool AssistantTour::isIdle() const
{
    return !find<QAbstractButton>(QStringLiteral("stopButton"))->isEnabled();
}

bool AssistantTour::shows(const QString &text) const
{
    return find<QTextBrowser>(QStringLiteral("transcript"))->toPlainText().contains(text);
}

bool AssistantTour::hasFailure() const
{
    return find<NoticeBar>(QStringLiteral("failure"))->isVisible();
}

// The window has all that its headers name.
template<typename Widget>
Widget *AssistantTour::find(const QString &name) const
{
    auto *found = m_window->findChild<Widget *>(name);
    Q_ASSERT(found);
    return found;
}
