#include <demo/navigation.h>
#include <demo/pagetour.h>
#include <qtagent/testing/scriptedmodel.h>
#include <qtagent/widgets/agentchatpanel.h>

#include <QDialog>
#include <QHBoxLayout>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

// A window like the demo's, whose pages a test adds.
class Window : public QWidget
{
public:
    Window()
        : m_navigation(new QTreeWidget(this))
        , m_pages(new QStackedWidget(this))
        , m_group(new QTreeWidgetItem(m_navigation, QStringList("group")))
    {
        m_navigation->setObjectName("navigationTree");
        m_pages->setObjectName("pageStack");
        auto *layout = new QHBoxLayout(this);
        layout->addWidget(m_navigation);
        layout->addWidget(m_pages);
        connect(m_navigation, &QTreeWidget::currentItemChanged, m_pages, [this](QTreeWidgetItem *entry) {
            m_pages->setCurrentIndex(entry->data(0, Qt::UserRole).toInt());
        });
        resize(400, 300);
    }

    QWidget *add(const QString &title)
    {
        auto *page = new QWidget;
        page->setAutoFillBackground(true);
        new QHBoxLayout(page);
        addPage(m_group, m_pages, title, page);
        return page;
    }

private:
    QTreeWidget *m_navigation;
    QStackedWidget *m_pages;
    QTreeWidgetItem *m_group;
};

template<typename Widget>
Widget *addNamed(QWidget *page, const char *name)
{
    auto *widget = new Widget;
    widget->setObjectName(name);
    page->layout()->addWidget(widget);
    return widget;
}

AgentChatPanel *addChat(QWidget *page)
{
    auto *chat = new AgentChatPanel;
    page->layout()->addWidget(chat);
    return chat;
}

// A page whose run button shows a text.
void addOutput(QWidget *page, const QString &text)
{
    auto *output = addNamed<QPlainTextEdit>(page, "pageOutput");
    auto *run = addNamed<QPushButton>(page, "runButton");
    QObject::connect(run, &QPushButton::clicked, output, [output, text] { output->setPlainText(text); });
}

// Runs a dialog as pages do that ask before a tool runs. Returns whether it was accepted.
bool askUser(const QString &acceptText)
{
    QDialog dialog;
    dialog.setWindowTitle("question");
    QPushButton deny("拒绝", &dialog);
    QPushButton accept(acceptText, &dialog);
    QObject::connect(&deny, &QPushButton::clicked, &dialog, &QDialog::reject);
    QObject::connect(&accept, &QPushButton::clicked, &dialog, &QDialog::accept);
    return dialog.exec() == QDialog::Accepted;
}

// A tour of a window, and what it reports.
struct Tour
{
    explicit Tour(Window *window)
        : tour(window, QDir(folder.path()))
    {
        QObject::connect(&tour, &PageTour::pageDone, &tour,
                         [this](const QString &report) { reports.append(report); });
    }

    bool run()
    {
        QSignalSpy finished(&tour, &PageTour::finished);
        tour.start();
        return finished.wait(10000) && finished.at(0).at(0).toBool();
    }

    QStringList pictures() const { return QDir(folder.path()).entryList(QDir::Files, QDir::Name); }

    QTemporaryDir folder;
    PageTour tour;
    QStringList reports;
};

} // namespace

class TestPageTour : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyPageIsPicturedInOrder();
    void focusIsNotPictured();
    void questionIsTypedAndSent_data();
    void questionIsTypedAndSent();
    void runButtonsArePressedOneAfterTheOther();
    void replyOfPageOrWindowIsAwaited_data();
    void replyOfPageOrWindowIsAwaited();
    void endedAndCanceledRepliesAreNotAwaited();
    void stopButtonIsAwaited();
    void approvalIsGivenAndPictured();
    void shownErrorFailsThePage_data();
    void shownErrorFailsThePage();
    void errorsElsewhereDoNotFailThePage();
    void noteOfAFailedRunFailsThePage();
    void runningPageIsStoppedAtTheLimit();
    void unknownDialogIsRejectedAtTheLimit();
    void unwritablePictureFailsThePage();
};

void TestPageTour::everyPageIsPicturedInOrder()
{
    Window window;
    window.add("first")->setStyleSheet("background: red");
    window.add("second")->setStyleSheet("background: blue");
    Tour tour(&window);

    QVERIFY(tour.run());

    QCOMPARE(tour.reports, QStringList({"01-first ok", "02-second ok"}));
    QCOMPARE(tour.pictures(), QStringList({"01-first.png", "02-second.png"}));
    const QImage first(tour.folder.filePath("01-first.png"));
    QCOMPARE(first.size(), QSize(400, 300));
    QVERIFY(first != QImage(tour.folder.filePath("02-second.png")));
}

