#include "transcriptwriter_p.h"

#include <QFontDatabase>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextList>
#include <QTextTable>
#include <QUrl>

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int quoteIndent = 24;
constexpr int paragraphMargin = 6;
constexpr int itemMargin = 2;
constexpr int headingMargin = 10;

QFont fixedFont()
{
    QFont font; // with nothing but a family, so that the size is that of the text around it
    font.setFamily(QFontDatabase::systemFont(QFontDatabase::FixedFont).family());
    return font;
}

int topMargin(const RichLine &line)
{
    if (line.isCode)
        return line.isFirstOfCode ? paragraphMargin : 0;
    if (line.heading > 0 || line.isLabel)
        return headingMargin;
    return line.list < 0 ? paragraphMargin : itemMargin;
}

bool hasSameCells(const RichRow &left, const RichRow &right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](const RichCell &one, const RichCell &other) { return one.span == other.span; });
}

bool isSame(const RichElement &left, const RichElement &right)
{
    return left.columns == right.columns && left.rows == right.rows && haveSameShape(left.line, right.line)
        && left.line.runs == right.line.runs;
}

bool isInSameList(const RichText &left, const RichText &right, int index)
{
    return index < 0 || left.lists.at(index) == right.lists.at(index);
}

// Whether an element can be changed into the other in place.
bool isSameKind(const RichElement &left, const RichElement &right)
{
    if (left.isTable() || right.isTable())
        return left.columns == right.columns && hasSameCells(left.rows.first(), right.rows.first());
    return haveSameShape(left.line, right.line);
}

// Of a block that was there already. What precedes the one behind a table belongs to the table.
void setFormat(QTextCursor *cursor, const QTextBlockFormat &format, const QTextCharFormat &text)
{
    cursor->setBlockFormat(format);
    if (cursor->block().position() == 0)
        cursor->setBlockCharFormat(text);
}

int outermostIndex(const RichText &text)
{
    const auto isOutermost = [](const RichList &list) { return list.depth == 1; };
    const auto found = std::find_if(text.lists.begin(), text.lists.end(), isOutermost);
    return found == text.lists.end() ? -1 : int(found - text.lists.begin());
}

int firstDifference(const RichText &left, const RichText &right)
{
    int index = 0;
    while (index < left.elements.size() && index < right.elements.size()
           && isSame(left.elements.at(index), right.elements.at(index))
           && isInSameList(left, right, left.elements.at(index).line.list))
        ++index;
    return index;
}

} // namespace

TranscriptFormats::TranscriptFormats()
    : m_fixedFont(fixedFont())
{}

QTextBlockFormat TranscriptFormats::block(const RichLine &line) const
{
    QTextBlockFormat format;
    format.setTopMargin(topMargin(line));
    format.setBottomMargin(line.isCode || line.isLabel ? 0 : line.list < 0 ? paragraphMargin : itemMargin);
    if (line.heading > 0)
        format.setHeadingLevel(line.heading);
    if (line.quote > 0) {
        format.setProperty(QTextFormat::BlockQuoteLevel, line.quote);
        format.setLeftMargin(quoteIndent * line.quote);
    }
    if (line.indent > 0)
        format.setIndent(line.indent);
    if (line.marker != QTextBlockFormat::MarkerType::NoMarker)
        format.setMarker(line.marker);
    if (line.alignment != Qt::Alignment())
        format.setAlignment(line.alignment);
    if (line.isRule)
        format.setProperty(QTextFormat::BlockTrailingHorizontalRulerWidth, 1);
    if (line.isCode) {
        format.setProperty(QTextFormat::BlockCodeLanguage, line.language);
        format.setBackground(m_palette.alternateBase());
    }
    return format;
}

QTextCharFormat TranscriptFormats::blockText(const RichLine &line) const
{
    TextStyle style;
    style.isBold = line.heading > 0;
    style.isCode = line.isCode;
    return text(style, line);
}

