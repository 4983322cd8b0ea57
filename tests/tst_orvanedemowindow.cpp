#include "support/completions.h"
#include "support/loopbackserver.h"
#include "support/offlineconfiguration.h"

#include <demo/navigation.h>
#include <demo/orvanedemowindow.h>
#include <qtagent/agentexecutor.h>
#include <qtagent/chatmodel.h>
#include <qtagent/deepseekmodel.h>
#include <qtagent/mockchatmodel.h>
#include <qtagent/openaicompatiblemodel.h>
#include <qtagent/toolregistry.h>
#include <qtagent/widgets/agentchatpanel.h>
#include <qtagent/widgets/modelconfigwidget.h>

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTextBrowser>
#include <QToolBar>
#include <QTreeWidget>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

namespace {

const char *const apiKey = "sk-very-secret-0123456789";
const char *const mockAnswer = "Orvane 模拟模型正在本地运行。本回复无需网络请求，会以流式方式输出，"
                               "因此可以离线测试演示程序。";

// The window, and the parts of its chat page.
struct Demo
{
    ~Demo() { delete window; }

    void ask(const QString &question) const
    {
        input->setPlainText(question);
        send->click();
    }

    bool isIdle() const { return send->isEnabled() && !stop->isEnabled(); }
    QString transcript() const { return history->toPlainText(); }

    QList<ChatReply *> replies() const
    {
        return window->findChildren<ChatReply *>(QString(), Qt::FindDirectChildrenOnly);
    }

    void pickProvider(const QString &provider) const
    {
        auto *combo = window->findChild<QComboBox *>("providerCombo");
        combo->setCurrentIndex(combo->findData(provider));
    }

    template<typename Widget>
    Widget *child(const char *name) const
    {
        return window->findChild<Widget *>(name);
    }

    QPointer<OrvaneDemoWindow> window{new OrvaneDemoWindow};
    QTreeWidget *navigation = child<QTreeWidget>("navigationTree");
    QStackedWidget *pages = child<QStackedWidget>("pageStack");
    ModelConfigWidget *modelConfig = window->findChild<ModelConfigWidget *>();
    AgentChatPanel *chat = pages->currentWidget()->findChild<AgentChatPanel *>();
    QTextBrowser *history = chat->findChild<QTextBrowser *>("agentChatHistory");
    QPlainTextEdit *input = chat->findChild<QPlainTextEdit *>("agentChatInput");
    QPushButton *send = chat->findChild<QPushButton *>("agentChatSend");
    QPushButton *stop = chat->findChild<QPushButton *>("agentChatStop");
};

QJsonObject serverProfile(const LoopbackServer &server, const QString &provider)
{
    return {{"name", provider},
            {"provider", provider},
            {"baseUrl", server.baseUrl()},
            {"apiKey", apiKey},
            {"model", "test-model"}};
}

QStringList titlesBelow(const QTreeWidgetItem *item)
{
    QStringList titles;
    for (int i = 0; i < item->childCount(); ++i)
        titles.append(item->child(i)->text(0));
    return titles;
}

// Everything that a user can read in the window.
QString shownText(const QWidget &window)
{
    QStringList texts{window.windowTitle()};
    for (const auto *widget : window.findChildren<QWidget *>())
        texts << widget->toolTip() << widget->accessibleName() << widget->windowTitle();
    for (const auto *label : window.findChildren<QLabel *>())
        texts << label->text();
    for (const auto *edit : window.findChildren<QLineEdit *>())
        texts << edit->displayText() << edit->placeholderText();
    for (const auto *edit : window.findChildren<QPlainTextEdit *>())
        texts << edit->toPlainText() << edit->placeholderText();
    for (const auto *edit : window.findChildren<QTextEdit *>())
        texts << edit->toPlainText();
    for (const auto *button : window.findChildren<QAbstractButton *>())
        texts << button->text();
    for (const auto *combo : window.findChildren<QComboBox *>()) {
        for (int i = 0; i < combo->count(); ++i)
            texts << combo->itemText(i);
    }
    return texts.join('\n');
}

} // namespace

class TestOrvaneDemoWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void windowHasItsTitleAndSizeAndNoBars();
    void treeListsThePagesInTheirGroups();
    void windowOpensOnTheChatPageWithTheFocusInItsInput();
    void tabLeadsFromTheInputToItsButtons();
    void pickedEntryShowsItsPageAndGroupsLeaveIt();
    void extraWidthGoesToThePages();
    void profilesOfTheFileAreShown();
    void environmentIsReadWithoutAFile();
    void everyModelHasTheProfileOfTheForm();
    void providerChoosesTheModel_data();
    void providerChoosesTheModel();
    void deepSeekModelFillsItsDefaults();
    void settingsWithoutAReportApplyToTheNextQuestion();
    void mockModelAnswersOffline();
    void windowOutlivesWhatItsPagesShare();
    void questionReachesTheServiceAndItsAnswerStreams();
    void stopEndsTheRequestAtOnce();
    void failureIsReportedWithoutTheKey();
    void repliesBelongToTheWindow();
    void windowMayBeDeletedInAnySlotOfAReply_data();
    void windowMayBeDeletedInAnySlotOfAReply();
    void windowMayBeDeletedInSlotsOfItsWidgets_data();
    void windowMayBeDeletedInSlotsOfItsWidgets();

private:
    std::unique_ptr<OfflineConfiguration> m_configuration;
};

void TestOrvaneDemoWindow::init()
{
    m_configuration = std::make_unique<OfflineConfiguration>();
}

void TestOrvaneDemoWindow::cleanup()
{
    m_configuration.reset();
}

void TestOrvaneDemoWindow::windowHasItsTitleAndSizeAndNoBars()
{
    const Demo demo;

    QCOMPARE(demo.window->windowTitle(), "Qt-UI Orvane 演示");
    QCOMPARE(demo.window->size(), QSize(1280, 820));
    QCOMPARE(demo.window->minimumSize(), QSize(0, 0));
    QVERIFY(!demo.window->findChild<QMenuBar *>());
    QVERIFY(!demo.window->findChild<QToolBar *>());
    QVERIFY(!demo.window->findChild<QStatusBar *>());
}

void TestOrvaneDemoWindow::treeListsThePagesInTheirGroups()
{
    const Demo demo;

    QCOMPARE(demo.navigation->isHeaderHidden(), true);
    QCOMPARE(demo.navigation->minimumWidth(), 240);
    QCOMPARE(demo.navigation->maximumWidth(), 360);
    QCOMPARE(titlesBelow(demo.navigation->invisibleRootItem()),
             QStringList({"快速开始", "模型能力", "流程能力"}));
    QCOMPARE(demo.navigation->topLevelItem(0)->child(0)->text(0), "基础对话");

    int pages = 0;
    for (int i = 0; i < demo.navigation->topLevelItemCount(); ++i) {
        const QTreeWidgetItem *group = demo.navigation->topLevelItem(i);
        QVERIFY(group->isExpanded() || group->childCount() == 0);
        QVERIFY(!group->data(0, Qt::UserRole).isValid());
        for (int k = 0; k < group->childCount(); ++k)
            QCOMPARE(group->child(k)->data(0, Qt::UserRole), QVariant(pages++));
    }
    QCOMPARE(demo.pages->count(), pages);
}

void TestOrvaneDemoWindow::windowOpensOnTheChatPageWithTheFocusInItsInput()
{
    const Demo demo;
    demo.window->show();
    QVERIFY(QTest::qWaitForWindowActive(demo.window));

    QCOMPARE(demo.navigation->currentItem()->text(0), "基础对话");
    QCOMPARE(demo.pages->currentIndex(), 0);
    QVERIFY(demo.chat->isVisible());
    QVERIFY(demo.input->hasFocus());
}

void TestOrvaneDemoWindow::tabLeadsFromTheInputToItsButtons()
{
    const Demo demo;
    demo.window->show();
    QVERIFY(QTest::qWaitForWindowActive(demo.window));

    QTest::keyClick(demo.input, Qt::Key_Tab);

    QVERIFY(qobject_cast<QPushButton *>(QApplication::focusWidget()));
    QVERIFY(demo.input->toPlainText().isEmpty());
}

void TestOrvaneDemoWindow::pickedEntryShowsItsPageAndGroupsLeaveIt()
{
    const Demo demo;
    QTreeWidgetItem *group = demo.navigation->topLevelItem(1);
    auto *page = new QWidget;
    addPage(group, demo.pages, "added", page);
    QTreeWidgetItem *added = group->child(group->childCount() - 1);
    QTreeWidgetItem *first = demo.navigation->topLevelItem(0)->child(0);
    QCOMPARE(added->data(0, Qt::UserRole), QVariant(demo.pages->indexOf(page)));

    demo.navigation->setCurrentItem(added);
    QCOMPARE(demo.pages->currentWidget(), page);
    demo.navigation->setCurrentItem(group);
    QCOMPARE(demo.pages->currentWidget(), page);
    demo.navigation->setCurrentItem(nullptr);
    QCOMPARE(demo.pages->currentWidget(), page);
    demo.navigation->setCurrentItem(first);
    QCOMPARE(demo.pages->currentIndex(), 0);
    demo.navigation->setCurrentItem(demo.navigation->topLevelItem(2));
    QCOMPARE(demo.pages->currentIndex(), 0);
}

