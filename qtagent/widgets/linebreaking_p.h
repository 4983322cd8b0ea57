#ifndef MIRELOQTLIB_QTAGENT_LINEBREAKING_P_H
#define MIRELOQTLIB_QTAGENT_LINEBREAKING_P_H

#include <QString>

namespace MireloQtLib {
namespace QtAgent {

/// Estimates what it costs to break a growing text into lines.
///
/// For each line Qt reads on to the next place where a line may end, however far away that is. So a
/// stretch without such a place costs the square of its length: a million characters take half a minute. A
/// text option that breaks lines anywhere costs the same for each character, but tears words apart.
class LineBreakingCost
{
public:
    /// Takes note of @p text, which continues what was added before.
    void add(const QString &text);

    /// Returns whether there is a paragraph that should better be broken anywhere.
    bool isHigh() const { return m_isHigh; }

private:
    void examine();
    void count(int stretch);

    QString m_unexamined; // begins where a line may break
    qint64 m_cost = 0;    // of the paragraph that m_unexamined continues
    bool m_isHigh = false;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
