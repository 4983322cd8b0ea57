#ifndef MIRELOQTLIB_QTAGENT_GRAPHSTATE_P_H
#define MIRELOQTLIB_QTAGENT_GRAPHSTATE_P_H

#include <QJsonObject>

namespace MireloQtLib {
namespace QtAgent {

/// The state of a running graph: an object that updates are merged into while the caller keeps copies.
///
/// A QJsonObject never gives back the bytes of a text that was replaced, and the next change copies them
/// together with the rest once the object is shared. A loop that replaces a text would therefore pay for
/// all of its earlier steps at each further one. This class builds the object anew when the texts merged
/// since it was last built weigh more than the object did, so a state holds at most about twice what it
/// needs, and building costs no more than the merging that led to it.
///
/// Nested objects and arrays are shared as they are: a merge copies none of their bytes. What a node function
/// leaves behind in a nested object that it changes itself stays there.
class GraphState
{
public:
    /// Begins with @p values. Whatever they were made of, the first text merged builds them anew.
    explicit GraphState(const QJsonObject &values);

    /// Returns the merged object. A copy of it shares its data until the next merge().
    const QJsonObject &values() const;

    /// Inserts every key of @p update, in its order, over the values of before.
    void merge(const QJsonObject &update);

private:
    void rebuildWithout(const QJsonObject &replaced);

    QJsonObject m_values;
    qint64 m_builtBytes = 0;
    qint64 m_mergedBytes = 0;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
