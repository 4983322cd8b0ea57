#include "richtext_p.h"

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

bool isShown(QChar character)
{
    return !character.isNull() && !character.isNonCharacter()
        && character != QChar::ObjectReplacementCharacter && character != QChar::ParagraphSeparator;
}

// A paragraph separator would begin a block of the document; a line separator breaks the line as well.
QChar substitute(QChar character)
{
    return character == QChar::ParagraphSeparator ? QChar(QChar::LineSeparator)
                                                  : QChar(QChar::ReplacementCharacter);
}

bool isPair(const QString &text, int position)
{
    return text.at(position).isHighSurrogate() && position + 1 < text.size()
        && text.at(position + 1).isLowSurrogate();
}

} // namespace

bool operator==(const TextStyle &left, const TextStyle &right)
{
    return left.isBold == right.isBold && left.isItalic == right.isItalic
        && left.isStruckOut == right.isStruckOut && left.isUnderlined == right.isUnderlined
        && left.isCode == right.isCode && left.isFixedPitch == right.isFixedPitch && left.link == right.link;
}

bool operator==(const TextRun &left, const TextRun &right)
{
    return left.text == right.text && left.style == right.style;
}

bool operator==(const RichList &left, const RichList &right)
{
    return left.style == right.style && left.depth == right.depth && left.suffix == right.suffix;
}

bool operator==(const RichCell &left, const RichCell &right)
{
    const auto isSameLine = [](const RichLine &one, const RichLine &other) {
        return haveSameShape(one, other) && one.runs == other.runs;
    };
    return left.column == right.column && left.span == right.span && left.isHeader == right.isHeader
        && std::equal(left.lines.begin(), left.lines.end(), right.lines.begin(), right.lines.end(),
                      isSameLine);
}

bool haveSameShape(const RichLine &left, const RichLine &right)
{
    return left.heading == right.heading && left.quote == right.quote && left.indent == right.indent
        && left.list == right.list && left.marker == right.marker && left.alignment == right.alignment
        && left.isRule == right.isRule && left.isCode == right.isCode
        && left.isFirstOfCode == right.isFirstOfCode && left.isLabel == right.isLabel
        && left.language == right.language && left.code == right.code;
}

int commonLength(const QVector<TextRun> &left, const QVector<TextRun> &right)
{
    int length = 0;
    for (int run = 0; run < left.size() && run < right.size(); ++run) {
        const TextRun &one = left.at(run);
        const TextRun &other = right.at(run);
        if (!(one.style == other.style))
            break;
        const auto end =
            std::mismatch(one.text.begin(), one.text.end(), other.text.begin(), other.text.end());
        const int common = int(end.first - one.text.begin());
        const bool endsInsidePair = common > 0 && one.text.at(common - 1).isHighSurrogate();
        length += endsInsidePair ? common - 1 : common;
        if (common < one.text.size() || common < other.text.size())
            break;
    }
    return length;
}

void appendRun(QVector<TextRun> *runs, const QString &text, const TextStyle &style)
{
    if (text.isEmpty())
        return;
    if (!runs->isEmpty() && runs->last().style == style)
        runs->last().text += text;
    else
        runs->append({text, style});
}

QString plainText(const QVector<TextRun> &runs)
{
    QString text;
    for (const TextRun &run : runs)
        text += run.text;
    return text;
}

QString displayable(const QString &text)
{
    QString shown = text;
    for (int position = 0; position < text.size(); ++position) {
        if (isPair(text, position))
            ++position;
        else if (const QChar character = text.at(position); character.isSurrogate() || !isShown(character))
            shown[position] = substitute(character);
    }
    return shown;
}

} // namespace QtAgent
} // namespace MireloQtLib
