#include "support/samplewindow.h"

#include <qtagent/agentsession.h>
#include <qtagent/store/conversationstore.h>

#include <QtTest>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

class StoreWindow : public SampleWindow
{
public:
    StoreWindow() { session->setConversation({ChatMessage::user(question)}); }

    void paste() override{
#include "conversationstore_1.inc"
    }

    AgentSession *const session = new AgentSession(this);
};

} // namespace

class TestSamplesStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { init(); }

    void conversationIsKept();
    void fileThatCannotBeOpenedIsTold();
    void windowMayBeDeletedAndMadeAgain();
};

void TestSamplesStore::init()
{
    QStandardPaths::setTestModeEnabled(true);
    QDir folder = QFileInfo(ConversationStore::defaultPath()).dir();
    QVERIFY(folder.removeRecursively());
}

void TestSamplesStore::conversationIsKept()
{
    StoreWindow window;
    window.paste();
    QCOMPARE(window.ends, QStringList());
    const auto *store = window.findChild<ConversationStore *>();
    QCOMPARE(store->list().size(), 1);
    const Conversation kept = store->load(store->list().first().id);
    QCOMPARE(kept.title, "New conversation");
    QCOMPARE(kept.chatMessages().first().content, "What is a valve?");
}

void TestSamplesStore::fileThatCannotBeOpenedIsTold()
{
    QVERIFY(QDir().mkpath(ConversationStore::defaultPath()));
    StoreWindow window;
    window.paste();
    QCOMPARE(window.ends.size(), 1);
    QVERIFY(window.ends.first().startsWith("Failed: "));
}

void TestSamplesStore::windowMayBeDeletedAndMadeAgain()
{
    auto window = std::make_unique<StoreWindow>();
    window->paste();
    window.reset();
    StoreWindow next;
    next.paste();
    QCOMPARE(next.ends, QStringList());
    QCOMPARE(next.findChild<ConversationStore *>()->list().size(), 2);
}

QTEST_MAIN(TestSamplesStore)
#include "tst_samples_store.moc"
