#include "support/assistantfixture.h"

#include <assistant/conversationlistmodel.h>

#include <QAbstractItemModelTester>

using namespace MireloQtLib::QtAgent;

class TestConversationListModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newestChangeIsFirst();
    void searchLeavesOneRowForEachConversation();
    void rowsStayWhereOnlyTimesChange();
    void editedTitleIsAskedFor();
    void rowsMoveWithTheirConversations();
    void conversationWithManyPlacesHidesNone();
    void failureLeavesTheList();
};

static QStringList titles(const ConversationListModel &model)
{
    QStringList result;
    for (int row = 0; row < model.rowCount(); ++row)
        result.append(model.index(row).data().toString());
    return result;
}

void TestConversationListModel::newestChangeIsFirst()
{
    AssistantFixture fixture;
    const QString pumps = fixture.keep("Pumps", {"What is a pump?"});
    fixture.keep("Valves", {"What is a valve?"});
    ConversationListModel model(&fixture.store);
    const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    model.refresh();
    QCOMPARE(titles(model), QStringList({"Valves", "Pumps"}));
    QCOMPARE(model.indexOf(pumps), model.index(1));
    QVERIFY(!model.indexOf("unknown").isValid());
}

void TestConversationListModel::searchLeavesOneRowForEachConversation()
{
    AssistantFixture fixture;
    fixture.keep("Pumps", {"What is it?", "It moves water.", "Salt water, too?", "Yes, water is water."});
    fixture.keep("Water", {"Is it wet?"});
    fixture.keep("Valves", {"What is a valve?"});
    ConversationListModel model(&fixture.store);
    const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    model.setSearchText("WATER");
    QCOMPARE(model.rowCount(), 2);
    const int pumps = model.index(0).data().toString() == "Pumps" ? 0 : 1;
    QCOMPARE(model.index(pumps).data(ConversationListModel::ExcerptRole).toString(), "It moves water.");
    QCOMPARE(model.index(pumps).data(ConversationListModel::MessageIndexRole).toInt(), 1);
    QCOMPARE(model.index(1 - pumps).data(ConversationListModel::ExcerptRole).toString(), QString());
    model.setSearchText(" ");
    QCOMPARE(model.rowCount(), 3);
}

void TestConversationListModel::rowsStayWhereOnlyTimesChange()
{
    AssistantFixture fixture;
    const QString id = fixture.keep("Pumps", {"What is a pump?"});
    ConversationListModel model(&fixture.store);
    model.refresh();
    const QPersistentModelIndex row = model.index(0);
    Conversation conversation = fixture.store.load(id);
    conversation.title = "Water pumps";
    QVERIFY(fixture.store.save(&conversation));
    QSignalSpy changed(&model, &ConversationListModel::dataChanged);
    model.refresh();
    QVERIFY(row.isValid());
    QCOMPARE(row.data().toString(), "Water pumps");
    QCOMPARE(changed.count(), 1);
}

void TestConversationListModel::editedTitleIsAskedFor()
{
    AssistantFixture fixture;
    const QString id = fixture.keep("Pumps", {"What is a pump?"});
    ConversationListModel model(&fixture.store);
    model.refresh();
    QSignalSpy requested(&model, &ConversationListModel::renameRequested);
    QVERIFY(!model.setData(model.index(0), " \n "));
    QVERIFY(model.setData(model.index(0), " Water\npumps "));
    QCOMPARE(requested, QList<QVariantList>({{id, "Water pumps"}}));
}

void TestConversationListModel::rowsMoveWithTheirConversations()
{
    AssistantFixture fixture;
    const QString pumps = fixture.keep("Pumps", {"What is a pump?"});
    const QString valves = fixture.keep("Valves", {"What is a valve?"});
    fixture.keep("Tanks", {"What is a tank?"});
    ConversationListModel model(&fixture.store);
    const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    model.refresh();
    QSignalSpy reset(&model, &ConversationListModel::modelReset);
    const QPersistentModelIndex pumpsRow = model.indexOf(pumps);
    const QPersistentModelIndex valvesRow = model.indexOf(valves);
    Conversation changed = fixture.store.load(pumps);
    changed.title = "Water pumps";
    QVERIFY(fixture.store.save(&changed) && fixture.store.remove(valves));
    fixture.keep("Taps", {"What is a tap?"});
    model.refresh();
    QCOMPARE(titles(model), QStringList({"Taps", "Water pumps", "Tanks"}));
    QCOMPARE(pumpsRow.row(), 1);
    QVERIFY(!valvesRow.isValid());
    QCOMPARE(reset.count(), 0);
}

void TestConversationListModel::conversationWithManyPlacesHidesNone()
{
    AssistantFixture fixture;
    fixture.keep("Old", {"Is water wet?"});
    QStringList texts;
    for (int i = 0; i < 120; ++i)
        texts.append("water");
    fixture.keep("New", texts);
    ConversationListModel model(&fixture.store);
    model.setSearchText("water");
    QCOMPARE(titles(model), QStringList({"New", "Old"}));
}

void TestConversationListModel::failureLeavesTheList()
{
    AssistantFixture fixture;
    fixture.keep("Pumps", {"What is a pump?"});
    ConversationListModel model(&fixture.store);
    model.refresh();
    fixture.store.close();
    QSignalSpy failed(&model, &ConversationListModel::failed);
    model.refresh();
    QCOMPARE(failed, QList<QVariantList>({{"The store is not open."}}));
    QCOMPARE(titles(model), QStringList("Pumps"));
}

QTEST_MAIN(TestConversationListModel)
#include "tst_conversationlistmodel.moc"