void TestOrvaneDemoWindow::extraWidthGoesToThePages()
{
    const Demo demo;
    auto *splitter = qobject_cast<QSplitter *>(demo.window->centralWidget());
    QVERIFY(splitter);
    QCOMPARE(splitter->orientation(), Qt::Horizontal);
    QCOMPARE(splitter->widget(0), demo.navigation);
    QCOMPARE(splitter->widget(1), demo.pages);
    demo.window->show();
    const int treeWidth = demo.navigation->width();
    const int pagesWidth = demo.pages->width();

    demo.window->resize(1480, 820);

    QTRY_COMPARE(demo.pages->width(), pagesWidth + 200);
    QCOMPARE(demo.navigation->width(), treeWidth);
}

void TestOrvaneDemoWindow::profilesOfTheFileAreShown()
{
    const QJsonArray profiles{QJsonObject{{"name", "one"}, {"provider", "mock"}},
                              QJsonObject{{"name", "two"}, {"provider", "deepseek"}, {"maxTokens", 99}}};
    m_configuration->write({{"profiles", profiles}, {"currentProfile", 1}});
    const Demo demo;

    const ModelConfig config = demo.modelConfig->currentConfig();
    QCOMPARE(config.name, "two");
    QCOMPARE(config.provider, "deepseek");
    QCOMPARE(config.maxTokens, 99);
    QCOMPARE(config.baseUrl, defaultBaseUrl("deepseek"));
    QCOMPARE(demo.child<QComboBox>("profileCombo")->count(), 2);
}

void TestOrvaneDemoWindow::environmentIsReadWithoutAFile()
{
    for (const QString &path : modelConfigFileCandidates().mid(1)) {
        if (QFile::exists(path))
            QSKIP("A configuration file lies beside the program.");
    }
    QVERIFY(QFile::remove("orvane.local.json"));
    qputenv("OPENAI_API_KEY", apiKey);
    const Demo demo;
    qunsetenv("OPENAI_API_KEY");

    QCOMPARE(demo.modelConfig->currentConfig().name, "OpenAI 环境变量");
    QCOMPARE(demo.modelConfig->currentConfig().apiKey, apiKey);
}

void TestOrvaneDemoWindow::everyModelHasTheProfileOfTheForm()
{
    m_configuration->write({{"provider", "openai"}, {"model", "from-file"}, {"apiKey", apiKey}});
    const Demo demo;
    const auto models = demo.window->findChildren<ChatModel *>(QString(), Qt::FindDirectChildrenOnly);
    QCOMPARE(models.size(), 3);
    QVERIFY(demo.window->findChild<MockChatModel *>());
    QVERIFY(demo.window->findChild<DeepSeekModel *>());
    for (const ChatModel *model : models) {
        QCOMPARE(model->config().model, "from-file");
        QCOMPARE(model->config().provider, "openai");
        QCOMPARE(model->config().apiKey, apiKey);
    }

    demo.child<QLineEdit>("modelEdit")->setText(" edited ");

    for (const ChatModel *model : models)
        QCOMPARE(model->config().model, "edited");
}

void TestOrvaneDemoWindow::providerChoosesTheModel_data()
{
    QTest::addColumn<QString>("provider");
    QTest::addColumn<QString>("answer");
    QTest::newRow("openai asks the service") << "openai"
                                             << "from the service";
    QTest::newRow("deepseek asks the service") << "deepseek"
                                               << "from the service";
    QTest::newRow("mock") << "mock" << mockAnswer;
    QTest::newRow("another case is the mock") << "OpenAI" << mockAnswer;
    QTest::newRow("unknown is the mock") << "other" << mockAnswer;
}

void TestOrvaneDemoWindow::providerChoosesTheModel()
{
    QFETCH(QString, provider);
    QFETCH(QString, answer);
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::stream({deltaEvent("from the service"), doneEvent()}));
    m_configuration->write(serverProfile(server, provider));
    const Demo demo;

    demo.ask("hello");

    QTRY_VERIFY(demo.isIdle());
    QVERIFY2(demo.transcript().trimmed().endsWith(answer), qPrintable(demo.transcript()));
    QCOMPARE(server.requests().isEmpty(), answer == mockAnswer);
}