void TestPageTour::focusIsNotPictured()
{
    Window window;
    QWidget *page = window.add("page");
    auto *input = addNamed<QLineEdit>(page, "input");
    input->setStyleSheet("* { background: blue; border: none } :focus { background: red }");
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    input->setFocus();
    QVERIFY(input->hasFocus());
    Tour tour(&window);

    QVERIFY(tour.run());

    const QImage picture(tour.folder.filePath("01-page.png"));
    QCOMPARE(picture.pixelColor(input->mapTo(&window, QPoint(1, 1))), QColor(Qt::blue));
}

void TestPageTour::questionIsTypedAndSent_data()
{
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("question");
    QTest::newRow("chat") << "基础对话"
                          << "用一句话介绍 Orvane。";
    QTest::newRow("agent") << "数据分析"
                           << "查找异常设备并导出报告";
}

void TestPageTour::questionIsTypedAndSent()
{
    QFETCH(QString, title);
    QFETCH(QString, question);
    Window window;
    const AgentChatPanel *chat = addChat(window.add(title));
    QSignalSpy sent(chat, &AgentChatPanel::sendRequested);
    Tour tour(&window);

    QVERIFY(tour.run());

    QCOMPARE(sent.count(), 1);
    QCOMPARE(sent.at(0).at(0).toString(), question);
}

void TestPageTour::runButtonsArePressedOneAfterTheOther()
{
    Window window;
    ScriptedModel model;
    QWidget *page = window.add("turns");
    QStringList events;
    for (const char *name : {"secondTurnButton", "firstTurnButton"}) {
        connect(addNamed<QPushButton>(page, name), &QPushButton::clicked, page, [&, page, name] {
            events.append(name);
            model.addText({"answer"});
            connect(model.chat({}, {}, page), &ChatReply::finished, page, [&] { events.append("answer"); });
        });
    }
    Tour tour(&window);

    QVERIFY(tour.run());

    QCOMPARE(events, QStringList({"firstTurnButton", "answer", "secondTurnButton", "answer"}));
}

void TestPageTour::replyOfPageOrWindowIsAwaited_data()
{
    QTest::addColumn<bool>("ofWindow");
    QTest::addColumn<bool>("fails");
    QTest::newRow("page, finished") << false << false;
    QTest::newRow("page, failed") << false << true;
    QTest::newRow("window, finished") << true << false;
    QTest::newRow("window, failed") << true << true;
}

void TestPageTour::replyOfPageOrWindowIsAwaited()
{
    QFETCH(bool, ofWindow);
    QFETCH(bool, fails);
    Window window;
    QWidget *page = window.add("asks");
    QPointer<ChatReply> reply;
    connect(addNamed<QPushButton>(page, "runButton"), &QPushButton::clicked, page,
            [&] { reply = new ChatReply(ofWindow ? static_cast<QWidget *>(&window) : page); });
    Tour tour(&window);
    QSignalSpy done(&tour.tour, &PageTour::pageDone);
    QSignalSpy finished(&tour.tour, &PageTour::finished);

    tour.tour.start();
    QTRY_VERIFY(reply);
    QVERIFY(!done.wait(200));
    if (fails)
        reply->fail("no");
    else
        reply->finish("yes");

    QVERIFY(finished.count() || finished.wait());
}

void TestPageTour::endedAndCanceledRepliesAreNotAwaited()
{
    Window window;
    QWidget *page = window.add("asks");
    connect(addNamed<QPushButton>(page, "runButton"), &QPushButton::clicked, page, [page] {
        (new ChatReply(page))->cancel();
        auto *reply = new ChatReply(page);
        QTimer::singleShot(0, reply, [reply] { reply->finish("kept"); });
    });
    Tour tour(&window);

    QVERIFY(tour.run());
}

void TestPageTour::stopButtonIsAwaited()
{
    Window window;
    QWidget *page = window.add("runs");
    auto *stop = addNamed<QPushButton>(page, "stopButton");
    stop->setEnabled(false);
    connect(addNamed<QPushButton>(page, "runButton"), &QPushButton::clicked, stop,
            [stop] { stop->setEnabled(true); });
    Tour tour(&window);
    QSignalSpy done(&tour.tour, &PageTour::pageDone);

    tour.tour.start();
    QTRY_VERIFY(stop->isEnabled());
    QVERIFY(!done.wait(200));
    stop->setEnabled(false);

    QVERIFY(done.count() || done.wait());
}

