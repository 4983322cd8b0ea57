#include "markdownblocks_p.h"

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int codeIndent = 4; // what is indented by more columns than three begins no block but code
constexpr int tabWidth = 4;

bool isBlankCharacter(QChar character)
{
    return character == QLatin1Char(' ') || character == QLatin1Char('\t');
}

bool isDigit(QChar character)
{
    return character >= QLatin1Char('0') && character <= QLatin1Char('9');
}

bool isLineEnd(QChar character)
{
    return character == QLatin1Char('\n') || character == QLatin1Char('\r');
}

int columnAfter(QChar character, int column)
{
    return character == QLatin1Char('\t') ? column + tabWidth - column % tabWidth : column + 1;
}

int lineEnd(const QString &source, int position)
{
    while (position < source.size() && !isLineEnd(source.at(position)))
        ++position;
    return position;
}

// A carriage return at the end of the text may be the first half of a line end.
bool hasEnded(const QString &source, int end)
{
    return end < source.size() && (source.at(end) == QLatin1Char('\n') || end + 1 < source.size());
}

int nextLine(const QString &source, int end)
{
    const bool isPair = source.at(end) == QLatin1Char('\r') && end + 1 < source.size()
                     && source.at(end + 1) == QLatin1Char('\n');
    return end + (isPair ? 2 : 1);
}

// No character outside the basic plane is cut in two.
int pieceEnd(const QString &source, int begin)
{
    const int end = begin + MarkdownBlocks::longestLine;
    return source.at(end - 1).isHighSurrogate() && source.at(end).isLowSurrogate() ? end - 1 : end;
}

} // namespace

bool operator==(const MarkdownBlock &left, const MarkdownBlock &right)
{
    return left.kind == right.kind && left.begin == right.begin && left.end == right.end
        && left.fence == right.fence && left.isFirst == right.isFirst && left.continues == right.continues
        && left.isLoose == right.isLoose;
}

MarkdownLine::MarkdownLine(QStringView text, int position, int column)
    : m_text(text)
    , m_column(column)
    , m_first(position)
    , m_indent(0)
{
    while (isBlankCharacter(at(m_first)))
        column = columnAfter(at(m_first++), column);
    m_indent = column - m_column;
}

bool MarkdownLine::isHeading() const
{
    const int end = endOfRun(m_first, QLatin1Char('#'));
    const int level = end - m_first;
    return m_indent < codeIndent && level >= 1 && level <= 6
        && (end == m_text.size() || isBlankCharacter(at(end)));
}

bool MarkdownLine::isRule() const
{
    const QChar mark = at(m_first);
    if (m_indent >= codeIndent || !QStringView(u"-_*").contains(mark) || mark.isNull())
        return false;
    int count = 0;
    for (const QChar character : m_text.mid(m_first)) {
        if (character == mark)
            ++count;
        else if (!isBlankCharacter(character))
            return false;
    }
    return count >= 3;
}

bool MarkdownLine::isSetextUnderline() const
{
    const QChar mark = at(m_first);
    return m_indent < codeIndent && (mark == QLatin1Char('=') || mark == QLatin1Char('-'))
        && endsAfterSpaces(endOfRun(m_first, mark));
}

int MarkdownLine::tableColumns() const
{
    int columns = 0;
    bool hasBar = at(m_first) == QLatin1Char('|');
    int position = hasBar ? endOfBlanks(m_first + 1) : m_first;
    while (true) {
        const int cellEnd = endOfTableCell(position);
        if (cellEnd < 0)
            return 0;
        ++columns;
        position = endOfBlanks(cellEnd);
        const bool isDelimited = at(position) == QLatin1Char('|');
        hasBar = hasBar || isDelimited;
        if (isDelimited)
            position = endOfBlanks(position + 1);
        if (position >= m_text.size())
            return hasBar ? columns : 0;
        if (!isDelimited)
            return 0;
    }
}

bool MarkdownLine::isTableRow(int columns) const
{
    const QStringView row = m_text.mid(m_first).trimmed();
    int bars = 0;
    for (int i = 0; i < row.size(); ++i) {
        if (row.at(i) == QLatin1Char('\\'))
            ++i;
        else if (row.at(i) == QLatin1Char('|'))
            ++bars;
    }
    return row.startsWith(QLatin1Char('|')) && row.endsWith(QLatin1Char('|')) && bars > columns;
}

bool MarkdownLine::isQuote() const
{
    return m_indent < codeIndent && at(m_first) == QLatin1Char('>');
}

