#include "support/agentfixture.h"
#include "support/approvaldialogs.h"

#include <qtagent/agentsession.h>
#include <qtagent/widgets/approvalprompt.h>

#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

// An executor, or a session that is used as one, whose risky calls are asked for above a page in a window.
class PromptFixture : public AgentFixture
{
public:
    explicit PromptFixture(bool isSession = false)
        : AgentFixture(isSession ? new AgentSession : new AgentExecutor)
    {
        page->setParent(window);
        window->show();
        connect(prompt, &ApprovalPrompt::answered, this,
                [this](const ApprovalRequest &request, bool allowed) {
                    log.append(QString("answered %1 %2").arg(request.approvalId, allowed ? "yes" : "no"));
                });
    }

    ~PromptFixture() override
    {
        delete prompt;
        delete page;
        delete window;
    }

    static QJsonObject write(const QString &id, const QString &path)
    {
        return makeToolCall(id, "write", {{"path", path}});
    }

    // Begins a run whose first call, with the path "a", opens a dialog.
    void ask()
    {
        model->clearAnswers();
        model->addToolCalls({write("c1", "a")});
        model->addText({"done"});
        const int count = dialogs.count();
        executor->run("question");
        QTRY_VERIFY(dialogs.count() > count);
    }

    QString shownArguments() const
    {
        return dialogs.last()->findChild<QPlainTextEdit *>("approvalArguments")->toPlainText().simplified();
    }

    QString writtenPath() const { return traces.last().arguments.value("path").toString(); }

    ApprovalDialogs dialogs;
    const QPointer<QWidget> window{new QWidget};
    const QPointer<QWidget> page{new QWidget};
    const QPointer<ApprovalPrompt> prompt{new ApprovalPrompt(executor, page)};
};

void press(ApprovalDialog *dialog, bool allowed)
{
    dialog->findChild<QPushButton *>(allowed ? "approvalAllow" : "approvalDeny")->click();
}

// Rows for both ways to show a dialog.
void addBlockingRows()
{
    QTest::addColumn<bool>("isBlocking");
    QTest::newRow("opened") << false;
    QTest::newRow("blocking") << true;
}

// Lets @p action happen while a dialog is shown, and waits until a blocking one has returned as well.
void askAndDo(PromptFixture &fixture, const std::function<void()> &action)
{
    bool isDone = false;
    fixture.dialogs.onShown = [&](ApprovalDialog *) {
        fixture.dialogs.onShown = nullptr;
        action();
        isDone = true;
    };
    fixture.ask();
    QTRY_VERIFY(isDone);
}

const QStringList unanswered{"delta ", "approval write"};
const QStringList allowedRun{"delta ", "approval write", "call write", "trace write success",
                             "answered c1 yes"};
const QStringList deniedRun{"delta ", "approval write", "trace write denied", "answered c1 no"};

// What ends a question.
using End = std::function<void(PromptFixture &)>;

const QStringList twiceAskedOnceDenied{"delta ",         "approval write",     "delta ",
                                       "approval write", "trace write denied", "answered same no"};

} // namespace

Q_DECLARE_METATYPE(End)