void TestPageTour::approvalIsGivenAndPictured()
{
    Window window;
    QWidget *page = window.add("tools");
    int allowed = 0;
    connect(addNamed<QPushButton>(page, "runButton"), &QPushButton::clicked, page, [&] {
        allowed += askUser("允许一次") ? 1 : 0;
        allowed += askUser("&允许一次") ? 1 : 0;
    });
    Tour tour(&window);

    QVERIFY(tour.run());

    QCOMPARE(allowed, 2);
    QCOMPARE(tour.pictures(),
             QStringList({"01-tools-approval.png", "01-tools-approval2.png", "01-tools.png"}));
}

void TestPageTour::shownErrorFailsThePage_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("error");
    QTest::newRow("error") << "错误：no answer"
                           << "错误：no answer";
    QTest::newRow("error below an answer") << "half\n错误：no answer\nmore"
                                           << "错误：no answer";
    QTest::newRow("branch") << "[a]\n分支失败：no"
                            << "分支失败：no";
    QTest::newRow("merge") << "merging\n\n汇总节点错误：no"
                           << "汇总节点错误：no";
    QTest::newRow("state") << "状态 JSON 无效：bad"
                           << "状态 JSON 无效：bad";
}

void TestPageTour::shownErrorFailsThePage()
{
    QFETCH(QString, text);
    QFETCH(QString, error);
    Window window;
    addOutput(window.add("bad"), text);
    addOutput(window.add("good"), "answer");
    Tour tour(&window);

    QVERIFY(!tour.run());

    QCOMPARE(tour.reports, QStringList({"01-bad failed: " + error, "02-good ok"}));
    QCOMPARE(tour.pictures(), QStringList({"01-bad.png", "02-good.png"}));
}

void TestPageTour::errorsElsewhereDoNotFailThePage()
{
    Window window;
    QWidget *page = window.add("good");
    addOutput(page, "An answer about 错误：no");
    auto *hidden = addNamed<QLabel>(page, "hidden");
    hidden->setText("错误：hidden");
    hidden->hide();
    Tour tour(&window);

    QVERIFY(tour.run());
}

void TestPageTour::noteOfAFailedRunFailsThePage()
{
    Window window;
    AgentChatPanel *bad = addChat(window.add("bad"));
    bad->appendSystemMessage("welcome");
    connect(bad, &AgentChatPanel::sendRequested, bad, [bad] { bad->appendSystemMessage("no answer"); });
    AgentChatPanel *good = addChat(window.add("good"));
    good->appendSystemMessage("welcome");
    connect(good, &AgentChatPanel::sendRequested, good, [good] { good->appendAgentDelta("\n系统\nfine"); });
    Tour tour(&window);

    QVERIFY(!tour.run());

    QCOMPARE(tour.reports, QStringList({"01-bad failed: no answer", "02-good ok"}));
}

void TestPageTour::runningPageIsStoppedAtTheLimit()
{
    Window window;
    AgentChatPanel *chat = addChat(window.add("chat"));
    QPointer<ChatReply> reply;
    connect(chat, &AgentChatPanel::sendRequested, chat, [&] {
        reply = new ChatReply(&window);
        chat->setBusy(true);
    });
    connect(chat, &AgentChatPanel::stopRequested, chat, [chat] { chat->setBusy(false); });
    addOutput(window.add("next"), "answer");
    Tour tour(&window);
    tour.tour.setTimeLimit(100);

    QVERIFY(!tour.run());

    QVERIFY(reply->isCanceled());
    QCOMPARE(tour.reports, QStringList({"01-chat failed: not idle after 0.1 s", "02-next ok"}));
}

void TestPageTour::unknownDialogIsRejectedAtTheLimit()
{
    Window window;
    QWidget *page = window.add("asks");
    connect(addNamed<QPushButton>(page, "runButton"), &QPushButton::clicked, page, [] { askUser("OK"); });
    Tour tour(&window);
    tour.tour.setTimeLimit(100);

    QVERIFY(!tour.run());

    QCOMPARE(tour.reports, QStringList("01-asks failed: unknown dialog \"question\""));
}

void TestPageTour::unwritablePictureFailsThePage()
{
    Window window;
    window.add("page");
    Tour tour(&window);
    QVERIFY(tour.folder.remove());

    QVERIFY(!tour.run());

    QCOMPARE(tour.reports,
             QStringList("01-page failed: cannot write " + tour.folder.filePath("01-page.png")));
}

QTEST_MAIN(TestPageTour)
#include "tst_pagetour.moc"
