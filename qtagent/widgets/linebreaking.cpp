#include "linebreaking_p.h"

#include <QTextBoundaryFinder>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// A stretch of 10,000 characters takes about 5 ms, and as much again whenever its paragraph is laid out.
constexpr qint64 highCost = qint64(10000) * 10000;

qint64 square(int value)
{
    return qint64(value) * value;
}

// The finder does not break at the blanks between numbers, while a text layout does.
bool isBlank(QChar character)
{
    return character == QLatin1Char(' ') || character == QLatin1Char('\t');
}

bool endsParagraph(QChar character)
{
    return character == QLatin1Char('\n') || character == QLatin1Char('\r')
        || character == QChar::ParagraphSeparator;
}

} // namespace

void LineBreakingCost::add(const QString &text)
{
    if (m_isHigh)
        return;
    m_unexamined += text;
    if (m_cost + square(m_unexamined.size()) > highCost)
        examine();
}

void LineBreakingCost::examine()
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Line, m_unexamined);
    int begin = 0;
    for (int end = 1; end < m_unexamined.size(); ++end) { // behind the last character more may follow
        const QChar last = m_unexamined.at(end - 1);
        finder.setPosition(end);
        if (!finder.isAtBoundary() && !isBlank(last))
            continue;
        count(end - begin);
        if (endsParagraph(last))
            m_cost = 0;
        begin = end;
    }
    m_unexamined.remove(0, begin);
    if (m_cost + square(m_unexamined.size()) > highCost)
        m_isHigh = true;
}

void LineBreakingCost::count(int stretch)
{
    m_cost += square(stretch);
    if (m_cost > highCost)
        m_isHigh = true;
}

} // namespace QtAgent
} // namespace MireloQtLib