QTextCharFormat TranscriptFormats::text(const TextStyle &style, const RichLine &line) const
{
    QTextCharFormat format;
    if (line.heading > 0)
        format.setProperty(QTextFormat::FontSizeAdjustment, 4 - line.heading);
    if (style.isBold)
        format.setFontWeight(QFont::Bold);
    if (style.isItalic)
        format.setFontItalic(true);
    if (style.isStruckOut)
        format.setFontStrikeOut(true);
    if (style.isUnderlined || !style.link.isEmpty())
        format.setFontUnderline(true);
    if (style.isCode) {
        format.setFont(m_fixedFont, QTextCharFormat::FontPropertiesSpecifiedOnly);
        format.setFontFixedPitch(style.isFixedPitch);
        if (!line.isCode)
            format.setBackground(m_palette.alternateBase());
    }
    if (!style.link.isEmpty()) {
        format.setAnchor(true);
        format.setAnchorHref(style.link);
        format.setToolTip(QString::fromLatin1(QUrl(style.link).toEncoded()));
        format.setForeground(m_palette.link());
    }
    return format;
}

QTextListFormat TranscriptFormats::list(const RichList &list) const
{
    QTextListFormat format;
    format.setStyle(list.style);
    format.setIndent(list.depth);
    if (!list.suffix.isEmpty())
        format.setNumberSuffix(list.suffix);
    return format;
}

QTextTableFormat TranscriptFormats::table() const
{
    QTextTableFormat format;
    format.setBorder(0);
    format.setBackground(m_palette.mid()); // shows between the cells
    format.setCellPadding(4);
    format.setCellSpacing(1);
    format.setTopMargin(paragraphMargin);
    format.setBottomMargin(paragraphMargin);
    return format;
}

QTextCharFormat TranscriptFormats::cell(bool isHeader) const
{
    QTextCharFormat format;
    format.setBackground(isHeader ? m_palette.alternateBase() : m_palette.base());
    if (isHeader)
        format.setFontWeight(QFont::Bold);
    return format;
}

QTextBlockFormat TranscriptFormats::cellBlock(const RichLine &line) const
{
    QTextBlockFormat format;
    if (line.alignment != Qt::Alignment())
        format.setAlignment(line.alignment);
    return format;
}

QTextCharFormat TranscriptFormats::label(const QColor &color) const
{
    QTextCharFormat format;
    format.setFontWeight(QFont::Bold);
    if (color.isValid())
        format.setForeground(color);
    return format;
}

TranscriptWriter::TranscriptWriter(QTextDocument *document)
    : m_document(document)
{}

void TranscriptWriter::writeLabel(const QString &text, const QColor &color)
{
    RichLine line;
    line.isLabel = true;
    const QTextCharFormat format = m_formats.label(color);
    QTextCursor cursor(m_document);
    beginLine(&cursor, m_formats.block(line), format);
    cursor.insertText(text, format);
}

void TranscriptWriter::write(QVector<WrittenElement> *written, const RichText &before, const RichText &text,
                             QTextList *list)
{
    int index = firstDifference(before, text);
    const bool isChanged = index < before.elements.size() && index < text.elements.size()
                        && isSameKind(before.elements.at(index), text.elements.at(index))
                        && isInSameList(before, text, before.elements.at(index).line.list);
    const int kept = isChanged ? index + 1 : index;
    if (kept < written->size())
        removeFrom(written->at(kept));
    written->resize(kept);
    if (isChanged)
        rewriteElement(written->at(index), before.elements.at(index), text.elements.at(index));
    Lists lists = writtenLists(*written, text);
    if (const int outermost = outermostIndex(text); list && outermost >= 0)
        lists[outermost] = list;
    for (index = kept; index < text.elements.size(); ++index) {
        const RichElement &element = text.elements.at(index);
        written->append(element.isTable() ? writeTable(element) : writeLine(element.line, text, &lists));
    }
}

bool TranscriptWriter::areSameKinds(const RichText &left, const RichText &right)
{
    return left.lists == right.lists
        && std::equal(left.elements.begin(), left.elements.end(), right.elements.begin(),
                      right.elements.end(), isSameKind);
}

