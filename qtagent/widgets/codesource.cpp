#include "codesource_p.h"

#include "markdownblocks_p.h"
#include "richtext_p.h"

#include <QStringList>

namespace MireloQtLib {
namespace QtAgent {

namespace {

struct Range
{
    int begin;
    int end; // behind the last line
};

QString withoutIndent(const QString &line, int indent)
{
    int begin = 0;
    while (begin < indent && begin < line.size() && line.at(begin) == QLatin1Char(' '))
        ++begin;
    return line.mid(begin);
}

QString leftTrimmed(const QString &text)
{
    int begin = 0;
    while (begin < text.size() && text.at(begin).isSpace())
        ++begin;
    return text.mid(begin);
}

// A line of the source without what quotes and list items put in front of it.
QString withoutMarks(const QString &line)
{
    MarkdownLine content{QStringView(line)};
    int position = content.contentPosition();
    while (true) {
        content = MarkdownLine(line, position);
        const MarkdownLine::ListMark mark = content.listMark();
        if (!content.isQuote() && !mark.isValid)
            return line.mid(content.contentPosition());
        const int end = content.isQuote() ? content.contentPosition() + 1 : mark.end;
        position = MarkdownLine(line, end).contentPosition();
    }
}

bool isFence(const QString &line)
{
    const QString content = withoutMarks(line);
    return !MarkdownLine{QStringView(content)}.fence().character.isNull();
}

// Whether the line of code is what the line of the source ends with.
bool isShownAs(const QString &sourceLine, const QString &codeLine)
{
    const QString code = leftTrimmed(codeLine);
    return code.isEmpty() ? withoutMarks(sourceLine).isEmpty() : displayable(sourceLine).endsWith(code);
}

int countShown(const QStringList &lines, int begin, const QStringList &code)
{
    int count = 0;
    while (count < code.size() && begin + count < lines.size()
           && isShownAs(lines.at(begin + count), code.at(count)))
        ++count;
    return count;
}

int firstOfEmptyLines(const QStringList &lines, int end)
{
    while (end > 0 && withoutMarks(lines.at(end - 1)).isEmpty())
        --end;
    return end;
}

bool isBehindFence(const QStringList &lines, int line)
{
    const int first = firstOfEmptyLines(lines, line);
    return first > 0 && isFence(lines.at(first - 1));
}

// The lines from @p begin on that are shown as the code; text may look the same.
Range find(const QStringList &lines, int begin, const QStringList &code)
{
    Range best{begin, begin};
    int bestRank = 0;
    for (int line = begin; line < lines.size() && bestRank <= 2 * code.size(); ++line) {
        const int count = countShown(lines, line, code);
        const int rank = 2 * count + (isBehindFence(lines, line) ? 1 : 0);
        if (count > 0 && rank > bestRank) {
            best = {line, line + count};
            bestRank = rank;
        }
    }
    return best;
}

// Empty lines between the code and its fences are not shown.
Range withEmptyLines(const QStringList &lines, const Range &range)
{
    Range result = range;
    if (isBehindFence(lines, range.begin))
        result.begin = firstOfEmptyLines(lines, range.begin);
    while (result.end < lines.size() && withoutMarks(lines.at(result.end)).isEmpty())
        ++result.end;
    if (result.end == lines.size() || !isFence(lines.at(result.end)))
        result.end = range.end;
    return result;
}

// The characters of the source that are shown as this line.
QString sourceOf(const QString &sourceLine, const QString &codeLine)
{
    const QString text = sourceLine.right(leftTrimmed(codeLine).size());
    const QString blanks = codeLine.left(codeLine.size() - text.size());
    return blanks + text;
}

QVector<QStringList> codeLines(const RichText &text)
{
    QVector<QStringList> codes;
    for (const RichElement &element : text.elements) {
        if (element.line.code < 0)
            continue;
        if (element.line.code >= codes.size())
            codes.resize(element.line.code + 1);
        codes[element.line.code].append(plainText(element.line.runs));
    }
    return codes;
}

QString joined(const QStringList &lines, const Range &found, const QStringList &code)
{
    if (found.end - found.begin < code.size())
        return code.join(QLatin1Char('\n'));
    const Range range = withEmptyLines(lines, found);
    QStringList result;
    for (int line = range.begin; line < range.end; ++line) {
        const int shown = line - found.begin;
        const bool isShown = shown >= 0 && line < found.end;
        result.append(isShown ? sourceOf(lines.at(line), code.at(shown)) : QString());
    }
    return result.join(QLatin1Char('\n'));
}

} // namespace

QString codeInFence(const QString &source, int position)
{
    const QString text = source.mid(position);
    MarkdownBlocks finder;
    QVector<MarkdownBlock> blocks = finder.takeClosed(text);
    blocks += finder.openBlocks(text);
    const int indent = MarkdownBlocks::fenceAt(text, 0).indent;
    QString code;
    int lineEnd = 0;
    for (const MarkdownBlock &block : std::as_const(blocks)) {
        if (block.fence != 0)
            break;
        if (!block.isFirst)
            code += text.mid(lineEnd, block.begin - lineEnd);
        const QString line = text.mid(block.begin, block.end - block.begin);
        code += block.continues ? line : withoutIndent(line, indent);
        lineEnd = block.end;
    }
    return code;
}

QString codeInText(const RichText &text, const QString &source, int index)
{
    QString normalized = source;
    normalized.replace(QLatin1String("\r\n"), QLatin1String("\n"))
        .replace(QLatin1Char('\r'), QLatin1Char('\n'));
    const QStringList lines = normalized.split(QLatin1Char('\n'));
    const QVector<QStringList> codes = codeLines(text);
    Range found{0, 0};
    for (int i = 0; i <= index && i < codes.size(); ++i)
        found = find(lines, found.end, codes.at(i));
    return index < codes.size() ? joined(lines, found, codes.at(index)) : QString();
}

} // namespace QtAgent
} // namespace MireloQtLib
