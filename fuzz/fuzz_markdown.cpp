// A transcript shows the same whether a text arrives at once or in pieces, at each cut.

#include "fuzztarget.h"

#include <qtagent/widgets/transcriptdocument_p.h>

#include <tests/support/documentdump.h>

#include <QGuiApplication>
#include <QTextDocument>

using namespace MireloQtLib::QtAgent;

namespace {

constexpr int longestText = 400;

void startApplication()
{
    static int count = 1;
    static char name[] = "fuzz_markdown";
    static char *arguments[] = {name, nullptr};
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static const QGuiApplication application(count, arguments);
}

class Transcript
{
public:
    Transcript() { m_transcript.beginMessage({}, {}, true); }

    void add(const QString &text)
    {
        m_transcript.append(text);
        m_transcript.show();
    }

    void finish() { m_transcript.finishMessage(); }
    QStringList dump() const { return DocumentDump::all(m_document); }

private:
    QTextDocument m_document;
    TranscriptDocument m_transcript{&m_document};
};

QStringList shownAtOnce(const QString &text, bool isFinished)
{
    Transcript transcript;
    transcript.add(text);
    if (isFinished)
        transcript.finish();
    return transcript.dump();
}

void requireSame(const QStringList &inPieces, const QStringList &atOnce)
{
    const QString difference = DocumentDump::difference(inPieces, atOnce);
    if (!difference.isEmpty())
        qWarning("%s", qUtf8Printable(difference));
    FUZZ_REQUIRE(difference.isEmpty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    startApplication();
    FuzzInput input(data, size);
    const int longestPiece = 1 + input.takeByte() % 16;
    const QString text = QString::fromUtf8(input.rest()).left(longestText);
    Transcript transcript;
    uint8_t random = uint8_t(text.size());
    for (int begin = 0, length = 0; begin < text.size(); begin += length) {
        random = uint8_t(random * 5 + 3);
        length = 1 + random % longestPiece;
        transcript.add(text.mid(begin, length));
        requireSame(transcript.dump(), shownAtOnce(text.left(begin + length), false));
    }
    transcript.finish();
    requireSame(transcript.dump(), shownAtOnce(text, true));
    return 0;
}
