#ifndef MIRELOQTLIB_QTAGENT_TERMMATCHER_P_H
#define MIRELOQTLIB_QTAGENT_TERMMATCHER_P_H

#include <QString>

#include <array>
#include <vector>

namespace MireloQtLib {
namespace QtAgent {

/// Counts which terms of a question occur in documents, reading each document once for all terms.
///
/// A term is a run of the characters a-z, 0-9 and underscore in the lower-cased question. It occurs in a
/// document where `document.toLower().contains(term)`; neither text is copied to find out. Lone surrogates
/// separate like every other character.
///
/// For each character of the question it takes up to 28 bytes, and for all of them a third of a megabyte
/// more.
class TermMatcher
{
public:
    explicit TermMatcher(const QString &question);
    Q_DISABLE_COPY(TermMatcher)

    /// Returns how many different terms occur in @p document.
    int countTermsIn(const QString &document);

private:
    using StateIndex = quint32;

    // The separator and the characters that terms are made of.
    static constexpr int symbolCount = 1 + 26 + 10 + 1;

    // The first state: no beginning of a term was read. Elsewhere the index stands for no state.
    static constexpr StateIndex root = 0;

    // What the last characters read are the beginning of: the root of nothing, the others of a term.
    struct State
    {
        // The states that one more character leads to: the first, and the next one with the same parent.
        StateIndex child = root;
        StateIndex sibling = root;
        // The longest other state that the characters read also lead to.
        StateIndex suffix = root;
        // The longest term that the characters read end with: this state, one of its suffixes or none.
        StateIndex ending = root;
        qint32 lastDocument = 0;
        // The state's place among the rows; the root has the first.
        quint16 row = 0;
        quint8 symbol = 0;
    };

    // Where each symbol leads to, null where that state has no row. The shortest states have one: where the
    // question is not a long one all of them, else those that nearly everything ends in.
    struct Row
    {
        std::array<const Row *, symbolCount> next = {};
        StateIndex state = root;
        StateIndex ending = root;
    };

    // What was read of a document leads to: the row of a state, else the empty one and the state itself.
    struct Place
    {
        const Row *row;
        StateIndex state;
    };

    void addTermsOf(const QString &question);
    StateIndex addedChild(StateIndex parent, int symbol);
    StateIndex child(StateIndex parent, int symbol) const;
    void endTerm(StateIndex state);
    void linkStates();
    void linkChildrenOf(StateIndex parent);
    void giveRow(StateIndex state, size_t place);
    void fillRow(StateIndex state);
    bool hasRow(StateIndex state) const;
    StateIndex stateAfter(StateIndex state, int symbol) const;
    Place startOfTerms() const;
    int read(QChar character, Place &place);
    int readBeyondRows(QChar character, Place &place);
    int markTerms(StateIndex ending);

    std::vector<State> m_states;
    std::vector<Row> m_rows;
    const Row m_emptyRow;
    int m_termCount = 0;
    int m_longestTerm = 0;
    int m_document = 0;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