class TestApprovalPrompt : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answerGoesToTheExecutor_data();
    void answerGoesToTheExecutor();
    void dialogShowsTheCall();
    void explanationFollowsTheReason();
    void promptMayDieInAnExplanation();
    void escapeDenies();
    void openedDialogIsWindowModalAndHoldsNothingUp();
    void blockingDialogIsApplicationModalAndHoldsTheSignalUp();
    void parentIsTheWindowOfTheMoment();
    void dialogsOfANullWindowHaveNoParent();
    void deletionOfTheWindowDeniesFromTheEventLoop_data();
    void deletionOfTheWindowDeniesFromTheEventLoop();
    void deletedWindowDeniesUnasked();
    void deletionOfTheDialogDeniesFromTheEventLoop_data() { addBlockingRows(); }
    void deletionOfTheDialogDeniesFromTheEventLoop();
    void deletionOfThePromptClosesTheDialogUnanswered_data() { addBlockingRows(); }
    void deletionOfThePromptClosesTheDialogUnanswered();
    void deletionOfTheExecutorClosesTheDialogUnanswered_data() { addBlockingRows(); }
    void deletionOfTheExecutorClosesTheDialogUnanswered();
    void windowThatOwnsThePromptLeavesTheQuestionOpen();
    void questionThatIsOverClosesItsDialog_data();
    void questionThatIsOverClosesItsDialog();
    void questionsAreAskedOneAfterTheOther_data() { addBlockingRows(); }
    void questionsAreAskedOneAfterTheOther();
    void answerThatDoesNotCountIsNotTold_data() { addBlockingRows(); }
    void answerThatDoesNotCountIsNotTold();
    void dialogOfAnEarlierRunAllowsNothingInTheNext_data() { addBlockingRows(); }
    void dialogOfAnEarlierRunAllowsNothingInTheNext();
    void questionThatAnotherSlotAnsweredIsNotAsked_data() { addBlockingRows(); }
    void questionThatAnotherSlotAnsweredIsNotAsked();
    void acceptedDialogWhoseRunIsReplacedInsideIsDropped();
    void slotsMayDeleteEverything_data();
    void slotsMayDeleteEverything();
    void slotMayBeginTheNextRun();
};

void TestApprovalPrompt::answerGoesToTheExecutor_data()
{
    QTest::addColumn<bool>("isSession");
    QTest::addColumn<bool>("isBlocking");
    QTest::addColumn<bool>("isAllowed");
    for (const bool isSession : {false, true}) {
        for (const bool isBlocking : {false, true}) {
            for (const bool isAllowed : {false, true}) {
                QTest::addRow("%s, %s, %s", isSession ? "session" : "executor",
                              isBlocking ? "blocking" : "opened", isAllowed ? "allowed" : "denied")
                    << isSession << isBlocking << isAllowed;
            }
        }
    }
}

void TestApprovalPrompt::answerGoesToTheExecutor()
{
    QFETCH(bool, isSession);
    QFETCH(bool, isBlocking);
    QFETCH(bool, isAllowed);
    PromptFixture fixture(isSession);
    fixture.prompt->setBlocking(isBlocking);
    askAndDo(fixture, [&] { press(fixture.dialogs.last(), isAllowed); });
    QTRY_VERIFY(!fixture.executor->isRunning());
    const QStringList answer{"delta done", "finished done"};
    QCOMPARE(fixture.log, isAllowed ? allowedRun + answer : deniedRun);
    QCOMPARE(fixture.dialogs.count(), 1);
    QTRY_VERIFY(!fixture.dialogs.last()); // deleted
}

void TestApprovalPrompt::dialogShowsTheCall()
{
    PromptFixture fixture;
    fixture.ask();
    QCOMPARE(fixture.dialogs.last()->findChild<QLabel *>("approvalTool")->text(), "允许调用工具：write");
    QCOMPARE(fixture.dialogs.last()->findChild<QLabel *>("approvalPermission")->text(), "权限：Write");
    QCOMPARE(fixture.dialogs.last()->findChild<QLabel *>("approvalReason")->text(),
             "该工具拥有 Write 权限，需要用户确认后才能执行。");
    QCOMPARE(fixture.shownArguments(), R"({ "path": "a" })");
}

void TestApprovalPrompt::explanationFollowsTheReason()
{
    PromptFixture fixture;
    fixture.prompt->setExplanation([](const ApprovalRequest &request) {
        return "Writes " + request.arguments.value("path").toString() + ".";
    });
    fixture.ask();
    QCOMPARE(fixture.dialogs.last()->findChild<QLabel *>("approvalReason")->text(),
             "该工具拥有 Write 权限，需要用户确认后才能执行。\nWrites a.");
    press(fixture.dialogs.last(), true);
    QCOMPARE(fixture.log, allowedRun);
}

void TestApprovalPrompt::promptMayDieInAnExplanation()
{
    PromptFixture fixture;
    fixture.prompt->setExplanation([&fixture](const ApprovalRequest &) {
        delete fixture.prompt;
        return QString("Gone.");
    });
    fixture.model->addToolCalls({PromptFixture::write("c1", "a")});
    fixture.executor->run("question");
    QTRY_VERIFY(!fixture.prompt);
    QCOMPARE(fixture.log, unanswered);
    QCOMPARE(fixture.dialogs.count(), 0);
}

