#include "markdownreader_p.h"

#include "markdownblocks_p.h"

#include <QAbstractTextDocumentLayout>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextList>
#include <QTextTable>
#include <QUrl>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int deepest = 20; // what is nested deeper is indented no further

// Stands where a picture without an alternative text has one, because Qt's reader skips such a picture. It
// cannot come from a message: displayable() replaces it. Nor can the other one, which ends the first line of
// each code that a list or a quote has in fences, because Qt's reader does not tell codes apart that touch.
constexpr QChar missingText(0xfdd2);
constexpr QChar beginOfCode(0xfdd3);

// The layout of a document that is never seen. Qt's reader would lay out a paragraph anew at each insertion.
class NoLayout : public QAbstractTextDocumentLayout
{
public:
    using QAbstractTextDocumentLayout::QAbstractTextDocumentLayout;

    void draw(QPainter *, const PaintContext &) override {}
    int hitTest(const QPointF &, Qt::HitTestAccuracy) const override { return -1; }
    int pageCount() const override { return 1; }
    QSizeF documentSize() const override { return {}; }
    QRectF frameBoundingRect(QTextFrame *) const override { return {}; }
    QRectF blockBoundingRect(const QTextBlock &) const override { return {}; }

protected:
    void documentChanged(int, int, int) override {}
};

// The number of columns where the line may be the second one of a table, else 0.
int columnsOf(const QString &line)
{
    int bars = 0;
    for (const QChar character : line) {
        if (character == QLatin1Char('|'))
            ++bars;
        else if (!QStringView(u":- \t>").contains(character))
            return 0;
    }
    return bars == 0 ? 0 : bars + 1;
}

// Qt's reader makes a cell for each column in each row, even where the row is a single character.
bool hasTooManyCells(const QString &markdown)
{
    constexpr int mostColumns = 200;
    constexpr int mostCells = 20000;
    if (!markdown.contains(QLatin1Char('|')))
        return false;
    const QStringList lines = markdown.split(QLatin1Char('\n'));
    int columns = 0;
    for (const QString &line : lines)
        columns = qMax(columns, columnsOf(line));
    return columns > mostColumns || columns * int(lines.size()) > mostCells;
}

QString withTextForPictures(QString markdown)
{
    if (markdown.contains(QLatin1String("![](")) || markdown.contains(QLatin1String("![][")))
        markdown.replace(QLatin1String("![]"), QStringLiteral("![%1]").arg(missingText));
    return markdown;
}

// What stands behind the marks of quotes, and behind those of items unless they are code.
MarkdownLine contentOf(QStringView line, bool isInFence)
{
    int position = 0;
    while (true) {
        const MarkdownLine content(line, MarkdownLine(line, position).contentPosition());
        const bool isItem = !isInFence && content.listMark().isValid;
        if (!content.isQuote() && !isItem)
            return content;
        position = content.isQuote() ? content.contentPosition() + 1 : content.listMark().end;
    }
}

// Follows the fences of a list or a quote from line to line.
class InnerFences
{
public:
    // Whether the line is the first one in its fence that is not blank.
    bool beginsCode(QStringView line)
    {
        const bool isInFence = !m_fence.character.isNull();
        const MarkdownLine content = contentOf(line, isInFence);
        if (!isInFence || content.closesFence(m_fence.character, m_fence.length)) {
            m_fence = isInFence ? MarkdownLine::Fence() : content.fence();
            m_hasCode = false;
            return false;
        }
        const bool isFirst = !m_hasCode && !content.isBlank();
        m_hasCode = m_hasCode || isFirst;
        return isFirst;
    }

private:
    MarkdownLine::Fence m_fence;
    bool m_hasCode = false;
};

QString withMarksOfCode(const QString &markdown)
{
    constexpr int fewest = 3; // of two codes, the second of which may be open
    if (markdown.count(QLatin1String("```")) + markdown.count(QLatin1String("~~~")) < fewest)
        return markdown;
    InnerFences fences;
    QStringList lines = markdown.split(QLatin1Char('\n'));
    for (QString &line : lines) {
        const int end = int(line.size()) - (line.endsWith(QLatin1Char('\r')) ? 1 : 0);
        if (fences.beginsCode(QStringView(line).left(end)))
            line.insert(end, beginOfCode);
    }
    return lines.join(QLatin1Char('\n'));
}

