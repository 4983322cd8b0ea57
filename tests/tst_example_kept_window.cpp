#include "support/exampletest.h"

#include <qtagent/store/conversationstore.h>
#include <qtagent/widgets/markdowntranscript.h>

#include <QLineEdit>
#include <QTemporaryDir>
#include <QTextFrame>

using namespace MireloQtLib::QtAgent;

namespace {

QString storePath;

void writeEarlierConversation()
{
    ConversationStore store;
    store.open(storePath);
    Conversation conversation = store.create("Chat");
    conversation.setMessages({ChatMessage::user("*Hi*"), ChatMessage::assistant("A **pump**.")});
    store.save(&conversation);
}

QVector<ChatMessage> keptMessages()
{
    ConversationStore store;
    store.open(storePath);
    return store.load(store.list().value(0).id).chatMessages();
}

} // namespace

class TestKeptWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void conversationGoesOn();
    void answerIsRenderedAndKept();
    void closingKeepsWhatHasArrived();

private:
    void send(const QString &question);

    MarkdownTranscript *m_transcript = nullptr;
    QLineEdit *m_input = nullptr;
};

void TestKeptWindow::initTestCase()
{
    m_transcript = shownWidget<MarkdownTranscript>();
    m_input = shownWidget<QLineEdit>();
    QVERIFY(m_transcript && m_input);
}

void TestKeptWindow::send(const QString &question)
{
    QTest::keyClicks(m_input, question);
    QTest::keyClick(m_input, Qt::Key_Return);
    QVERIFY(m_input->text().isEmpty() && m_input->isReadOnly());
}

void TestKeptWindow::conversationGoesOn()
{
    m_transcript->messageAt(0);
    QCOMPARE(m_transcript->toPlainText(), "用户\n*Hi*\n智能体\nA pump.");
}

void TestKeptWindow::answerIsRenderedAndKept()
{
    send("Which device needs a look?");
    QTRY_VERIFY(!m_input->isReadOnly());
    const QVector<ChatMessage> messages = keptMessages();
    QCOMPARE(messages.size(), 6);
    QCOMPARE(messages.at(2), ChatMessage::user("Which device needs a look?"));
    QCOMPARE(messages.at(4).role, "tool");
    QCOMPARE(messages.at(5).content, m_transcript->messageSource(m_transcript->messageCount() - 1));
    QVERIFY(m_transcript->toPlainText().contains("switch_to(\"Pump-003\")"));
    QVERIFY(m_transcript->toPlainText().contains("Pump-002 ⚠\n先看过滤器"));
    QCOMPARE(m_transcript->document()->rootFrame()->childFrames().size(), 1);
    const QByteArray picture = qgetenv("QTAGENT_TEST_PICTURE");
    if (!picture.isEmpty())
        QVERIFY(m_transcript->window()->grab().save(QFile::decodeName(picture)));
}

void TestKeptWindow::closingKeepsWhatHasArrived()
{
    send("And now?");
    const int count = m_transcript->messageCount();
    QTRY_VERIFY(m_transcript->messageCount() > count);
    QVERIFY(m_transcript->window()->close());
}

// The store is written before the example starts, and read after its end.
int main(int argc, char *argv[])
{
    const QTemporaryDir folder;
    storePath = folder.filePath("chats.sqlite");
    {
        const QCoreApplication application(argc, argv);
        writeEarlierConversation();
    }
    const int status = ExampleRun<TestKeptWindow>::execute(argc, argv, {storePath});
    const QCoreApplication application(argc, argv);
    const QVector<ChatMessage> messages = keptMessages();
    if (messages.size() != 8 || !messages.last().content.startsWith("工具调用已完成"))
        qFatal("what had arrived was not kept");
    return status;
}

#include "tst_example_kept_window.moc"
