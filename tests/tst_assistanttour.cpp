#include <QDir>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

class TestAssistantTour : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyStateIsReachedAndPictured_data();
    void everyStateIsReachedAndPictured();
    void folderThatCannotBeWrittenIsAFailure();

private:
    // Returns the program's exit status, or -1.
    int run(const QString &folder, const QString &look);

    QStringList m_lines;
};

int TestAssistantTour::run(const QString &folder, const QString &look)
{
    constexpr int limitMs = 120000;
    QProcess program;
    program.start(ORVANE_ASSISTANT, {"--tour", folder, "--look", look});
    if (!program.waitForFinished(limitMs) || program.exitStatus() != QProcess::NormalExit)
        return -1;
    m_lines = QString::fromUtf8(program.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    return program.exitCode();
}

void TestAssistantTour::everyStateIsReachedAndPictured_data()
{
    QTest::addColumn<QString>("look");
    QTest::newRow("Chinese and light") << "zh-light-100";
    QTest::newRow("English and dark") << "en-dark-100";
}

void TestAssistantTour::everyStateIsReachedAndPictured()
{
    QFETCH(QString, look);
    QTemporaryDir folder;
    QCOMPARE(run(folder.path(), look), EXIT_SUCCESS);
    const QStringList pictures = QDir(folder.path()).entryList({look + "-*.png"});
    QVERIFY(pictures.size() > 15);
    QCOMPARE(m_lines.size(), pictures.size());
    for (const QString &line : m_lines)
        QVERIFY2(line.endsWith(" ok"), qPrintable(line));
    for (const QString &picture : pictures)
        QVERIFY2(QImage(folder.filePath(picture)).width() >= 300, qPrintable(picture));
    QCOMPARE(QImage(folder.filePath(pictures.first())).size(), QSize(800, 600));
}

void TestAssistantTour::folderThatCannotBeWrittenIsAFailure()
{
    QTemporaryDir folder;
    QFile file(folder.filePath("file"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(run(file.fileName(), "zh-light-100"), EXIT_FAILURE);
}

QTEST_GUILESS_MAIN(TestAssistantTour)
#include "tst_assistanttour.moc"