void TestApprovalPrompt::escapeDenies()
{
    PromptFixture fixture;
    fixture.ask();
    QTest::keyClick(fixture.dialogs.last(), Qt::Key_Escape);
    QCOMPARE(fixture.log, deniedRun);
}

void TestApprovalPrompt::openedDialogIsWindowModalAndHoldsNothingUp()
{
    PromptFixture fixture;
    bool hasReturned = false;
    connect(fixture.executor, &AgentExecutor::approvalRequired, this, [&] { hasReturned = true; });
    fixture.ask();
    QVERIFY(hasReturned);
    QCOMPARE(fixture.dialogs.last()->windowModality(), Qt::WindowModal);
    QVERIFY(fixture.dialogs.last()->isVisible());
    QCOMPARE(fixture.log, unanswered);
}

void TestApprovalPrompt::blockingDialogIsApplicationModalAndHoldsTheSignalUp()
{
    PromptFixture fixture;
    fixture.prompt->setBlocking(true);
    connect(fixture.executor, &AgentExecutor::approvalRequired, this,
            [&fixture] { fixture.log.append("returned"); });
    Qt::WindowModality modality = Qt::NonModal;
    askAndDo(fixture, [&] {
        modality = fixture.dialogs.last()->windowModality();
        QCOMPARE(fixture.log, unanswered);
        press(fixture.dialogs.last(), false);
    });
    QTRY_COMPARE(fixture.log, deniedRun + QStringList("returned"));
    QCOMPARE(modality, Qt::ApplicationModal);
}

void TestApprovalPrompt::parentIsTheWindowOfTheMoment()
{
    PromptFixture fixture;
    QWidget other;
    fixture.page->setParent(&other);
    fixture.ask();
    QCOMPARE(fixture.dialogs.last()->parentWidget(), &other);
    press(fixture.dialogs.last(), false);

    fixture.page->setParent(fixture.window);
    fixture.ask();
    QTRY_COMPARE(fixture.dialogs.count(), 2);
    QCOMPARE(fixture.dialogs.last()->parentWidget(), fixture.window.data());
}

void TestApprovalPrompt::dialogsOfANullWindowHaveNoParent()
{
    PromptFixture fixture;
    delete fixture.prompt;
    const ApprovalPrompt prompt(fixture.executor, nullptr);
    fixture.ask();
    QCOMPARE(fixture.dialogs.last()->parentWidget(), nullptr);
    press(fixture.dialogs.last(), true);
    QVERIFY(fixture.log.contains("call write"));
}

void TestApprovalPrompt::deletionOfTheWindowDeniesFromTheEventLoop_data()
{
    QTest::addColumn<bool>("isBlocking");
    QTest::addColumn<bool>("isWholeWindow");
    QTest::newRow("opened, widget") << false << false;
    QTest::newRow("opened, window") << false << true;
    QTest::newRow("blocking, widget") << true << false;
    QTest::newRow("blocking, window") << true << true;
}

void TestApprovalPrompt::deletionOfTheWindowDeniesFromTheEventLoop()
{
    QFETCH(bool, isBlocking);
    QFETCH(bool, isWholeWindow);
    PromptFixture fixture;
    fixture.prompt->setBlocking(isBlocking);
    askAndDo(fixture, [&] {
        delete (isWholeWindow ? fixture.window : fixture.page);
        QCOMPARE(fixture.log, unanswered);
    });
    QTRY_COMPARE(fixture.log, deniedRun);
    QTRY_VERIFY(!fixture.dialogs.last());
}

void TestApprovalPrompt::deletedWindowDeniesUnasked()
{
    PromptFixture fixture;
    delete fixture.page;
    fixture.model->addToolCalls({PromptFixture::write("c1", "a")});
    fixture.run();
    QCOMPARE(fixture.log, deniedRun);
    QCOMPARE(fixture.dialogs.count(), 0);
}

