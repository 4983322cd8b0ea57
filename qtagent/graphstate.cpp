#include "graphstate_p.h"

namespace MireloQtLib {
namespace QtAgent {

namespace {

// Estimates, since a QJsonObject does not tell its size. Only texts leave bytes behind when they are
// replaced; numbers, and references to nested values, lie in the entry itself.
constexpr qint64 entryBytes = 32;
constexpr qint64 textHeaderBytes = 8;

qint64 textBytes(const QJsonValue &value)
{
    return value.isString() ? textHeaderBytes + value.toString().size() : 0;
}

qint64 textBytes(const QJsonObject &object)
{
    qint64 bytes = 0;
    for (auto it = object.begin(); it != object.end(); ++it)
        bytes += textBytes(it.value());
    return bytes;
}

} // namespace

GraphState::GraphState(const QJsonObject &values)
    : m_values(values)
{}

const QJsonObject &GraphState::values() const
{
    return m_values;
}

void GraphState::merge(const QJsonObject &update)
{
    m_mergedBytes += textBytes(update);
    if (m_mergedBytes > m_builtBytes)
        rebuildWithout(update);
    for (auto it = update.begin(); it != update.end(); ++it)
        m_values.insert(it.key(), it.value());
}

void GraphState::rebuildWithout(const QJsonObject &replaced)
{
    QJsonObject kept;
    m_mergedBytes = 0;
    m_builtBytes = replaced.size() * entryBytes + textBytes(replaced);
    for (auto it = m_values.constBegin(); it != m_values.constEnd(); ++it) {
        const QString key = it.key();
        if (replaced.contains(key))
            continue;
        const QJsonValue value = it.value();
        kept.insert(key, value);
        m_builtBytes += entryBytes + key.size() + textBytes(value);
    }
    m_values = kept;
}

} // namespace QtAgent
} // namespace MireloQtLib
