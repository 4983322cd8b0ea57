#include <assistant/noticebar.h>

#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <QtTest>

class TestNoticeBar : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void longWordsAreBroken();
    void actionIsOnlyThereWhereNeeded();
    void closingIsTold();
};

void TestNoticeBar::longWordsAreBroken()
{
    NoticeBar bar;
    const QString text = "short " + QString(300, 'x') + QString("😀").repeated(100);
    bar.tell(text);
    QCOMPARE(bar.text(), text);
    QVERIFY2(bar.minimumSizeHint().width() < 700, qPrintable(QString::number(bar.minimumSizeHint().width())));
}

void TestNoticeBar::actionIsOnlyThereWhereNeeded()
{
    NoticeBar bar;
    QCOMPARE(bar.text(), QString());
    QSignalSpy acted(&bar, &NoticeBar::acted);
    auto *action = bar.findChild<QPushButton *>("noticeAction");
    bar.tell("Removed", "Undo");
    QVERIFY(!action->isHidden());
    action->click();
    QCOMPARE(acted.count(), 1);
    QCOMPARE(bar.text(), "Removed");
    bar.tell("Saved");
    QVERIFY(action->isHidden());
}

void TestNoticeBar::closingIsTold()
{
    NoticeBar bar;
    QSignalSpy dismissed(&bar, &NoticeBar::dismissed);
    bar.tell("Removed");
    bar.clear();
    QCOMPARE(dismissed.count(), 0);
    bar.tell("Removed");
    bar.findChild<QToolButton *>("noticeClose")->click();
    QCOMPARE(dismissed.count(), 1);
    QVERIFY(bar.isHidden());
}

QTEST_MAIN(TestNoticeBar)
#include "tst_noticebar.moc"