// Whether the code at the end has begun with blank lines, which have no mark.
bool endsInBlankCode(const QVector<RichElement> &elements)
{
    const int code = elements.last().line.code;
    for (auto element = elements.crbegin(); element != elements.crend() && element->line.code == code;
         ++element) {
        if (!element->line.runs.isEmpty())
            return false;
    }
    return true;
}

// Another item that a blank line separates from the one in the text.
QString nextItem(const QString &item)
{
    const MarkdownLine line{QStringView(item)};
    const QString mark = item.left(line.listMark().end);
    return QLatin1String("\n\n") + mark + QLatin1Char(' ') + missingText;
}

bool isNothing(const RichLine &line)
{
    return line.runs.isEmpty() && !line.isRule && !line.isCode && line.list < 0;
}

bool isSameCode(const RichLine &line, const RichLine &next)
{
    return line.isCode && next.isCode && next.language == line.language && next.quote == line.quote;
}

TextStyle styleOf(const QTextCharFormat &format)
{
    TextStyle style;
    style.isBold = format.fontWeight() >= QFont::DemiBold;
    style.isItalic = format.fontItalic();
    style.isStruckOut = format.fontStrikeOut();
    style.isUnderlined = format.fontUnderline();
    style.isCode =
        format.hasProperty(QTextFormat::FontFamily) || format.hasProperty(QTextFormat::FontFamilies);
    style.isFixedPitch = format.fontFixedPitch();
    if (format.isAnchor() && isOpenable(format.anchorHref()))
        style.link = format.anchorHref();
    return style;
}

// The alternative text; in Qt's reader each part of it is a picture of its own.
void appendPicture(QVector<TextRun> *runs, const QTextImageFormat &format)
{
    QString text = format.stringProperty(QTextFormat::ImageAltText);
    if (text == missingText)
        text = format.name();
    TextStyle style;
    const QString scheme = QUrl(format.name()).scheme();
    if (isOpenable(format.name()) && scheme.startsWith(QLatin1String("http")))
        style.link = format.name();
    appendRun(runs, displayable(text.replace(QLatin1Char('\n'), QLatin1Char(' '))), style);
}

void appendFragment(QVector<TextRun> *runs, const QTextFragment &fragment)
{
    const QTextCharFormat format = fragment.charFormat();
    if (format.isImageFormat()) {
        for (int i = 0; i < fragment.length(); ++i)
            appendPicture(runs, format.toImageFormat());
        return;
    }
    QString text = fragment.text();
    appendRun(runs, displayable(text.remove(missingText).remove(beginOfCode)), styleOf(format));
}

QVector<TextRun> runsOf(const QTextBlock &block)
{
    QVector<TextRun> runs;
    for (auto position = block.begin(); !position.atEnd(); ++position)
        appendFragment(&runs, position.fragment());
    return runs;
}

} // namespace

MarkdownReader::MarkdownReader()
{
    m_document.setUndoRedoEnabled(false);
    m_document.setDocumentLayout(new NoLayout(&m_document));
}

RichText MarkdownReader::read(const QString &markdown, const QString &definitions, bool isLoose)
{
    const QString text = displayable(markdown);
    if (hasTooManyCells(text))
        return verbatimText(text);
    parse(definitions + withTextForPictures(withMarksOfCode(text)) + (isLoose ? nextItem(text) : QString()));
    m_result = {};
    m_lists.clear();
    m_codeCount = 0;
    readFrame(m_document.rootFrame());
    endCode();
    if (isLoose)
        removeNextItem();
    return m_result;
}

// An open edit block keeps the reader from asking for the cursor's place in the line after each insertion,
// which takes as long as the line is.
void MarkdownReader::parse(const QString &markdown)
{
    QTextCursor edit(&m_document);
    edit.beginEditBlock();
    const auto features = QTextDocument::MarkdownFeatures(QTextDocument::MarkdownDialectGitHub);
    m_document.setMarkdown(markdown, features | QTextDocument::MarkdownNoHTML);
    edit.endEditBlock();
}

void MarkdownReader::readFrame(const QTextFrame *frame)
{
    for (auto position = frame->begin(); !position.atEnd(); ++position) {
        if (const auto *table = qobject_cast<const QTextTable *>(position.currentFrame())) {
            readTable(*table);
        } else if (position.currentBlock().isValid()) {
            appendLine(readLine(position.currentBlock()));
        }
    }
}