void TestOrvaneDemoWindow::deepSeekModelFillsItsDefaults()
{
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::stream({deltaEvent("yes"), doneEvent()}));
    m_configuration->write(serverProfile(server, "openai"));
    const Demo demo;
    demo.child<QLineEdit>("modelEdit")->clear();

    demo.ask("to the OpenAI-compatible model");
    QTRY_VERIFY(demo.isIdle());
    QVERIFY(demo.transcript().endsWith("Missing baseUrl or model."));

    demo.pickProvider("deepseek");
    demo.child<QLineEdit>("modelEdit")->clear();
    demo.ask("to the DeepSeek model");
    QTRY_VERIFY(demo.isIdle());
    QCOMPARE(server.requests().size(), 1);
    QCOMPARE(server.requests().at(0).json["model"].toString(), "deepseek-v4-flash");
}

void TestOrvaneDemoWindow::settingsWithoutAReportApplyToTheNextQuestion()
{
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::stream({doneEvent()}));
    m_configuration->write(serverProfile(server, "openai"));
    const Demo demo;
    demo.child<QSpinBox>("maxTokensSpin")->setValue(777);

    demo.ask("hello");

    QTRY_VERIFY(demo.isIdle());
    QCOMPARE(server.requests().at(0).json["max_tokens"].toInt(), 777);
}

void TestOrvaneDemoWindow::windowOutlivesWhatItsPagesShare()
{
    const Demo demo;
    qDeleteAll(demo.window->findChildren<ChatModel *>(QString(), Qt::FindDirectChildrenOnly));
    delete demo.window->findChild<ToolRegistry *>();
    delete demo.window->findChild<AgentExecutor *>();

    demo.pickProvider("deepseek");
    demo.ask("hello");

    QTRY_VERIFY(demo.isIdle());
    QVERIFY(demo.transcript().contains("智能体模型尚未配置。"));
}

void TestOrvaneDemoWindow::mockModelAnswersOffline()
{
    const Demo demo;
    demo.ask("导出设备报告");

    QVERIFY(!demo.isIdle());
    QTRY_VERIFY(demo.isIdle());
    QVERIFY(demo.transcript().contains("用户\n导出设备报告\n智能体\n" + QString(mockAnswer)));
}

void TestOrvaneDemoWindow::questionReachesTheServiceAndItsAnswerStreams()
{
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::stream({deltaEvent("设备"), deltaEvent("正常"), doneEvent()}).held(1));
    m_configuration->write(serverProfile(server, "openai"));
    const Demo demo;

    demo.ask("状态？");
    QTRY_VERIFY(demo.transcript().endsWith("智能体\n设备"));
    QVERIFY(!demo.isIdle());
    server.release();
    QTRY_VERIFY(demo.isIdle());

    QVERIFY(demo.transcript().endsWith("用户\n状态？\n智能体\n设备正常"));
    QCOMPARE(server.requests().size(), 1);
    const LoopbackRequest request = server.requests().at(0);
    QCOMPARE(request.headers["authorization"], QByteArray("Bearer ") + apiKey);
    const QJsonArray messages{
        QJsonObject{{"role", "system"},
                    {"content", "你是 Qt Orvane，一个嵌入 Qt Widgets 演示程序的简洁助手。"}},
        QJsonObject{{"role", "user"}, {"content", "状态？"}},
    };
    QCOMPARE(request.json["messages"].toArray(), messages);
    QCOMPARE(request.json["stream"].toBool(), true);
    QVERIFY(!request.json.contains("tools"));
    QTRY_VERIFY(demo.replies().isEmpty());
}

void TestOrvaneDemoWindow::stopEndsTheRequestAtOnce()
{
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::stream({deltaEvent("half"), deltaEvent(" whole"), doneEvent()}).held(1));
    server.enqueue(LoopbackAnswer::stream({deltaEvent("next"), doneEvent()}));
    m_configuration->write(serverProfile(server, "openai"));
    const Demo demo;
    demo.ask("first");
    QTRY_VERIFY(demo.transcript().endsWith("half"));

    demo.stop->click();
    QVERIFY(demo.isIdle());
    server.release();
    demo.ask("second");
    QTRY_VERIFY(demo.isIdle());

    QVERIFY(demo.transcript().endsWith("用户\nfirst\n智能体\nhalf\n用户\nsecond\n智能体\nnext"));
}

