// That a day with many conversations leaves nothing in memory.

#include "support/assistantuser.h"
#include "support/heapusage.h"

using namespace MireloQtLib::QtAgent;

class TestAssistantMemory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void memoryStaysFlatOverConversations();
};

namespace {

constexpr int conversations = 500;

void keepConversations(AssistantUser *user)
{
    QStringList texts;
    for (int i = 0; i < 2; ++i)
        texts << "What does it *do*?"
              << "- It **closes**:\n\n```\nvalve(7)\n```\n";
    for (int i = 0; i < conversations; ++i)
        user->keep(QString::number(i), texts);
}

void openAll(const AssistantUser &user)
{
    auto *list = user.find<QListView>("conversationList");
    for (int row = 0; row < conversations; ++row) {
        Q_EMIT list->clicked(list->model()->index(row, 0));
        QCoreApplication::processEvents();
    }
    user.click("newConversation");
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace

void TestAssistantMemory::memoryStaysFlatOverConversations()
{
    if (!heapUsage())
        QSKIP("The heap cannot be measured here.");
    AssistantUser user;
    keepConversations(&user);
    user.start();
    QCOMPARE(user.titles().size(), conversations);
    for (int i = 0; i < 2; ++i)
        openAll(user); // which also fills the caches of Qt and of the database
    const qint64 before = *heapUsage();
    openAll(user);
    const qint64 growth = *heapUsage() - before;
    qInfo("%d conversations: the heap has grown by %lld bytes", conversations,
          static_cast<long long>(growth));
    // The smallest thing that could be left of each is a QObject, with more than 100 bytes.
    QVERIFY2(growth < conversations * 100, qPrintable(QString::number(growth)));
}

QTEST_MAIN(TestAssistantMemory)
#include "tst_assistantmemory.moc"
