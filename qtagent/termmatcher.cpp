#include "termmatcher_p.h"

namespace MireloQtLib {
namespace QtAgent {

namespace {

constexpr int separator = 0;

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
    linkSuffixes();
}

// The states of several terms share their common beginning, and a repeated term is there already.
void TermMatcher::addTermsOf(const QString &question)
{
    State *state = m_root;
    for (const QChar character : question) {
        state = stateAfter(state, symbolOf(character));
        if (endsInSeparator(character))
            state = stateAfter(state, separator);
    }
    stateAfter(state, separator);
}

TermMatcher::State *TermMatcher::stateAfter(State *state, int symbol)
{
    if (symbol == separator) {
        endTerm(state);
        return m_root;
    }
    State *&next = state->next[symbol];
    if (!next) {
        next = &m_states.emplace_back();
        next->length = state->length + 1;
        m_longestTerm = qMax(m_longestTerm, next->length);
    }
    return next;
}

void TermMatcher::endTerm(State *state)
{
    if (state == m_root || state->ending)
        return;
    state->ending = state;
    ++m_termCount;
}

// Visits short states before longer ones, so a state's suffix is complete when the state is.
void TermMatcher::linkSuffixes()
{
    std::deque<State *> states{m_root};
    for (; !states.empty(); states.pop_front()) {
        State *state = states.front();
        for (int symbol = 0; symbol < symbolCount; ++symbol) {
            State *fallback = state == m_root ? m_root : state->suffix->next[symbol];
            State *&next = state->next[symbol];
            if (!next) {
                next = fallback;
                continue;
            }
            next->suffix = fallback;
            if (!next->ending)
                next->ending = fallback->ending;
            states.push_back(next);
        }
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
    State *firstState = m_root;
    State *secondState = m_root;
    for (; second != document.cend() && count < m_termCount; ++first, ++second)
        count += read(*first, firstState) + read(*second, secondState);
    return count;
}

int TermMatcher::read(QChar character, State *&state)
{
    state = state->next[symbolOf(character)];
    const int count = markTerms(state->ending);
    if (endsInSeparator(character))
        state = m_root;
    return count;
}

// Marks the terms that are read when @p ending is; a term marked before has its suffixes marked too.
int TermMatcher::markTerms(State *ending)
{
    int count = 0;
    for (; ending && ending->lastDocument != m_document; ending = ending->suffix->ending) {
        ending->lastDocument = m_document;
        ++count;
    }
    return count;
}

} // namespace QtAgent
} // namespace MireloQtLib