void TestOrvaneDemoWindow::failureIsReportedWithoutTheKey()
{
    LoopbackServer server;
    server.enqueue(LoopbackAnswer::withStatus(401, R"({"error": {"message": "No access."}})"));
    m_configuration->write(serverProfile(server, "openai"));
    const Demo demo;

    demo.ask("hello");

    QTRY_VERIFY(demo.isIdle());
    QVERIFY(demo.transcript().contains("系统\nOpenAI-compatible request failed.\n"));
    QVERIFY(demo.transcript().contains("401"));
    QCOMPARE(demo.child<QLineEdit>("apiKeyEdit")->text(), apiKey);
    QVERIFY(!shownText(*demo.window).contains(apiKey));
}

void TestOrvaneDemoWindow::repliesBelongToTheWindow()
{
    const Demo demo;
    demo.ask("hello");

    QCOMPARE(demo.replies().size(), 1);
    const QPointer<ChatReply> reply = demo.replies().constFirst();
    demo.stop->click();
    QVERIFY(reply->isCanceled());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(reply);
    delete demo.window;
    QVERIFY(reply.isNull());
}

void TestOrvaneDemoWindow::windowMayBeDeletedInAnySlotOfAReply_data()
{
    QTest::addColumn<QString>("provider");
    QTest::addColumn<QString>("signal");
    for (const char *provider : {"mock", "openai"}) {
        for (const char *signal : {"deltaReceived", "finished", "canceled"})
            QTest::addRow("%s, %s", provider, signal) << provider << signal;
    }
    QTest::newRow("openai, failed") << "openai"
                                    << "failed";
}

void TestOrvaneDemoWindow::windowMayBeDeletedInAnySlotOfAReply()
{
    QFETCH(QString, provider);
    QFETCH(QString, signal);
    LoopbackServer server;
    if (signal == "failed")
        server.enqueue(LoopbackAnswer::withStatus(500, "no"));
    else
        server.enqueue(LoopbackAnswer::stream({deltaEvent("one"), deltaEvent("two"), doneEvent()}));
    m_configuration->write(serverProfile(server, provider));
    const Demo demo;
    const QPointer<OrvaneDemoWindow> window = demo.window;
    demo.ask("hello");
    const ChatReply *reply = demo.replies().constFirst();
    const auto deleteWindow = [window] { delete window; };
    if (signal == "deltaReceived")
        connect(reply, &ChatReply::deltaReceived, this, deleteWindow);
    else if (signal == "finished")
        connect(reply, &ChatReply::finished, this, deleteWindow);
    else if (signal == "failed")
        connect(reply, &ChatReply::failed, this, deleteWindow);
    else
        connect(reply, &ChatReply::canceled, this, deleteWindow);

    if (signal == "canceled")
        demo.stop->click();

    QTRY_VERIFY(window.isNull());
    QCoreApplication::processEvents();
}

void TestOrvaneDemoWindow::windowMayBeDeletedInSlotsOfItsWidgets_data()
{
    QTest::addColumn<QString>("signal");
    QTest::newRow("sendRequested") << "sendRequested";
    QTest::newRow("stopRequested") << "stopRequested";
    QTest::newRow("clearRequested") << "clearRequested";
    QTest::newRow("configChanged by typing") << "configChanged by typing";
    QTest::newRow("configChanged by picking") << "configChanged by picking";
}

void TestOrvaneDemoWindow::windowMayBeDeletedInSlotsOfItsWidgets()
{
    QFETCH(QString, signal);
    const Demo demo;
    const QPointer<OrvaneDemoWindow> window = demo.window;
    const auto deleteWindow = [window] { delete window; };
    window->show();
    if (signal == "stopRequested")
        demo.ask("hello");
    connect(demo.chat, &AgentChatPanel::sendRequested, this, deleteWindow);
    connect(demo.chat, &AgentChatPanel::stopRequested, this, deleteWindow);
    connect(demo.chat, &AgentChatPanel::clearRequested, this, deleteWindow);
    connect(demo.modelConfig, &ModelConfigWidget::configChanged, this, deleteWindow);

    if (signal == "sendRequested")
        demo.ask("hello");
    else if (signal == "stopRequested")
        QTest::mouseClick(demo.stop, Qt::LeftButton);
    else if (signal == "clearRequested")
        QTest::mouseClick(demo.chat->findChild<QPushButton *>("agentChatClear"), Qt::LeftButton);
    else if (signal == "configChanged by typing")
        QTest::keyClick(demo.child<QLineEdit>("apiKeyEdit"), Qt::Key_A);
    else
        demo.pickProvider("deepseek");

    QVERIFY(window.isNull());
    QCoreApplication::processEvents();
}

QTEST_MAIN(TestOrvaneDemoWindow)
#include "tst_orvanedemowindow.moc"
