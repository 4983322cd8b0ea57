// The assistant killed while an answer arrives: no more is lost than what came in its last second.

#include <assistant/assistantsettings.h>
#include <assistant/conversationkeeper.h>

#include <QElapsedTimer>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

using namespace MireloQtLib::QtAgent;

class TestAssistantKill : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingIsLostButTheLastSecond();
};

namespace {

constexpr int programLimitMs = 60000;

// How many pieces had arrived, and when.
struct Arrived
{
    qint64 ms = 0;
    int pieces = 0;
};

// Reads what the program prints until it has lived for @p ms milliseconds after its first piece.
QVector<Arrived> readFor(QProcess *program, int ms)
{
    QVector<Arrived> arrived;
    QElapsedTimer clock;
    while (arrived.isEmpty() || clock.elapsed() < ms) {
        while (program->canReadLine()) {
            if (arrived.isEmpty())
                clock.start();
            arrived.append({clock.elapsed(), program->readLine().trimmed().toInt()});
        }
        if (!program->waitForReadyRead(programLimitMs))
            return {};
    }
    return arrived;
}

// How old the first piece is that was lost, in milliseconds before the end.
qint64 lossOf(const QVector<Arrived> &arrived, int kept)
{
    for (const Arrived &piece : arrived) {
        if (piece.pieces > kept)
            return arrived.last().ms - piece.ms;
    }
    return 0;
}

} // namespace

// KILLS in the environment says how often, 10 times where it does not.
void TestAssistantKill::nothingIsLostButTheLastSecond()
{
    constexpr int longestLifeMs = 1500;
    const int kills = qEnvironmentVariableIsSet("KILLS") ? qEnvironmentVariableIntValue("KILLS") : 10;
    const QTemporaryDir folder;
    const QString path = folder.filePath("conversations.sqlite");
    qint64 worst = 0;
    for (int i = 1; i <= kills; ++i) {
        QProcess program;
        program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        program.start(CHATTING_ASSISTANT, {path, folder.filePath("assistant.ini")});
        const QVector<Arrived> arrived =
            readFor(&program, QRandomGenerator::global()->bounded(longestLifeMs));
        QVERIFY(!arrived.isEmpty());
        program.kill();
        QVERIFY(program.waitForFinished(programLimitMs));

        ConversationStore store;
        QVERIFY(store.open(path));
        QVERIFY(store.setAsidePath().isEmpty());
        QCOMPARE(store.list().size(), i);
        const Conversation conversation = store.load(store.list().first().id);
        QCOMPARE(conversation.messages.first().message.content, "How high is it?");
        const QString answer =
            conversation.messages.size() > 1 ? conversation.messages.at(1).message.content : QString();
        QCOMPARE(answer, QString("压力").repeated(int(answer.size()) / 2));
        const AssistantSettings settings(folder.filePath("assistant.ini"));
        QCOMPARE(settings.conversationId().value_or(QString()), conversation.id);
        worst = qMax(worst, lossOf(arrived, int(answer.size()) / 2));
    }
    qInfo("%d kills, at most the last %lld ms were lost", kills, static_cast<long long>(worst));
    QVERIFY2(worst <= 1000, qPrintable(QString::number(worst)));
}

QTEST_GUILESS_MAIN(TestAssistantKill)
#include "tst_assistantkill.moc"