MarkdownLine::ListMark MarkdownLine::listMark() const
{
    constexpr int mostDigits = 9;
    ListMark mark;
    int end = m_first;
    while (end - m_first < mostDigits && isDigit(at(end)))
        ++end;
    const QStringView number = m_text.mid(m_first, end - m_first);
    const QStringView marks = number.isEmpty() ? QStringView(u"-+*") : QStringView(u".)");
    if (m_indent >= codeIndent || at(end).isNull() || !marks.contains(at(end)))
        return mark;
    mark.end = ++end;
    const MarkdownLine content(m_text, end, m_column + m_indent + end - m_first);
    if (!content.isBlank() && content.indent() == 0)
        return mark;
    mark.isValid = true;
    mark.character = at(end - 1);
    mark.isEmpty = content.isBlank();
    mark.mayInterrupt = !mark.isEmpty && (number.isEmpty() || number.toInt() == 1);
    const bool isCode = content.indent() > codeIndent;
    mark.contentIndent = m_indent + end - m_first + (mark.isEmpty || isCode ? 1 : content.indent());
    return mark;
}

MarkdownLine::Fence MarkdownLine::fence() const
{
    Fence fence;
    const QChar character = at(m_first);
    if (character != QLatin1Char('`') && character != QLatin1Char('~'))
        return fence;
    const int end = endOfRun(m_first, character);
    const QStringView info = m_text.mid(end).trimmed();
    if (end - m_first < 3 || (character == QLatin1Char('`') && info.contains(character)))
        return fence;
    int wordEnd = 0;
    while (wordEnd < info.size() && !isBlankCharacter(info.at(wordEnd)))
        ++wordEnd;
    fence.character = character;
    fence.length = end - m_first;
    fence.indent = m_indent;
    fence.language = info.left(wordEnd).toString();
    return fence;
}

bool MarkdownLine::closesFence(QChar character, int length) const
{
    const int end = endOfRun(m_first, character);
    return m_indent < codeIndent && end - m_first >= length && endsAfterSpaces(end);
}

QString MarkdownLine::code(int indent) const
{
    return QString(qMax(0, m_indent - indent), QLatin1Char(' ')) + m_text.mid(m_first).toString();
}

int MarkdownLine::endOfRun(int position, QChar character) const
{
    while (position < m_text.size() && m_text.at(position) == character)
        ++position;
    return position;
}

int MarkdownLine::endOfBlanks(int position) const
{
    while (isBlankCharacter(at(position)))
        ++position;
    return position;
}

bool MarkdownLine::endsAfterSpaces(int position) const
{
    return endOfRun(position, QLatin1Char(' ')) == m_text.size();
}

// The end of ":---:" with three characters at least, or -1.
int MarkdownLine::endOfTableCell(int position) const
{
    constexpr int shortestCell = 3;
    int end = at(position) == QLatin1Char(':') ? position + 1 : position;
    end = endOfRun(end, QLatin1Char('-'));
    if (at(end) == QLatin1Char(':'))
        ++end;
    return end - position < shortestCell ? -1 : end;
}

MarkdownBlocks::MarkdownBlocks(bool isMarkdown)
    : m_isMarkdown(isMarkdown)
{}

QVector<MarkdownBlock> MarkdownBlocks::takeClosed(const QString &source)
{
    for (int end = lineEnd(source, m_lineBegin); hasEnded(source, end); end = lineEnd(source, m_lineBegin)) {
        addLine(source, m_lineBegin, end);
        m_lineBegin = nextLine(source, end);
        m_isInLongLine = false;
    }
    if (lineEnd(source, m_lineBegin) - m_lineBegin > longestLine)
        addPieces(source, m_lineBegin, lineEnd(source, m_lineBegin), false);
    QVector<MarkdownBlock> closed;
    closed.swap(m_closed);
    return closed;
}

QVector<MarkdownBlock> MarkdownBlocks::openBlocks(const QString &source, bool isFinal) const
{
    MarkdownBlocks rest(*this);
    const int end = lineEnd(source, m_lineBegin);
    const MarkdownLine line(QStringView(source).mid(m_lineBegin, end - m_lineBegin));
    const bool isOpenRow = m_context == Table && !isFinal && !endsBlock(line) && !line.isTableRow(m_columns);
    if (isOpenRow)
        rest.closeBlock();
    if (isOpenRow)
        rest.emitLine(m_lineBegin, end, false);
    else if (end > m_lineBegin || (!m_isMarkdown && !source.isEmpty()))
        rest.addLine(source, m_lineBegin, end);
    rest.closeBlock();
    rest.closeList(false);
    return rest.m_closed;
}

MarkdownLine::Fence MarkdownBlocks::fenceAt(const QString &source, int position)
{
    const QStringView text(source);
    return MarkdownLine(text.mid(position, lineEnd(source, position) - position)).fence();
}