void TestApprovalPrompt::deletionOfTheDialogDeniesFromTheEventLoop()
{
    QFETCH(bool, isBlocking);
    PromptFixture fixture;
    fixture.prompt->setBlocking(isBlocking);
    askAndDo(fixture, [&] {
        delete fixture.dialogs.last();
        QCOMPARE(fixture.log, unanswered);
    });
    QTRY_COMPARE(fixture.log, deniedRun);
}

void TestApprovalPrompt::deletionOfThePromptClosesTheDialogUnanswered()
{
    QFETCH(bool, isBlocking);
    PromptFixture fixture;
    fixture.prompt->setBlocking(isBlocking);
    askAndDo(fixture, [&] {
        delete fixture.prompt;
        QCOMPARE(fixture.dialogs.visibleCount(), 0);
    });
    QTRY_VERIFY(!fixture.dialogs.last());
    runUntilQuiet();
    QCOMPARE(fixture.log, unanswered);
    QVERIFY(fixture.executor->isRunning());
}

void TestApprovalPrompt::deletionOfTheExecutorClosesTheDialogUnanswered()
{
    QFETCH(bool, isBlocking);
    PromptFixture fixture;
    fixture.prompt->setBlocking(isBlocking);
    askAndDo(fixture, [&] { delete fixture.executor; });
    QTRY_VERIFY(!fixture.dialogs.last());
    runUntilQuiet();
    QCOMPARE(fixture.log, unanswered);
}

void TestApprovalPrompt::windowThatOwnsThePromptLeavesTheQuestionOpen()
{
    PromptFixture fixture;
    fixture.prompt->setParent(fixture.page);
    fixture.ask();
    delete fixture.window;
    runUntilQuiet();
    QVERIFY(!fixture.prompt);
    QVERIFY(!fixture.dialogs.last());
    QCOMPARE(fixture.log, unanswered);
}

void TestApprovalPrompt::questionThatIsOverClosesItsDialog_data()
{
    struct
    {
        const char *name;
        End end;
        QStringList log;
    } const ends[] = {
        {"canceled", [](PromptFixture &fixture) { fixture.executor->cancel(); }, unanswered},
        {"replaced", [](PromptFixture &fixture) { fixture.executor->run("again"); },
         unanswered + QStringList{"delta done", "finished done"}},
        {"allowed elsewhere",
         [](PromptFixture &fixture) { fixture.executor->answerApproval(fixture.approvals.last(), true); },
         unanswered + QStringList{"call write", "trace write success", "delta done", "finished done"}},
        {"denied elsewhere",
         [](PromptFixture &fixture) { fixture.executor->answerApproval(fixture.approvals.last(), false); },
         unanswered + QStringList{"trace write denied"}},
    };
    QTest::addColumn<bool>("isSession");
    QTest::addColumn<bool>("isBlocking");
    QTest::addColumn<End>("end");
    QTest::addColumn<QStringList>("log");
    for (const auto &row : ends) {
        for (const bool isSession : {false, true}) {
            for (const bool isBlocking : {false, true}) {
                QTest::addRow("%s, %s, %s", row.name, isSession ? "session" : "executor",
                              isBlocking ? "blocking" : "opened")
                    << isSession << isBlocking << row.end << row.log;
            }
        }
    }
}

void TestApprovalPrompt::questionThatIsOverClosesItsDialog()
{
    QFETCH(bool, isSession);
    QFETCH(bool, isBlocking);
    QFETCH(End, end);
    QFETCH(QStringList, log);
    PromptFixture fixture(isSession);
    fixture.prompt->setBlocking(isBlocking);
    int finished = 0;
    askAndDo(fixture, [&] {
        connect(fixture.dialogs.last(), &QDialog::finished, this, [&finished] { ++finished; });
        end(fixture);
    });
    QTRY_VERIFY(!fixture.dialogs.last());
    QTRY_VERIFY(!fixture.executor->isRunning());
    QCOMPARE(fixture.log, log);
    QCOMPARE(finished, 0);
}

