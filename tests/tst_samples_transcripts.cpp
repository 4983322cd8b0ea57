#include "support/samplewindow.h"

#include <qtagent/widgets/markdowntranscript.h>

#include <QtTest>
#include <QtWidgets>

#include <memory>

using namespace MireloQtLib::QtAgent;

namespace {

class TranscriptWindow : public SampleWindow
{
public:
    void pasteButton(){
#include "show-markdown_2.inc"
    }

    MarkdownTranscript *const transcript = new MarkdownTranscript(this);
    QPushButton *const toEnd = new QPushButton(this);
};

class HeaderWindow : public TranscriptWindow
{
    void paste() override
    {
#include "markdowntranscript_1.inc"
    }
};

class PageWindow : public TranscriptWindow
{
    void paste() override
    {
#include "show-markdown_1.inc"
    }
};

using CreateWindow = TranscriptWindow *(*)();

template<typename Window>
TranscriptWindow *create()
{
    return new Window;
}

} // namespace

Q_DECLARE_METATYPE(CreateWindow)

// Samples of transcripts.
class TestSamplesTranscripts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answerIsShown_data() { addSamples(); }
    void answerIsShown();
    void failureIsTold_data() { addSamples(); }
    void failureIsTold();
    void canceledAnswerEndsItsMessage_data() { addSamples(); }
    void canceledAnswerEndsItsMessage();
    void windowMayBeDeletedWhileItWaits_data() { addSamples(); }
    void windowMayBeDeletedWhileItWaits();
    void buttonGoesBackToTheEnd();

private:
    static void addSamples();
};

void TestSamplesTranscripts::addSamples()
{
    QTest::addColumn<CreateWindow>("create");
    QTest::addRow("MarkdownTranscript") << &create<HeaderWindow>;
    QTest::addRow("show-markdown") << &create<PageWindow>;
}

void TestSamplesTranscripts::answerIsShown()
{
    QFETCH(CreateWindow, create);
    SampleService service;
    const std::unique_ptr<TranscriptWindow> window(create());
    window->paste();
    QTRY_COMPARE(window->ends, QStringList("Finished: Hello world"));
    QCOMPARE(window->transcript->toPlainText(), "You\nWhat is a valve?\nAssistant\nHello world");
    window->transcript->appendDelta("next");
    QCOMPARE(window->transcript->messageCount(), 3);
}

void TestSamplesTranscripts::failureIsTold()
{
    QFETCH(CreateWindow, create);
    SampleService service;
    service.fail();
    const std::unique_ptr<TranscriptWindow> window(create());
    window->paste();
    QTRY_COMPARE(window->ends.size(), 1);
    QVERIFY(window->ends.first().startsWith("Failed: OpenAI-compatible request failed."));
}

void TestSamplesTranscripts::canceledAnswerEndsItsMessage()
{
    QFETCH(CreateWindow, create);
    SampleService service;
    service.wait();
    const std::unique_ptr<TranscriptWindow> window(create());
    window->paste();
    window->findChild<ChatReply *>()->cancel();
    QCOMPARE(window->ends, QStringList("Canceled: "));
    window->transcript->appendDelta("next");
    QCOMPARE(window->transcript->messageCount(), 3);
}

void TestSamplesTranscripts::windowMayBeDeletedWhileItWaits()
{
    QFETCH(CreateWindow, create);
    SampleService service;
    service.wait();
    std::unique_ptr<TranscriptWindow> window(create());
    window->paste();
    QTRY_COMPARE(service.server.requests().size(), 1);
    window.reset();
    service.server.release();
    runUntilQuiet();
}

void TestSamplesTranscripts::buttonGoesBackToTheEnd()
{
    PageWindow page;
    TranscriptWindow &window = page;
    window.pasteButton();
    window.transcript->setFollowing(false);
    QVERIFY(!window.toEnd->isHidden());
    window.toEnd->click();
    QVERIFY(window.transcript->isFollowing());
    QVERIFY(window.toEnd->isHidden());
}

QTEST_MAIN(TestSamplesTranscripts)
#include "tst_samples_transcripts.moc"