// From the last element to the first one, so that their positions stay.
void TranscriptWriter::rewrite(const QVector<WrittenElement> &written, const RichText &before,
                               const RichText &text)
{
    for (int index = int(written.size()) - 1; index >= 0; --index) {
        if (!isSame(before.elements.at(index), text.elements.at(index)))
            rewriteElement(written.at(index), before.elements.at(index), text.elements.at(index));
    }
}

void TranscriptWriter::appendCharacters(const QString &characters, const RichLine &line)
{
    QTextCursor cursor(m_document);
    cursor.movePosition(QTextCursor::End);
    cursor.insertText(characters, m_formats.text(line.runs.last().style, line));
}

QTextList *TranscriptWriter::outermostList(const QVector<WrittenElement> &written, const RichText &text) const
{
    const int outermost = outermostIndex(text);
    return outermost < 0 ? nullptr : writtenLists(written, text).at(outermost);
}

void TranscriptWriter::removeFrom(const WrittenElement &element)
{
    if (!element.tookBlock) {
        removeBehind(element.position - 1);
        m_hasUnusedBlock = false;
        return;
    }
    QTextCursor cursor(m_document);
    cursor.setPosition(element.position);
    cursor.movePosition(QTextCursor::End, QTextCursor::KeepAnchor);
    cursor.removeSelectedText();
    setFormat(&cursor, {}, {});
    m_hasUnusedBlock = true;
}

void TranscriptWriter::clear()
{
    removeFrom({0, true});
}

int TranscriptWriter::end() const
{
    return m_hasUnusedBlock ? m_document->lastBlock().position() : m_document->characterCount();
}

WrittenElement TranscriptWriter::beginLine(QTextCursor *cursor, const QTextBlockFormat &format,
                                           const QTextCharFormat &text)
{
    const bool takesBlock = m_hasUnusedBlock;
    cursor->movePosition(QTextCursor::End);
    if (takesBlock) {
        setFormat(cursor, format, text);
    } else {
        cursor->insertBlock(format, text);
    }
    m_hasUnusedBlock = false;
    return {cursor->position(), takesBlock};
}

WrittenElement TranscriptWriter::writeLine(const RichLine &line, const RichText &text, Lists *lists)
{
    QTextBlockFormat format = m_formats.block(line);
    QTextList *list = line.list < 0 ? nullptr : lists->at(line.list);
    if (list)
        format.setObjectIndex(list->objectIndex());
    QTextCursor cursor(m_document);
    const WrittenElement written = beginLine(&cursor, format, m_formats.blockText(line));
    if (line.list >= 0 && !list)
        (*lists)[line.list] = cursor.createList(m_formats.list(text.lists.at(line.list)));
    writeRuns(&cursor, line);
    return written;
}

WrittenElement TranscriptWriter::writeTable(const RichElement &element)
{
    QTextCursor cursor(m_document);
    cursor.movePosition(QTextCursor::End);
    const bool takesBlock = m_hasUnusedBlock;
    const int position = takesBlock ? cursor.position() : cursor.position() + 1;
    QTextTable *table = cursor.insertTable(int(element.rows.size()), element.columns, m_formats.table());
    for (int row = 0; row < element.rows.size(); ++row)
        writeRow(table, row, element.rows.at(row));
    m_hasUnusedBlock = true;
    return {position, takesBlock};
}

void TranscriptWriter::writeRow(QTextTable *table, int row, const RichRow &cells)
{
    for (const RichCell &cell : cells) {
        if (cell.span > 1)
            table->mergeCells(row, cell.column, 1, cell.span);
        table->cellAt(row, cell.column).setFormat(m_formats.cell(cell.isHeader));
        writeCell(table, row, cell);
    }
}