void TestApprovalPrompt::questionsAreAskedOneAfterTheOther()
{
    QFETCH(bool, isBlocking);
    PromptFixture fixture;
    fixture.prompt->setBlocking(isBlocking);
    fixture.model->addToolCalls(
        {PromptFixture::write("c1", "a"), PromptFixture::write("c1", "a"), PromptFixture::write("c2", "b")});
    QStringList shown;
    fixture.dialogs.onShown = [&](ApprovalDialog *dialog) {
        QCOMPARE(fixture.dialogs.visibleCount(), 1);
        shown.append(fixture.shownArguments());
        press(dialog, shown.size() < 3);
    };
    fixture.executor->run("question");
    QTRY_VERIFY(!fixture.executor->isRunning());
    QCOMPARE(shown, QStringList({R"({ "path": "a" })", R"({ "path": "a" })", R"({ "path": "b" })"}));
    QCOMPARE(fixture.log, allowedRun + allowedRun.mid(1)
                              + QStringList({"approval write", "trace write denied", "answered c2 no"}));
}

void TestApprovalPrompt::answerThatDoesNotCountIsNotTold()
{
    QFETCH(bool, isBlocking);
    PromptFixture fixture;
    fixture.prompt->setBlocking(isBlocking);
    QString permission;
    askAndDo(fixture, [&] {
        delete fixture.registry->tool("write");
        fixture.addTool("write", ToolPermission::Destructive);
        fixture.dialogs.onShown = [&](ApprovalDialog *dialog) {
            permission = dialog->findChild<QLabel *>("approvalPermission")->text();
            press(dialog, true);
        };
        press(fixture.dialogs.last(), true);
    });
    QTRY_VERIFY(!fixture.executor->isRunning());
    QCOMPARE(permission, "权限：Destructive");
    QCOMPARE(fixture.log, unanswered + allowedRun.mid(1) + QStringList({"delta done", "finished done"}));
}

// The id is the same, the file is not.
void TestApprovalPrompt::dialogOfAnEarlierRunAllowsNothingInTheNext()
{
    QFETCH(bool, isBlocking);
    PromptFixture fixture;
    fixture.prompt->setBlocking(isBlocking);
    fixture.model->addToolCalls({PromptFixture::write("same", "harmless")});
    fixture.model->addToolCalls({PromptFixture::write("same", "precious")});
    fixture.dialogs.onShown = [&fixture](ApprovalDialog *first) {
        fixture.dialogs.onShown = [](ApprovalDialog *second) { press(second, false); };
        connect(fixture.executor, &AgentExecutor::approvalRequired, first, &QDialog::accept);
        fixture.executor->run("again");
        press(first, true);
    };
    fixture.executor->run("question");
    QTRY_COMPARE(fixture.dialogs.count(), 2);
    QTRY_VERIFY(!fixture.executor->isRunning());
    QCOMPARE(fixture.log, twiceAskedOnceDenied);
    QCOMPARE(fixture.writtenPath(), "precious");
    QTRY_COMPARE(fixture.dialogs.visibleCount(), 0);
}

// It turns the event loop until the next question is asked.
void TestApprovalPrompt::questionThatAnotherSlotAnsweredIsNotAsked()
{
    QFETCH(bool, isBlocking);
    PromptFixture fixture;
    delete fixture.prompt;
    connect(fixture.executor, &AgentExecutor::approvalRequired, this,
            [&fixture](const ApprovalRequest &request) {
                if (request.approvalId != "c1")
                    return;
                QVERIFY(fixture.executor->answerApproval(request, true));
                QTRY_COMPARE(fixture.dialogs.count(), 1);
            });
    ApprovalPrompt prompt(fixture.executor, fixture.page);
    prompt.setBlocking(isBlocking);
    QStringList shown;
    fixture.dialogs.onShown = [&](ApprovalDialog *dialog) {
        shown.append(fixture.shownArguments());
        if (isBlocking)
            press(dialog, false);
    };
    fixture.model->addToolCalls({PromptFixture::write("c1", "a"), PromptFixture::write("c2", "b")});
    fixture.run();
    QTRY_COMPARE(shown, QStringList(R"({ "path": "b" })"));
    QCOMPARE(fixture.dialogs.count(), 1);
    fixture.executor->cancel();
    QTRY_VERIFY(!fixture.dialogs.last());
}