void MarkdownBlocks::addLine(const QString &source, int begin, int end)
{
    if (m_isInLongLine || end - begin > longestLine) {
        addPieces(source, begin, end, true);
    } else if (!m_isMarkdown) {
        emitLine(begin, end, false);
    } else {
        m_text = QStringView(source).mid(begin, end - begin);
        addMarkdownLine(MarkdownLine(m_text), begin, end);
    }
}

// The pieces of a long line; the last one stays open until it is as long as the others, or the line is whole.
void MarkdownBlocks::addPieces(const QString &source, int begin, int end, bool isWhole)
{
    if (m_context != Fence) {
        closeBlock();
        closeList(false);
    }
    while (end - begin > longestLine) {
        const int next = pieceEnd(source, begin);
        emitLine(begin, next, m_isInLongLine);
        m_isInLongLine = true;
        begin = next;
    }
    if (isWhole)
        emitLine(begin, end, m_isInLongLine);
    m_lineBegin = begin;
}

void MarkdownBlocks::addMarkdownLine(const MarkdownLine &line, int begin, int end)
{
    if (m_context == Fence) {
        addFenceLine(line, begin, end);
        return;
    }
    const bool continues = isNextItem(line);
    m_isLoose = m_isLoose || (continues && m_isAfterBlank);
    if (endsBlock(line))
        closeBlock();
    if (m_context == Between) {
        closeList(continues);
        m_continues = continues;
        beginBlock(line, begin);
    }
    if (m_context != Between && m_context != Fence)
        extendBlock(line, end);
}

void MarkdownBlocks::addFenceLine(const MarkdownLine &line, int begin, int end)
{
    if (line.closesFence(m_fence.character, m_fence.length))
        m_context = Between;
    else
        emitLine(begin, end, false);
}

bool MarkdownBlocks::endsBlock(const MarkdownLine &line) const
{
    switch (m_context) {
    case Between:
    case Fence:
        return false;
    case Paragraph:
        return endsParagraph(line);
    case Table: // what looks like a heading or a fence is a row of it
        return line.isBlank() || line.isRule() || line.isQuote() || line.listMark().isValid;
    case IndentedCode:
        return !line.isBlank() && line.indent() < codeIndent;
    case Quote:
        return endsQuote(line);
    case List:
        return endsList(line);
    }
    return false;
}

bool MarkdownBlocks::endsParagraph(const MarkdownLine &line) const
{
    if (line.isBlank())
        return true;
    if (line.isSetextUnderline())
        return false;
    return line.isRule() || line.isQuote() || line.isHeading() || line.listMark().mayInterrupt
        || !line.fence().character.isNull();
}

bool MarkdownBlocks::endsQuote(const MarkdownLine &line) const
{
    if (line.isBlank())
        return true;
    if (line.isQuote())
        return false;
    if (!m_fence.character.isNull())
        return !closesInnerFence(line);
    return line.isRule() || line.isHeading() || line.listMark().isValid || !line.fence().character.isNull();
}

bool MarkdownBlocks::endsList(const MarkdownLine &line) const
{
    if (line.isBlank())
        return false;
    if (!m_fence.character.isNull() && closesInnerFence(line))
        return false;
    if (line.indent() >= m_contentIndent)
        return false;
    if (line.isRule() || line.listMark().isValid)
        return true;
    if (m_isAfterBlank || !m_fence.character.isNull())
        return true;
    return line.isHeading() || line.isQuote() || !line.fence().character.isNull();
}

// Whether the line goes on with the open list.
bool MarkdownBlocks::isNextItem(const MarkdownLine &line) const
{
    return m_context == List && line.indent() < m_contentIndent && line.listMark().isValid && !line.isRule()
        && line.listMark().character == m_listMark;
}

void MarkdownBlocks::beginBlock(const MarkdownLine &line, int begin)
{
    if (line.isBlank())
        return;
    m_begin = begin;
    m_lineCount = 0;
    m_isAfterBlank = false;
    m_fence = {};
    if (line.indent() >= codeIndent) {
        m_context = IndentedCode;
    } else if (line.isQuote()) {
        m_context = Quote;
    } else if (line.listMark().isValid && !line.isRule()) {
        m_context = List;
        m_contentIndent = line.listMark().contentIndent;
        m_listMark = line.listMark().character;
        m_nestedIndent = 0;
    } else if (m_fence = line.fence(); !m_fence.character.isNull()) {
        m_context = Fence;
    } else {
        m_context = Paragraph;
    }
}

