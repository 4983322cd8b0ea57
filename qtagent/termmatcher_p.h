#ifndef MIRELOQTLIB_QTAGENT_TERMMATCHER_P_H
#define MIRELOQTLIB_QTAGENT_TERMMATCHER_P_H

#include <QString>

#include <array>
#include <deque>

namespace MireloQtLib {
namespace QtAgent {

/// Counts which terms of a question occur in documents, reading each document once for all terms.
///
/// A term is a run of the characters a-z, 0-9 and underscore in the lower-cased question. It occurs in a
/// document where `document.toLower().contains(term)`; neither text is copied to find out. Lone surrogates
/// separate like every other character.
class TermMatcher
{
public:
    explicit TermMatcher(const QString &question);
    Q_DISABLE_COPY(TermMatcher)

    /// Returns how many different terms occur in @p document.
    int countTermsIn(const QString &document);

private:
    // The separator and the characters that terms are made of.
    static constexpr int symbolCount = 1 + 26 + 10 + 1;

    // What the last characters read are the beginning of: the root of nothing, the others of a term.
    struct State
    {
        std::array<State *, symbolCount> next = {};
        // The longest other state that the characters read also lead to.
        State *suffix = nullptr;
        // The longest term that the characters read end with: this state, one of its suffixes or none.
        State *ending = nullptr;
        int length = 0;
        int lastDocument = 0;
    };

    void addTermsOf(const QString &question);
    State *stateAfter(State *state, int symbol);
    void endTerm(State *state);
    void linkSuffixes();
    int read(QChar character, State *&state);
    int markTerms(State *ending);

    std::deque<State> m_states = std::deque<State>(1);
    State *m_root = &m_states.front();
    int m_termCount = 0;
    int m_longestTerm = 0;
    int m_document = 0;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
