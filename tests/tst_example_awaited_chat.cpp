#include "support/exampletest.h"

#include <QPlainTextEdit>
#include <QPushButton>

class TestAwaitedChat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void allIsAskedOneAfterAnother();
    void stopEndsTheRequest();
    void stopEndsTheAgent();
    void closingTheWindowEndsTheProgram();

private:
    QStringList lines() const { return m_transcript->toPlainText().split('\n', Qt::SkipEmptyParts); }
    bool isIdle() const { return m_start->isEnabled() && !m_stop->isEnabled(); }
    void start() const
    {
        QTest::mouseClick(m_start, Qt::LeftButton);
        QVERIFY(!isIdle());
        QVERIFY(lines().isEmpty());
    }

    QPlainTextEdit *m_transcript = nullptr;
    QPushButton *m_start = nullptr;
    QPushButton *m_stop = nullptr;
};

void TestAwaitedChat::init()
{
    m_transcript = shownWidget<QPlainTextEdit>();
    QVERIFY(m_transcript);
    for (QPushButton *button : m_transcript->window()->findChildren<QPushButton *>())
        (button->text() == "Start" ? m_start : m_stop) = button;
    QVERIFY(m_start && m_stop && isIdle());
}

void TestAwaitedChat::allIsAskedOneAfterAnother()
{
    start();
    QTRY_VERIFY(isIdle());
    const QStringList questions{"What is a valve? — Orvane", "Who opens it? — Orvane",
                                "And who closes it? — Orvane"};
    QCOMPARE(lines().size(), 5);
    for (int i = 0; i < 3; ++i)
        QVERIFY2(lines().at(i).startsWith(questions.at(i)), qPrintable(lines().at(i)));
    QVERIFY2(lines().at(3).startsWith("Which device is abnormal? — "), qPrintable(lines().at(3)));
    QCOMPARE(lines().at(4), "- find_abnormal_devices: Pump-001");
}

void TestAwaitedChat::stopEndsTheRequest()
{
    start();
    QTRY_COMPARE(lines().size(), 1);
    QTest::mouseClick(m_stop, Qt::LeftButton);
    QTRY_VERIFY(isIdle());
    QCOMPARE(lines().size(), 2);
    QVERIFY(lines().at(1).startsWith("Who opens it? — "));
}

void TestAwaitedChat::stopEndsTheAgent()
{
    QObject context;
    const auto stopBehindTheThirdAnswer = [this] {
        if (lines().size() == 3)
            QTest::mouseClick(m_stop, Qt::LeftButton);
    };
    connect(m_transcript, &QPlainTextEdit::textChanged, &context, stopBehindTheThirdAnswer,
            Qt::QueuedConnection);
    start();
    QTRY_VERIFY(isIdle());
    QCOMPARE(lines().size(), 4);
    QCOMPARE(lines().at(3), "Which device is abnormal? — ");
}

// It is closed while it asks.
void TestAwaitedChat::closingTheWindowEndsTheProgram()
{
    start();
    QVERIFY(m_transcript->window()->close());
}

int main(int argc, char *argv[])
{
    return ExampleRun<TestAwaitedChat>::execute(argc, argv);
}
#include "tst_example_awaited_chat.moc"