// The event loop of the first dialog ends only behind that of the second, which shows the same call.
void TestApprovalPrompt::acceptedDialogWhoseRunIsReplacedInsideIsDropped()
{
    PromptFixture fixture;
    fixture.prompt->setBlocking(true);
    fixture.model->addToolCalls({PromptFixture::write("same", "a")});
    fixture.model->addToolCalls({PromptFixture::write("same", "a")});
    QPointer<ApprovalDialog> firstDialog;
    fixture.dialogs.onShown = [&](ApprovalDialog *first) {
        fixture.dialogs.onShown = [&](ApprovalDialog *second) {
            QVERIFY(firstDialog);
            press(second, false);
        };
        firstDialog = first;
        first->accept();
        fixture.executor->run("again");
        QTRY_VERIFY(!fixture.executor->isRunning());
    };
    fixture.executor->run("question");
    QTRY_COMPARE(fixture.dialogs.count(), 2);
    QTRY_VERIFY(!firstDialog);
    QCOMPARE(fixture.log, twiceAskedOnceDenied);
}

void TestApprovalPrompt::slotsMayDeleteEverything_data()
{
    QTest::addColumn<bool>("isBlocking");
    QTest::addColumn<QString>("place");
    QTest::addColumn<QString>("victim");
    for (const bool isBlocking : {false, true}) {
        for (const char *place : {"approval write", "call write", "trace write success", "answered c1 yes"}) {
            for (const char *victim : {"prompt", "executor", "page", "window", "dialog"}) {
                QTest::addRow("%s, %s, %s", isBlocking ? "blocking" : "opened", place, victim)
                    << isBlocking << place << victim;
            }
        }
    }
}

void TestApprovalPrompt::slotsMayDeleteEverything()
{
    QFETCH(bool, isBlocking);
    QFETCH(QString, place);
    QFETCH(QString, victim);
    PromptFixture fixture;
    fixture.prompt->setBlocking(isBlocking);
    const QMap<QString, std::function<void()>> deletions{
        {"prompt", [&] { delete fixture.prompt; }},
        {"executor", [&] { delete fixture.executor; }},
        {"page", [&] { delete fixture.page; }},
        {"window", [&] { delete fixture.window; }},
        {"dialog", [&] { delete fixture.dialogs.last(); }},
    };
    const auto destroy = [&] {
        if (fixture.log.last() == place)
            deletions[victim]();
    };
    delete fixture.registry->tool("write");
    fixture.addTool("write", ToolPermission::Write, destroy);
    connect(fixture.executor, &AgentExecutor::approvalRequired, &fixture, destroy);
    connect(fixture.executor, &AgentExecutor::traceAdded, &fixture, destroy);
    connect(fixture.prompt, &ApprovalPrompt::answered, &fixture, destroy);
    fixture.dialogs.onShown = [](ApprovalDialog *dialog) { press(dialog, true); };

    fixture.model->addToolCalls({PromptFixture::write("c1", "a")});
    fixture.model->addText({"done"});
    fixture.run();
    QTRY_COMPARE(fixture.dialogs.visibleCount(), 0);
    QCOMPARE(fixture.log.contains("call write"), isBlocking || place != "approval write");
}

void TestApprovalPrompt::slotMayBeginTheNextRun()
{
    PromptFixture fixture;
    connect(fixture.executor, &AgentExecutor::traceAdded, this, [&] {
        if (fixture.traces.size() > 1)
            return;
        fixture.model->clearAnswers();
        fixture.model->addToolCalls({PromptFixture::write("c2", "b")});
        fixture.executor->run("again");
    });
    fixture.ask();
    press(fixture.dialogs.last(), false);
    QTRY_COMPARE(fixture.dialogs.count(), 2);
    press(fixture.dialogs.last(), true);
    QCOMPARE(fixture.log, deniedRun
                              + QStringList({"delta ", "approval write", "call write", "trace write success",
                                             "answered c2 yes"}));
}

QTEST_MAIN(TestApprovalPrompt)
#include "tst_approvalprompt.moc"