void MarkdownReader::readTable(const QTextTable &table)
{
    endCode();
    RichElement element;
    element.columns = table.columns();
    for (int row = 0; row < table.rows(); ++row) {
        RichRow cells;
        for (int column = 0; column < table.columns(); column += cells.last().span)
            cells.append(readCell(table, row, column));
        element.rows.append(cells);
    }
    m_result.elements.append(element);
}

RichCell MarkdownReader::readCell(const QTextTable &table, int row, int column)
{
    const QTextTableCell cell = table.cellAt(row, column);
    RichCell result;
    result.column = column;
    result.span = cell.columnSpan();
    result.isHeader = row == 0;
    for (auto position = cell.begin(); !position.atEnd(); ++position) {
        const RichLine line = readLine(position.currentBlock());
        if (!isNothing(line) || result.lines.isEmpty())
            result.lines.append(line);
    }
    return result;
}

RichLine MarkdownReader::readLine(const QTextBlock &block)
{
    const QTextBlockFormat format = block.blockFormat();
    RichLine line;
    line.heading = format.headingLevel();
    line.quote = qMin(format.intProperty(QTextFormat::BlockQuoteLevel), deepest);
    line.indent = qMin(format.indent(), deepest);
    line.list = listIndex(block.textList());
    line.marker = format.marker();
    line.alignment = format.alignment();
    line.isRule = format.hasProperty(QTextFormat::BlockTrailingHorizontalRulerWidth);
    line.runs = runsOf(block);
    // Qt's reader hands the properties of an item that is code on to the items behind it.
    line.isCode = format.hasProperty(QTextFormat::BlockCodeLanguage)
               && (line.runs.isEmpty() || line.runs.first().style.isCode);
    if (line.isCode)
        line.language = format.stringProperty(QTextFormat::BlockCodeLanguage);
    line.isFirstOfCode = line.isCode && block.text().endsWith(beginOfCode);
    return line;
}

int MarkdownReader::listIndex(const QTextList *list)
{
    if (!list)
        return -1;
    const int known = int(m_lists.indexOf(list));
    if (known >= 0)
        return known;
    const QTextListFormat format = list->format();
    m_lists.append(list);
    m_result.lists.append({format.style(), qMin(format.indent(), deepest), format.numberSuffix()});
    return int(m_lists.size()) - 1;
}

void MarkdownReader::appendLine(RichLine line)
{
    if (isNothing(line))
        return;
    const bool continues = !m_result.elements.isEmpty() && isSameCode(m_result.elements.last().line, line)
                        && (!line.isFirstOfCode || endsInBlankCode(m_result.elements));
    if (!continues)
        endCode();
    if (line.isCode) {
        line.isFirstOfCode = !continues;
        line.code = continues ? m_result.elements.last().line.code : m_codeCount++;
    }
    m_result.elements.append({line, 0, {}});
}

void MarkdownReader::removeNextItem()
{
    QVector<RichElement> &elements = m_result.elements;
    if (!elements.isEmpty() && elements.last().line.list >= 0 && elements.last().line.runs.isEmpty())
        elements.removeLast();
}

// Qt 5 ends each block of code with an empty line, Qt 6 does not.
void MarkdownReader::endCode()
{
    QVector<RichElement> &elements = m_result.elements;
    while (!elements.isEmpty() && elements.last().line.isCode && elements.last().line.runs.isEmpty())
        elements.removeLast();
}

RichText verbatimText(const QString &text)
{
    RichText result;
    for (const QString &part : text.split(QLatin1Char('\n'))) {
        RichLine line;
        appendRun(&line.runs, displayable(part), {});
        result.elements.append({line, 0, {}});
    }
    return result;
}

RichText codeText(const QString &line, const QString &language, bool isFirst)
{
    TextStyle style;
    style.isCode = true;
    RichElement element;
    element.line.isCode = true;
    element.line.isFirstOfCode = isFirst;
    element.line.language = language;
    element.line.code = 0;
    appendRun(&element.line.runs, displayable(line), style);
    RichText result;
    result.elements.append(element);
    return result;
}

bool isOpenable(const QString &address)
{
    const QUrl url(address);
    if (url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https"))
        return !url.host().isEmpty();
    return url.scheme() == QLatin1String("mailto") && !url.path().isEmpty();
}

} // namespace QtAgent
} // namespace MireloQtLib
