#include "support/exampletest.h"

#include <qtagent/widgets/graphview.h>

#include <QLabel>
#include <QSplitter>
#include <QTemporaryDir>

using namespace MireloQtLib::QtAgent;

// What its user sees of the window and does there.
class ReviewTest : public QObject
{
protected:
    // Whether the window has come to the status @p text.
    static bool shows(const QString &text)
    {
        for (const QLabel *label : shownWidget<QSplitter>()->findChildren<QLabel *>()) {
            if (label->text() == text)
                return true;
        }
        return false;
    }

    static void click(const QString &text)
    {
        for (QPushButton *button : shownWidget<QSplitter>()->findChildren<QPushButton *>()) {
            if (button->text() == text)
                QTest::mouseClick(button, Qt::LeftButton);
        }
    }

    static QString told(const QString &node)
    {
        shownWidget<GraphView>()->selectNode(node);
        return shownWidget<GraphView>()->accessibleDescription();
    }

    static QString draft() { return shownWidget<QPlainTextEdit>()->toPlainText(); }
};

class TestReviewWorkflow : public ReviewTest
{
    Q_OBJECT

private Q_SLOTS:
    void draftStreamsInAndWaitsForTheReview();
    void draftIsWrittenAgain();
    void agreedDraftIsSent();
    void nextReportBegins();
    void cleanupTestCase();
};

void TestReviewWorkflow::draftStreamsInAndWaitsForTheReview()
{
    QString part;
    const QObject context;
    QObject::connect(shownWidget<QPlainTextEdit>(), &QPlainTextEdit::textChanged, &context, [&part] {
        if (part.isEmpty())
            part = draft();
    });
    QTRY_VERIFY(shows("Do you agree?"));
    QVERIFY(draft().startsWith("Orvane"));
    QVERIFY(!part.isEmpty() && part.size() < draft().size());
    QVERIFY2(draft().startsWith(part), qPrintable(part));
    QVERIFY(told("review").startsWith("review：等待继续"));
}

void TestReviewWorkflow::draftIsWrittenAgain()
{
    auto *text = shownWidget<QPlainTextEdit>();
    const QString draft = text->toPlainText();
    // What the user has selected is not replaced.
    QStringList shown;
    const auto selectAll = connect(text, &QPlainTextEdit::textChanged, text, [text, &shown] {
        shown.append(text->toPlainText());
        text->selectAll();
    });
    click("&Write it again");
    QTRY_VERIFY(shows("Running: draft"));
    QTRY_VERIFY(shows("Do you agree?"));
    disconnect(selectAll);
    QVERIFY(shown.size() > 3);
    for (const QString &beginning : qAsConst(shown))
        QVERIFY2(draft.startsWith(beginning), qPrintable(beginning));
    QVERIFY(told("draft").startsWith("draft：已运行 1 次"));
}

void TestReviewWorkflow::agreedDraftIsSent()
{
    click("&Agree and send");
    QTRY_VERIFY(shows("Sent."));
    QVERIFY(told("send").startsWith("send：已运行 1 次"));
}

void TestReviewWorkflow::nextReportBegins()
{
    click("&New report");
    QTRY_VERIFY(shows("Do you agree?"));
}

void TestReviewWorkflow::cleanupTestCase()
{
    shownWidget<QSplitter>()->close();
}

// The window was closed before the review, and the program is started again.
class TestReviewAfterRestart : public ReviewTest
{
    Q_OBJECT

private Q_SLOTS:
    void draftWaitsAsItWasWritten();
    void agreedDraftIsSent();
    void cleanupTestCase();
};

void TestReviewAfterRestart::draftWaitsAsItWasWritten()
{
    QVERIFY(shows("Do you agree?"));
    QVERIFY(draft().startsWith("Orvane"));
    QVERIFY(told("draft").startsWith("draft：未运行"));
    QVERIFY(told("review").startsWith("review：等待继续"));
}

void TestReviewAfterRestart::agreedDraftIsSent()
{
    click("&Agree and send");
    QTRY_VERIFY(shows("Sent."));
    QVERIFY(told("draft").startsWith("draft：未运行"));
    QVERIFY(told("send").startsWith("send：已运行 1 次"));
}

void TestReviewAfterRestart::cleanupTestCase()
{
    shownWidget<QSplitter>()->close();
}

int main(int argc, char *argv[])
{
    const QTemporaryDir folder;
    const QStringList arguments{folder.filePath("checkpoints.sqlite")};
    const int status = ExampleRun<TestReviewWorkflow>::execute(argc, argv, arguments);
    return status == 0 ? ExampleRun<TestReviewAfterRestart>::execute(argc, argv, arguments) : status;
}

#include "tst_example_review_workflow.moc"
