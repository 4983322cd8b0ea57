#include "termmatcher_p.h"

#include <algorithm>

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int separator = 0;

// Of these each takes a third of a kilobyte.
constexpr size_t largestRowCount = 1024;

// Only these characters beyond ASCII have lower-case forms with a character that terms are made of.
constexpr ushort capitalIWithDot = 0x0130; // "i" and a combining dot, which separates
constexpr ushort kelvinSign = 0x212a;      // "k"

constexpr std::array<quint8, 128> asciiSymbols()
{
    std::array<quint8, 128> symbols = {};
    int symbol = separator;
    for (int letter = 'a'; letter <= 'z'; ++letter) {
        symbols[letter] = ++symbol;
        symbols[letter - 'a' + 'A'] = symbol;
    }
    for (int digit = '0'; digit <= '9'; ++digit)
        symbols[digit] = ++symbol;
    symbols['_'] = ++symbol;
    return symbols;
}

int symbolOf(QChar character)
{
    static constexpr std::array<quint8, 128> ascii = asciiSymbols();
    const ushort code = character.unicode();
    if (code < ascii.size())
        return ascii[code];
    if (code == capitalIWithDot)
        return ascii['i'];
    return code == kelvinSign ? ascii['k'] : separator;
}

bool endsInSeparator(QChar character)
{
    return character.unicode() == capitalIWithDot;
}

} // namespace

TermMatcher::TermMatcher(const QString &question)
{
    addTermsOf(question);
    linkStates();
}

// The states of several terms share their common beginning, and a repeated term is there already.
void TermMatcher::addTermsOf(const QString &question)
{
    const auto separates = [](QChar character) { return symbolOf(character) == separator; };
    const auto separators = std::count_if(question.cbegin(), question.cend(), separates);
    m_states.reserve(static_cast<size_t>(question.size() - separators) + 1);
    m_states.emplace_back();
    StateIndex state = root;
    int length = 0;
    for (const QChar character : question) {
        if (!separates(character)) {
            state = addedChild(state, symbolOf(character));
            m_longestTerm = qMax(m_longestTerm, ++length);
        }
        if (separates(character) || endsInSeparator(character)) {
            endTerm(state);
            state = root;
            length = 0;
        }
    }
    endTerm(state);
}

TermMatcher::StateIndex TermMatcher::addedChild(StateIndex parent, int symbol)
{
    if (const StateIndex known = child(parent, symbol))
        return known;
    const auto added = static_cast<StateIndex>(m_states.size());
    m_states.emplace_back();
    m_states[added].symbol = static_cast<quint8>(symbol);
    m_states[added].sibling = m_states[parent].child;
    m_states[parent].child = added;
    return added;
}

TermMatcher::StateIndex TermMatcher::child(StateIndex parent, int symbol) const
{
    StateIndex state = m_states[parent].child;
    while (state != root && m_states[state].symbol != symbol)
        state = m_states[state].sibling;
    return state;
}

void TermMatcher::endTerm(StateIndex state)
{
    if (state == root || m_states[state].ending != root)
        return;
    m_states[state].ending = state;
    ++m_termCount;
}

// Visits short states before longer ones, so a state's suffix is complete when the state is.
void TermMatcher::linkStates()
{
    m_rows.resize(std::min(m_states.size(), largestRowCount));
    std::vector<StateIndex> states{root};
    states.reserve(m_states.size());
    for (size_t i = 0; i < states.size(); ++i) {
        const StateIndex state = states[i];
        linkChildrenOf(state);
        for (StateIndex next = m_states[state].child; next != root; next = m_states[next].sibling) {
            giveRow(next, states.size());
            states.push_back(next);
        }
        if (hasRow(state))
            fillRow(state);
    }
}

void TermMatcher::linkChildrenOf(StateIndex parent)
{
    for (StateIndex next = m_states[parent].child; next != root; next = m_states[next].sibling) {
        State &state = m_states[next];
        if (parent != root)
            state.suffix = stateAfter(m_states[parent].suffix, state.symbol);
        if (state.ending == root)
            state.ending = m_states[state.suffix].ending;
    }
}

void TermMatcher::giveRow(StateIndex state, size_t place)
{
    if (place >= m_rows.size())
        return;
    m_states[state].row = static_cast<quint16>(place);
    m_rows[place].state = state;
    m_rows[place].ending = m_states[state].ending;
}

// A symbol that leads to no longer state leads where it leads from the suffix.
void TermMatcher::fillRow(StateIndex state)
{
    Row &row = m_rows[m_states[state].row];
    if (state == root)
        row.next.fill(&row);
    else
        row.next = m_rows[m_states[m_states[state].suffix].row].next;
    for (StateIndex next = m_states[state].child; next != root; next = m_states[next].sibling)
        row.next[m_states[next].symbol] = hasRow(next) ? &m_rows[m_states[next].row] : nullptr;
}

bool TermMatcher::hasRow(StateIndex state) const
{
    return state == root || m_states[state].row != 0;
}

TermMatcher::StateIndex TermMatcher::stateAfter(StateIndex state, int symbol) const
{
    while (true) {
        const Row *const next = hasRow(state) ? m_rows[m_states[state].row].next[symbol] : nullptr;
        if (next)
            return next->state;
        if (const StateIndex longer = child(state, symbol))
            return longer;
        state = m_states[state].suffix;
    }
}

// Reads the halves of a document in turns: each state waits for the one before it in its half, not for the
// other half. The halves overlap by the longest term, and a term that both find is counted once.
int TermMatcher::countTermsIn(const QString &document)
{
    ++m_document;
    int count = 0;
    const auto overlap = qMin<decltype(document.size())>(document.size(), m_longestTerm);
    const QChar *first = document.cbegin();
    const QChar *second = first + (document.size() - overlap) / 2;
    Place firstPlace = startOfTerms();
    Place secondPlace = startOfTerms();
    for (; second != document.cend() && count < m_termCount; ++first, ++second)
        count += read(*first, firstPlace) + read(*second, secondPlace);
    return count;
}

TermMatcher::Place TermMatcher::startOfTerms() const
{
    return {m_rows.data(), root};
}

int TermMatcher::read(QChar character, Place &place)
{
    const Row *const row = place.row->next[symbolOf(character)];
    if (!row || endsInSeparator(character))
        return readBeyondRows(character, place);
    place.row = row;
    return row->ending == root ? 0 : markTerms(row->ending);
}

int TermMatcher::readBeyondRows(QChar character, Place &place)
{
    const StateIndex before = place.row == &m_emptyRow ? place.state : place.row->state;
    const StateIndex state = stateAfter(before, symbolOf(character));
    place = {hasRow(state) ? &m_rows[m_states[state].row] : &m_emptyRow, state};
    if (endsInSeparator(character))
        place = startOfTerms();
    return markTerms(m_states[state].ending);
}

// Marks the terms that are read when @p ending is; a term marked before has its suffixes marked too.
int TermMatcher::markTerms(StateIndex ending)
{
    int count = 0;
    while (ending != root && m_states[ending].lastDocument != m_document) {
        m_states[ending].lastDocument = m_document;
        ending = m_states[m_states[ending].suffix].ending;
        ++count;
    }
    return count;
}

} // namespace QtAgent
} // namespace MireloQtLib
