#ifndef MIRELOQTLIB_QTAGENT_SEARCHQUERY_P_H
#define MIRELOQTLIB_QTAGENT_SEARCHQUERY_P_H

#include <QString>
#include <QStringList>
#include <QVector>

namespace MireloQtLib {
namespace QtAgent {

/// Words that a text has to contain, wherever they stand in it and in whatever case.
///
/// An index of texts finds them fast. It knows a text by its tokens, indexTokens(): every two neighbouring
/// characters that are not blank, in their order, with a token of its own between words, and every character
/// by itself. A word is looked up as the row of its pairs. What the index finds still has to be looked at
/// with matches(), for not all pairs of long queries are looked up.
class SearchQuery
{
public:
    /// Takes the words of @p text, which blanks separate.
    explicit SearchQuery(const QString &text);

    bool isEmpty() const;
    int wordCount() const;

    /// Returns what to look up in an index of FTS5: at most @p pairsPerWord neighbouring pairs of each word,
    /// the first ones, or those that learn() chose.
    QString indexExpression(int pairsPerWord) const;

    /// Looks words up by other pairs from now on, because @p text has those that were looked up and does not
    /// match: by the ones behind which the most similar text so far goes on in another way.
    void learn(const QString &text);

    /// Returns whether @p text contains every word.
    bool matches(const QString &text) const;

    /// Returns the part of @p text where a word stands first, on one line of at most 120 characters.
    QString excerptOf(const QString &text) const;

    /// Returns the tokens of @p text for the index, separated by blanks. No token has an ASCII character.
    static QString indexTokens(const QString &text);

private:
    int firstMatchIn(const QString &line) const;

    QStringList m_words;
    QVector<int> m_commonLengths; // how much of each word's beginning is in a text without the word
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
