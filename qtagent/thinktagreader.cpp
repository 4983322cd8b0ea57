#include "thinktagreader_p.h"

#include <utility>

namespace MireloQtLib {
namespace QtAgent {

namespace {

struct ThinkTag
{
    QLatin1String opener;
    QLatin1String closer;
};

const ThinkTag tags[] = {
    {QLatin1String("<think>"), QLatin1String("</think>")},
    {QLatin1String("<thinking>"), QLatin1String("</thinking>")},
    {QLatin1String("[THINK]"), QLatin1String("[/THINK]")},
    {QLatin1String("<mm:think>"), QLatin1String("</mm:think>")},
};

// Returns how many characters at the end of @p text may be the beginning of @p word.
int lengthOfBeginning(const QString &text, const QString &word)
{
    for (int length = qMin(int(text.size()), int(word.size()) - 1); length > 0; --length) {
        if (text.endsWith(word.left(length)))
            return length;
    }
    return 0;
}

} // namespace

AnswerPiece ThinkTagReader::read(const QString &portion)
{
    switch (m_state) {
    case State::Before:
        return readBeginning(portion);
    case State::Thinking:
        return readThinking(portion);
    case State::Behind:
        return readBehind(portion);
    case State::Text:
        break;
    }
    return {{}, portion};
}

AnswerPiece ThinkTagReader::readBeginning(const QString &portion)
{
    m_waiting += portion;
    while (m_blanks < m_waiting.size() && m_waiting.at(m_blanks).isSpace())
        ++m_blanks;
    const QString beginning = m_waiting.mid(m_blanks, 16);
    for (const ThinkTag &tag : tags) {
        if (beginning.startsWith(tag.opener)) {
            m_state = State::Thinking;
            m_closer = tag.closer;
            return readThinking(std::exchange(m_waiting, {}).mid(m_blanks + tag.opener.size()));
        }
        if (QString(tag.opener).startsWith(beginning))
            return {};
    }
    return end();
}

AnswerPiece ThinkTagReader::readThinking(const QString &portion)
{
    const QString text = std::exchange(m_waiting, {}) + portion;
    const int closer = int(text.indexOf(m_closer));
    if (closer >= 0) {
        m_state = State::Behind;
        return joined({text.left(closer), {}}, readBehind(text.mid(closer + m_closer.size())));
    }
    const int waiting = lengthOfBeginning(text, m_closer);
    m_waiting = text.right(waiting);
    return {text.left(text.size() - waiting), {}};
}

AnswerPiece ThinkTagReader::readBehind(const QString &portion)
{
    int begin = 0;
    while (begin < portion.size()
           && (portion.at(begin) == QLatin1Char('\n') || portion.at(begin) == QLatin1Char('\r')))
        ++begin;
    if (begin == portion.size())
        return {};
    m_state = State::Text;
    return {{}, portion.mid(begin)};
}

AnswerPiece ThinkTagReader::end()
{
    const State state = std::exchange(m_state, State::Text);
    const QString rest = std::exchange(m_waiting, {});
    return state == State::Thinking ? AnswerPiece{rest, {}} : AnswerPiece{{}, rest};
}

} // namespace QtAgent
} // namespace MireloQtLib
