#ifndef MIRELOQTLIB_QTAGENT_TRANSCRIPTDOCUMENT_P_H
#define MIRELOQTLIB_QTAGENT_TRANSCRIPTDOCUMENT_P_H

#include "markdownblocks_p.h"
#include "markdownreader_p.h"
#include "markdownreferences_p.h"
#include "transcriptwriter_p.h"

#include <QColor>
#include <QPointer>
#include <QTextList>

namespace MireloQtLib {
namespace QtAgent {

/// A block of code in a transcript, and where it came from.
struct TranscriptCode
{
    int message = 0;
    int begin = 0;         ///< of the source: where the fence begins, or the block that holds the code
    int end = -1;          ///< where that block ends; -1 for a fence
    bool isLoose = false;  ///< that block, an item of a list
    int index = 0;         ///< in that block
    int firstPosition = 0; ///< of its first line in the document
    int lastPosition = 0;  ///< of its last line
};

/// Messages in a document: their sources, and what of them is rendered.
///
/// The sources are always complete; the document is once show() was called. Only what is behind the last
/// block that has closed is rendered again. All functions change the document in a single edit block and do
/// nothing after it, so that slots of the document may call them.
class TranscriptDocument
{
public:
    explicit TranscriptDocument(QTextDocument *document);

    int beginMessage(const QString &label, const QColor &color, bool isMarkdown);
    void append(const QString &text);
    bool hasOpenMessage() const { return m_isOpen; }

    /// Ends the message. Each of @p positions moves with the text it stands in, where references that were
    /// defined behind it become links.
    void finishMessage(const QVector<int *> &positions = {});

    /// Renders what was appended since the last call.
    void show();
    bool isShown() const { return m_isShown; }

    /// Returns how many characters the next show() renders.
    int openLength() const;

    void clear();
    void setPalette(const QPalette &palette);

    int messageCount() const { return int(m_messages.size()); }
    QString source(int index) const;
    int messageAt(int position) const;

    /// Returns where the message begins in the document.
    int messageBegin(int index) const;

    const QVector<TranscriptCode> &codes() const { return m_codes; }
    QString sourceOf(const TranscriptCode &code);

private:
    struct Message
    {
        QString label;
        QColor color;
        bool isMarkdown = true;
        QString source;
        int begin = -1; // none while nothing of it is in the document
    };

    struct ShownBlock
    {
        MarkdownBlock block;
        RichText text; // of an open block
        QVector<WrittenElement> written;
        QPointer<QTextList> list; // the outermost one
        int position = 0;
        int codesBefore = 0;
        int lastCodeBefore = 0; // where the last code before it ended
    };

    // A block that uses definitions, with and without them.
    struct ResolvedBlock
    {
        int index = 0;
        RichText before;
        RichText after;
    };

    // What the document has in place of other characters.
    struct Change
    {
        int begin = 0;
        QString before;
        QString after;
    };

    Message &openMessage() { return m_messages.last(); }
    QString textOf(const MarkdownBlock &block) const;
    RichText render(const MarkdownBlock &block, const QString &definitions = {});
    bool appendPlainWords();
    void showBlocks(bool isFinal);
    void appendBlock(const MarkdownBlock &block, const QString &definitions = {});
    void rewriteBlock(int index, const MarkdownBlock &block);
    void writeBlock(int index, const RichText &before);
    void keepGlyphsOfLastLine();
    void removeBlocks(int first);
    void closeBlocks(int count);
    void addCodes(const ShownBlock &shown);
    void forgetCodes(const ShownBlock &shown);
    void resolveReferences(const QVector<int *> &positions);
    MarkdownReferences collectReferences();
    QString definitionsFor(const MarkdownBlock &block, const MarkdownReferences &references) const;
    QVector<ResolvedBlock> resolvedBlocks(const MarkdownReferences &references);
    QVector<Change> rewriteInPlace(const QVector<ResolvedBlock> &resolved);
    QVector<Change> writeAnew(int first, const MarkdownReferences &references);
    int endOf(int block) const;
    QString shownText(int begin, int end) const;
    static int moved(int position, const QVector<Change> &changes);

    QTextDocument *m_document;
    TranscriptWriter m_writer;
    MarkdownReader m_reader;
    QVector<Message> m_messages;
    QVector<TranscriptCode> m_codes;
    bool m_isOpen = false;
    bool m_isShown = true;
    // Of the open message:
    MarkdownBlocks m_finder;
    QVector<ShownBlock> m_blocks;
    int m_closedCount = 0;
    int m_shownLength = 0; // of the source
    int m_lastLine = 0;    // its position
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
