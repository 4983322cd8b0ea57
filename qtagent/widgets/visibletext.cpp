#include "visibletext_p.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <iterator>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int lineLength = 1000;
constexpr int mostIndentedLines = 20000;
constexpr qint64 mostBlanks = 1000000;
const QChar continuationMark(0x21aa);

struct CodePointRange
{
    uint first;
    uint last;
};

// What Unicode's categories take for letters, marks and symbols, and what is blank all the same.
constexpr CodePointRange blankCharacters[] = {
    {0x034f, 0x034f},   // combining grapheme joiner
    {0x115f, 0x1160},   // Hangul fillers
    {0x17b4, 0x17b5},   // inherent Khmer vowels
    {0x180b, 0x180f},   // Mongolian variation selectors
    {0x2800, 0x2800},   // Braille pattern without dots
    {0x3164, 0x3164},   // Hangul filler
    {0xfe00, 0xfe0f},   // variation selectors
    {0xffa0, 0xffa0},   // halfwidth Hangul filler
    {0xfffc, 0xfffc},   // object replacement
    {0x1d159, 0x1d159}, // musical null notehead
    {0xe0100, 0xe01ef}, // further variation selectors
};

bool isBlank(uint codePoint)
{
    return std::any_of(
        std::begin(blankCharacters), std::end(blankCharacters),
        [codePoint](CodePointRange range) { return codePoint >= range.first && codePoint <= range.last; });
}

bool isVisible(uint codePoint)
{
    switch (QChar::category(codePoint)) {
    case QChar::Other_Control:
    case QChar::Other_Format:
    case QChar::Other_Surrogate:
    case QChar::Other_PrivateUse:
    case QChar::Other_NotAssigned:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return false;
    case QChar::Separator_Space:
        return codePoint == ' ';
    default:
        return !isBlank(codePoint);
    }
}

bool isVisibleInJson(uint codePoint)
{
    return codePoint == '\n' || (isVisible(codePoint) && codePoint != continuationMark.unicode());
}

int unitsOfCodePoint(const QString &text, int position)
{
    return position + 1 < text.size() && text.at(position).isHighSurrogate()
                && text.at(position + 1).isLowSurrogate()
             ? 2
             : 1;
}

uint codePointAt(const QString &text, int position)
{
    return unitsOfCodePoint(text, position) == 2
             ? QChar::surrogateToUcs4(text.at(position), text.at(position + 1))
             : text.at(position).unicode();
}

void appendEscape(QString &text, ushort unit)
{
    text += QLatin1String("\\u");
    for (int shift = 12; shift >= 0; shift -= 4)
        text += QLatin1Char("0123456789abcdef"[unit >> shift & 0xf]);
}

QString withEscapes(const QString &text, bool (*isShown)(uint))
{
    QString result;
    result.reserve(text.size());
    for (int position = 0; position < text.size();) {
        const bool shown = isShown(codePointAt(text, position));
        for (const int end = position + unitsOfCodePoint(text, position); position < end; ++position) {
            if (shown)
                result += text.at(position);
            else
                appendEscape(result, text.at(position).unicode());
        }
    }
    return result;
}

// Counts what indenting adds to a value, until it is too much: a line for each value, and blanks that grow
// with its depth. A hundred kilobytes can become hundreds of megabytes.
class Indentation
{
public:
    bool isTooMuch() const { return m_lines > mostIndentedLines || m_blanks > mostBlanks; }

    template<typename Container>
    void addMembers(const Container &members, int depth)
    {
        for (auto member = members.constBegin(); member != members.constEnd() && !isTooMuch(); ++member) {
            addLine(depth + 1);
            addValue(*member, depth + 1);
        }
        addLine(depth);
    }

private:
    void addValue(const QJsonValue &value, int depth)
    {
        if (value.isObject())
            addMembers(value.toObject(), depth);
        else if (value.isArray())
            addMembers(value.toArray(), depth);
    }

    void addLine(int depth)
    {
        ++m_lines;
        m_blanks += 4 * qint64(depth);
    }

    int m_lines = 0;
    qint64 m_blanks = 0;
};

QByteArray readableJson(const QJsonObject &object)
{
    Indentation indentation;
    indentation.addMembers(object, 0);
    const QJsonDocument document(object);
    return indentation.isTooMuch() ? document.toJson(QJsonDocument::Compact) + '\n' : document.toJson();
}

// How many units stand together at a position of JSON text: an escape, or a character.
int unitsOfSymbol(const QString &json, int position)
{
    if (json.at(position) != QLatin1Char('\\'))
        return unitsOfCodePoint(json, position);
    const bool isCode = position + 1 < json.size() && json.at(position + 1) == QLatin1Char('u');
    return isCode ? 6 : 2;
}

QString withShortLines(const QString &json)
{
    const QString lineBreak = QLatin1Char('\n') + QString(continuationMark) + QLatin1Char(' ');
    QString result;
    result.reserve(json.size() + json.size() / lineLength * lineBreak.size());
    int lineStart = 0;
    int lastBase = 0; // marks, such as accents, stay with the character before them
    for (int position = 0; position < json.size();) {
        const int end = position + unitsOfSymbol(json, position);
        if (!QChar::isMark(codePointAt(json, position)))
            lastBase = position;
        if (json.at(position) == QLatin1Char('\n')) {
            result.append(json.constData() + lineStart, end - lineStart);
            lineStart = end;
        } else if (end - lineStart > lineLength) {
            const int lineEnd = lastBase > lineStart ? lastBase : position;
            result.append(json.constData() + lineStart, lineEnd - lineStart).append(lineBreak);
            lineStart = lineEnd;
        }
        position = end;
    }
    return result; // the JSON ends in a line break
}

} // namespace

QString visibleText(const QString &text)
{
    return withEscapes(text, isVisible);
}

QString visibleJson(const QJsonObject &object)
{
    const QString json = QString::fromUtf8(readableJson(object));
    return withShortLines(withEscapes(json, isVisibleInJson));
}

} // namespace QtAgent
} // namespace MireloQtLib