void TranscriptWriter::writeCell(QTextTable *table, int row, const RichCell &cell)
{
    const QTextTableCell place = table->cellAt(row, cell.column);
    QTextCursor cursor = place.firstCursorPosition();
    cursor.setPosition(place.lastPosition(), QTextCursor::KeepAnchor);
    cursor.removeSelectedText();
    bool isFirst = true;
    for (const RichLine &line : cell.lines) {
        if (isFirst)
            cursor.setBlockFormat(m_formats.cellBlock(line));
        else
            cursor.insertBlock(m_formats.cellBlock(line), {});
        writeRuns(&cursor, line);
        isFirst = false;
    }
}

void TranscriptWriter::writeRuns(QTextCursor *cursor, const RichLine &line, int from)
{
    for (const TextRun &run : line.runs) {
        if (from < run.text.size())
            cursor->insertText(run.text.mid(from), m_formats.text(run.style, line));
        from = qMax(0, from - int(run.text.size()));
    }
}

void TranscriptWriter::rewriteElement(const WrittenElement &element, const RichElement &before,
                                      const RichElement &after)
{
    if (!after.isTable()) {
        rewriteRuns(m_document->findBlock(element.position), before.line, after.line);
        return;
    }
    QTextBlock block = m_document->findBlock(element.position);
    if (element.tookBlock)
        block = block.next();
    rewriteTable(QTextCursor(block).currentTable(), before, after);
}

void TranscriptWriter::rewriteTable(QTextTable *table, const RichElement &before, const RichElement &after)
{
    int row = 0;
    while (row < before.rows.size() && row < after.rows.size() && before.rows.at(row) == after.rows.at(row))
        ++row;
    const bool isChanged = row < before.rows.size() && row < after.rows.size()
                        && hasSameCells(before.rows.at(row), after.rows.at(row));
    const int kept = isChanged ? row + 1 : row;
    if (kept < before.rows.size())
        table->removeRows(kept, int(before.rows.size()) - kept);
    if (isChanged)
        rewriteRow(table, row, before.rows.at(row), after.rows.at(row));
    if (kept < after.rows.size())
        table->appendRows(int(after.rows.size()) - kept);
    for (row = kept; row < after.rows.size(); ++row)
        writeRow(table, row, after.rows.at(row));
}

void TranscriptWriter::rewriteRow(QTextTable *table, int row, const RichRow &before, const RichRow &after)
{
    for (int i = 0; i < after.size(); ++i) {
        if (!(before.at(i) == after.at(i)))
            writeCell(table, row, after.at(i));
    }
}

// What is the same at the beginning stays, so that the paragraph keeps its format and its list.
void TranscriptWriter::rewriteRuns(const QTextBlock &block, const RichLine &before, const RichLine &after)
{
    const int kept = commonLength(before.runs, after.runs);
    QTextCursor cursor(block);
    cursor.setPosition(block.position() + kept);
    cursor.movePosition(QTextCursor::EndOfBlock, QTextCursor::KeepAnchor);
    cursor.removeSelectedText();
    writeRuns(&cursor, after, kept);
}

TranscriptWriter::Lists TranscriptWriter::writtenLists(const QVector<WrittenElement> &written,
                                                       const RichText &text) const
{
    Lists lists(text.lists.size(), nullptr);
    for (int i = 0; i < written.size(); ++i) {
        const int list = text.elements.at(i).line.list;
        if (list >= 0 && !lists.at(list))
            lists[list] = m_document->findBlock(written.at(i).position).textList();
    }
    return lists;
}

// Removes all behind the line that ends at the position. Of two lines that are joined the second one would
// leave its format where the first is empty, so that must not be.
void TranscriptWriter::removeBehind(int position)
{
    QTextCursor cursor(m_document);
    cursor.setPosition(position);
    const bool isEmpty = cursor.block().length() == 1;
    if (isEmpty)
        cursor.insertText(QStringLiteral("-"));
    cursor.movePosition(QTextCursor::End, QTextCursor::KeepAnchor);
    cursor.removeSelectedText();
    if (isEmpty)
        cursor.deletePreviousChar();
}

} // namespace QtAgent
} // namespace MireloQtLib
