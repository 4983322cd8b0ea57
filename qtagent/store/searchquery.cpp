#include "searchquery_p.h"

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int excerptLength = 120;
constexpr int excerptLead = 40;
// Enough to tell texts apart; what is left of longer queries is compared with the texts that are found.
constexpr int maxIndexedWords = 32;

// Beyond ASCII every character belongs to a token, and none that is written here is a surrogate.
void appendCoded(QString *tokens, QChar character)
{
    constexpr ushort offset = 0x80;
    constexpr uint otherPlane = 0x10000;
    const ushort code = character.unicode();
    if (code < 0xd800 - offset) {
        tokens->append(QChar(code + offset));
    } else {
        tokens->append(QChar(QChar::highSurrogate(otherPlane + code)));
        tokens->append(QChar(QChar::lowSurrogate(otherPlane + code)));
    }
}

// A token of a single blank stands between words, so that no row of pairs goes on behind one.
void appendPairs(QString *tokens, const QString &text)
{
    for (int i = 0; i + 1 < text.size(); ++i) {
        if (text.at(i + 1).isSpace())
            continue;
        if (text.at(i).isSpace()) {
            appendCoded(tokens, QLatin1Char(' '));
        } else {
            appendCoded(tokens, text.at(i));
            appendCoded(tokens, text.at(i + 1));
        }
        tokens->append(QLatin1Char(' '));
    }
}

QString phraseOf(const QString &word)
{
    QString tokens;
    if (word.size() == 1)
        appendCoded(&tokens, word.front());
    else
        appendPairs(&tokens, word);
    return QLatin1Char('"') + tokens + QLatin1Char('"');
}

// How much of the beginning of the word stands somewhere in the text.
int lengthOfBeginningIn(const QString &text, const QString &word)
{
    int found = 0;
    int missing = static_cast<int>(word.size()) + 1;
    while (missing - found > 1) {
        const int length = (found + missing) / 2;
        (text.contains(word.left(length)) ? found : missing) = length;
    }
    return found;
}

// A small letter whose capital is several letters, as that of "ß" is.
bool hasLongCapital(QChar character)
{
    constexpr ushort lastOfAscii = 0x7f;
    return character.unicode() > lastOfAscii && character.isLower() && character.toUpper() == character;
}

// Qt folds letter by letter, which leaves such letters as they are.
QString foldedCase(const QString &text)
{
    QString folded = text.toCaseFolded();
    if (std::none_of(folded.cbegin(), folded.cend(), hasLongCapital))
        return folded;
    QString result;
    for (const QChar character : folded) {
        if (hasLongCapital(character))
            result += QString(character).toUpper().toCaseFolded();
        else
            result += character;
    }
    return result;
}

// Case folding may change the length: returns where the character stands that became the one at @p position.
int positionBeforeFolding(const QString &text, int position)
{
    int folded = 0;
    int i = 0;
    while (i < text.size()) {
        const int length = text.at(i).isHighSurrogate() && i + 1 < text.size() ? 2 : 1;
        folded += static_cast<int>(foldedCase(text.mid(i, length)).size());
        if (folded > position)
            break;
        i += length;
    }
    return i;
}

} // namespace

SearchQuery::SearchQuery(const QString &text)
    : m_words(foldedCase(text).simplified().split(QLatin1Char(' '), Qt::SkipEmptyParts))
{
    m_words.removeDuplicates();
    m_commonLengths.resize(m_words.size());
}

bool SearchQuery::isEmpty() const
{
    return m_words.isEmpty();
}

int SearchQuery::wordCount() const
{
    return static_cast<int>(m_words.size());
}

QString SearchQuery::indexExpression(int pairsPerWord) const
{
    QStringList phrases;
    for (int i = 0; i < qMin(wordCount(), maxIndexedWords); ++i) {
        const int begin = qMax(0, m_commonLengths.at(i) - pairsPerWord);
        phrases.append(phraseOf(m_words.at(i).mid(begin, pairsPerWord + 1)));
    }
    return phrases.join(QLatin1String(" AND "));
}

void SearchQuery::learn(const QString &text)
{
    const QString folded = foldedCase(text);
    for (int i = 0; i < qMin(wordCount(), maxIndexedWords); ++i) {
        const int length = lengthOfBeginningIn(folded, m_words.at(i));
        if (length < m_words.at(i).size())
            m_commonLengths[i] = qMax(m_commonLengths.at(i), length);
    }
}

bool SearchQuery::matches(const QString &text) const
{
    const QString folded = foldedCase(text);
    return std::all_of(m_words.cbegin(), m_words.cend(),
                       [&folded](const QString &word) { return folded.contains(word); });
}

QString SearchQuery::excerptOf(const QString &text) const
{
    QString line = text.simplified();
    if (line.size() <= excerptLength)
        return line;
    const int lastStart = static_cast<int>(line.size()) - excerptLength;
    const int start = qBound(0, firstMatchIn(line) - excerptLead, lastStart);
    QString excerpt = line.mid(start, excerptLength);
    const QChar ellipsis(0x2026);
    if (start > 0)
        excerpt.replace(0, excerpt.at(1).isLowSurrogate() ? 2 : 1, ellipsis);
    if (start < lastStart) {
        const int cut = excerpt.at(excerpt.size() - 2).isHighSurrogate() ? 2 : 1;
        excerpt.replace(excerpt.size() - cut, cut, ellipsis);
    }
    return excerpt;
}

int SearchQuery::firstMatchIn(const QString &line) const
{
    const QString folded = foldedCase(line);
    int first = static_cast<int>(folded.size());
    for (const QString &word : m_words) {
        const auto position = static_cast<int>(folded.indexOf(word));
        if (position >= 0)
            first = qMin(first, position);
    }
    return folded.size() == line.size() ? first : positionBeforeFolding(line, first);
}

QString SearchQuery::indexTokens(const QString &text)
{
    const QString folded = foldedCase(text);
    QString tokens;
    appendPairs(&tokens, folded);
    QString characters = folded;
    std::sort(characters.begin(), characters.end());
    const auto end = std::unique(characters.begin(), characters.end());
    std::for_each(characters.begin(), end, [&tokens](QChar character) {
        if (character.isSpace())
            return;
        appendCoded(&tokens, character);
        tokens.append(QLatin1Char(' '));
    });
    return tokens;
}

} // namespace QtAgent
} // namespace MireloQtLib
