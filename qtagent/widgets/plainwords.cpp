#include "plainwords_p.h"

namespace MireloQtLib {
namespace QtAgent {

namespace {

// A digit and a point at the beginning of a line would make a list item.
bool isPlain(const QString &text, int position)
{
    const QChar character = text.at(position);
    if (character == QLatin1Char('.'))
        return position > 0 && text.at(position - 1).isLetter();
    const ushort code = character.unicode();
    const bool isWidePunctuation = (code > 0x3000 && code < 0x3040) || (code > 0xff00 && code < 0xff66);
    return character.isLetterOrNumber() || isWidePunctuation || QStringView(u",?'\"(").contains(character);
}

bool arePlain(const QString &text, int begin)
{
    for (int position = begin; position < text.size(); ++position) {
        const bool isGap = text.at(position) == QLatin1Char(' ') && text.at(position - 1) != QLatin1Char(' ');
        if (!isGap && !isPlain(text, position))
            return false;
    }
    return true;
}

int lastLineBegin(const QString &text)
{
    int begin = int(text.size());
    while (begin > 0 && text.at(begin - 1) != QLatin1Char('\n') && text.at(begin - 1) != QLatin1Char('\r'))
        --begin;
    return begin;
}

int wordBegin(const QString &text, int position)
{
    while (position > 0 && !text.at(position - 1).isSpace())
        --position;
    return position;
}

// Definitions and the line of a fence are not shown, and an address becomes a link as it stands.
bool mayHideOrLink(const QString &block, int last)
{
    const QString line = block.mid(lastLineBegin(block));
    const QString words = block.mid(wordBegin(block, last));
    return block.contains(QLatin1String("]:")) || line.contains(QLatin1String("```"))
        || line.contains(QLatin1String("~~~")) || words.contains(QLatin1String("://"))
        || words.contains(QLatin1String("www.")) || words.contains(QLatin1Char('@'));
}

} // namespace

std::optional<QString> plainWords(const QString &block, int shown)
{
    const bool endedInGap = shown > 0 && block.at(shown - 1) == QLatin1Char(' ');
    const int last = endedInGap ? shown - 2 : shown - 1; // blanks at the end of a line are not shown
    if (last < 0 || !isPlain(block, last) || !arePlain(block, shown) || mayHideOrLink(block, last))
        return std::nullopt;
    const int end = int(block.size()) - (block.endsWith(QLatin1Char(' ')) ? 1 : 0);
    return block.mid(last + 1, end - last - 1);
}

} // namespace QtAgent
} // namespace MireloQtLib
