#ifndef MIRELOQTLIB_QTAGENT_TRANSCRIPTWRITER_P_H
#define MIRELOQTLIB_QTAGENT_TRANSCRIPTWRITER_P_H

#include "richtext_p.h"

#include <QPalette>
#include <QTextCursor>

QT_BEGIN_NAMESPACE
class QTextBlock;
class QTextDocument;
class QTextList;
class QTextTable;
QT_END_NAMESPACE

namespace MireloQtLib {
namespace QtAgent {

/// The formats of the document: fonts, margins, and the colours of a palette.
class TranscriptFormats
{
public:
    TranscriptFormats();

    void setPalette(const QPalette &palette) { m_palette = palette; }

    QTextBlockFormat block(const RichLine &line) const;
    QTextCharFormat blockText(const RichLine &line) const;
    QTextCharFormat text(const TextStyle &style, const RichLine &line) const;
    QTextListFormat list(const RichList &list) const;
    QTextTableFormat table() const;
    QTextCharFormat cell(bool isHeader) const;
    QTextBlockFormat cellBlock(const RichLine &line) const;
    QTextCharFormat label(const QColor &color) const;

private:
    QPalette m_palette;
    QFont m_fixedFont;
};

/// Where an element of a RichText stands in the document.
struct WrittenElement
{
    int position = 0;       ///< of its first block, or of the unused block before a table
    bool tookBlock = false; ///< took an unused block, instead of beginning one
};

/// Writes rendered text at the end of a document, and rewrites what has changed in it.
///
/// The document that results depends only on what stands in it, not on the way there: a block that changed
/// is as if it had been written at once. What did not change is not touched, so that it is not laid out anew.
/// The document must be changed by nobody else.
class TranscriptWriter
{
public:
    explicit TranscriptWriter(QTextDocument *document);

    TranscriptFormats &formats() { return m_formats; }

    /// Writes a line above a message.
    void writeLabel(const QString &text, const QColor &color);

    /// Makes @p written, which ends the document and looks like @p before, look like @p text. Its outermost
    /// list goes on with @p list, unless that is null.
    void write(QVector<WrittenElement> *written, const RichText &before, const RichText &text,
               QTextList *list = nullptr);

    /// Returns whether each element of one can be changed into that of the other in place.
    static bool areSameKinds(const RichText &left, const RichText &right);

    /// Makes @p written, which looks like @p before, look like @p text, which is of the same kinds, wherever
    /// it stands in the document.
    void rewrite(const QVector<WrittenElement> &written, const RichText &before, const RichText &text);

    /// Writes @p characters behind the last one of the document, which ends @p line.
    void appendCharacters(const QString &characters, const RichLine &line);

    /// Returns the outermost list of @p written, which looks like @p text, or null.
    QTextList *outermostList(const QVector<WrittenElement> &written, const RichText &text) const;

    /// Removes @p element and all that follows.
    void removeFrom(const WrittenElement &element);

    void clear();

    /// Returns where the next line begins, or will begin.
    int end() const;

private:
    using Lists = QVector<QTextList *>;

    WrittenElement beginLine(QTextCursor *cursor, const QTextBlockFormat &format,
                             const QTextCharFormat &text);
    WrittenElement writeLine(const RichLine &line, const RichText &text, Lists *lists);
    WrittenElement writeTable(const RichElement &element);
    void writeRow(QTextTable *table, int row, const RichRow &cells);
    void writeCell(QTextTable *table, int row, const RichCell &cell);
    void writeRuns(QTextCursor *cursor, const RichLine &line, int from = 0);
    void rewriteElement(const WrittenElement &element, const RichElement &before, const RichElement &after);
    void rewriteTable(QTextTable *table, const RichElement &before, const RichElement &after);
    void rewriteRow(QTextTable *table, int row, const RichRow &before, const RichRow &after);
    void rewriteRuns(const QTextBlock &block, const RichLine &before, const RichLine &after);
    Lists writtenLists(const QVector<WrittenElement> &written, const RichText &text) const;
    void removeBehind(int position);

    QTextDocument *m_document;
    TranscriptFormats m_formats;
    bool m_hasUnusedBlock = true; // at the end: in the empty document, and behind a table
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
