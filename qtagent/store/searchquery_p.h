#ifndef MIRELOQTLIB_QTAGENT_SEARCHQUERY_P_H
#define MIRELOQTLIB_QTAGENT_SEARCHQUERY_P_H

#include <QString>
#include <QStringList>

namespace MireloQtLib {
namespace QtAgent {

/// Words that a text has to contain, wherever they stand in it and in whatever case.
///
/// An index of texts finds them fast. It knows a text by its tokens, indexTokens(): every two neighbouring
/// characters that are not blank, in their order, and every character by itself. A word is looked up as the
/// row of its pairs. What the index finds still has to be looked at with matches(), for a row of pairs may
/// run on over a blank.
class SearchQuery
{
public:
    /// Takes the words of @p text, which blanks separate.
    explicit SearchQuery(const QString &text);

    bool isEmpty() const;
    int wordCount() const;

    /// Returns what to look up in an index of FTS5, with at most @p pairsPerWord pairs of each word.
    QString indexExpression(int pairsPerWord) const;

    /// Returns whether @p text contains every word.
    bool matches(const QString &text) const;

    /// Returns the part of @p text where a word stands first, on one line of at most 120 characters.
    QString excerptOf(const QString &text) const;

    /// Returns the tokens of @p text for the index, separated by blanks. No token has an ASCII character.
    static QString indexTokens(const QString &text);

private:
    int firstMatchIn(const QString &line) const;

    QStringList m_words;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