void MarkdownBlocks::extendBlock(const MarkdownLine &line, int end)
{
    ++m_lineCount;
    if (!line.isBlank())
        m_end = end;
    if (m_context == Quote)
        extendQuote(line);
    if (m_context == List)
        extendList(line);
    const bool isText = m_context == Paragraph;
    m_columns = isText && m_lineCount == 2 ? line.tableColumns() : m_columns;
    if (isText && m_lineCount == 2 && m_columns > 0)
        m_context = Table;
    const bool isWhole =
        isText && (line.isRule() || line.isHeading() || (m_lineCount > 1 && line.isSetextUnderline()));
    if (isWhole || m_lineCount == mostLines || end - m_begin >= longestBlock)
        closeBlock();
}

void MarkdownBlocks::extendQuote(const MarkdownLine &line)
{
    if (!line.isQuote()) {
        m_fence = {};
        return;
    }
    const MarkdownLine content(m_text, line.contentPosition() + 1);
    if (m_fence.character.isNull())
        findInnerFence(content);
    else if (closesInnerFence(content))
        m_fence = {};
}

void MarkdownBlocks::extendList(const MarkdownLine &line)
{
    const bool isInFence = !m_fence.character.isNull();
    if (line.isBlank()) {
        m_isAfterBlank = !isInFence;
        return;
    }
    if (m_isAfterBlank && !isInNestedList(line)) {
        m_isLoose = true;
        m_nestedIndent = 0;
    }
    m_isAfterBlank = false;
    if (!isInFence) {
        findNestedItem(line);
        findInnerFence(line);
    } else if (closesInnerFence(line)) {
        m_fence = {};
    }
}

bool MarkdownBlocks::isInNestedList(const MarkdownLine &line) const
{
    const MarkdownLine content(m_text, line.contentPosition());
    return m_nestedIndent > 0
        && (line.indent() >= m_nestedIndent || content.listMark().character == m_nestedMark);
}

// An item in a list directly within the item.
void MarkdownBlocks::findNestedItem(const MarkdownLine &line)
{
    const bool isFirst = m_lineCount == 1;
    const int column = isFirst ? m_contentIndent : line.indent();
    const int position =
        isFirst ? MarkdownLine(m_text, line.listMark().end).contentPosition() : line.contentPosition();
    const MarkdownLine::ListMark mark = MarkdownLine(m_text, position).listMark();
    if (!mark.isValid || (m_nestedIndent > 0 && column >= m_nestedIndent))
        return;
    m_nestedIndent = column + mark.contentIndent;
    m_nestedMark = mark.character;
}

// Looks behind the marks of quotes and list items at the beginning of the line.
void MarkdownBlocks::findInnerFence(MarkdownLine line)
{
    while (true) {
        const MarkdownLine content(m_text, line.contentPosition());
        const MarkdownLine::ListMark mark = content.listMark();
        if (!content.isQuote() && !mark.isValid) {
            m_fence = content.fence();
            return;
        }
        line = MarkdownLine(m_text, content.isQuote() ? content.contentPosition() + 1 : mark.end);
    }
}

bool MarkdownBlocks::closesInnerFence(const MarkdownLine &line) const
{
    int position = line.contentPosition();
    MarkdownLine content(m_text, position);
    while (content.isQuote()) {
        position = content.contentPosition() + 1;
        content = MarkdownLine(m_text, position);
    }
    return MarkdownLine(m_text, content.contentPosition()).closesFence(m_fence.character, m_fence.length);
}

void MarkdownBlocks::closeBlock()
{
    const MarkdownBlock block{MarkdownBlock::Text, m_begin, m_end, -1, false, m_continues, false};
    if (m_context == List)
        m_items.append(block);
    else if (m_context != Between && m_context != Fence)
        m_closed.append(block);
    if (m_context != Fence)
        m_context = Between;
}

// Items wait until it is known whether the list is loose. One that is very long waits no longer.
void MarkdownBlocks::closeList(bool continues)
{
    const bool isLong = m_items.size() >= mostLines
                     || (!m_items.isEmpty() && m_items.last().end - m_items.first().begin >= longestBlock);
    if (continues && !m_isLoose && !isLong)
        return;
    for (MarkdownBlock &item : m_items) {
        item.isLoose = m_isLoose;
        m_closed.append(item);
    }
    m_items.clear();
    m_isLoose = m_isLoose && continues;
}

void MarkdownBlocks::emitLine(int begin, int end, bool continues)
{
    if (m_context == Fence)
        m_closed.append({MarkdownBlock::CodeLine, begin, end, m_begin, m_lineCount++ == 0, continues, false});
    else
        m_closed.append({MarkdownBlock::Verbatim, begin, end, -1, false, continues, false});
}

} // namespace QtAgent
} // namespace MireloQtLib
