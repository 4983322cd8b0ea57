#ifndef MIRELOQTLIB_QTAGENT_EVENTSTREAMREADER_P_H
#define MIRELOQTLIB_QTAGENT_EVENTSTREAMREADER_P_H

#include <QByteArray>
#include <QString>

namespace MireloQtLib {
namespace QtAgent {

/// Takes the text pieces out of a stream of chat-completions events, in whatever portions it arrives.
///
/// Bytes are kept in one buffer and never moved: lines are found by offsets that only grow, so the cost
/// of a byte does not depend on how much arrived before it or with it. Nothing but these offsets is held
/// across calls, so append() and takeDelta() may be called again from whatever a piece sets off.
class EventStreamReader
{
public:
    /// Adds received bytes.
    void append(const QByteArray &bytes);

    /// Moves the next non-empty piece of text to @p delta. Returns false where no complete line holds one.
    bool takeDelta(QString *delta);

    /// Returns every byte received.
    const QByteArray &body() const;

private:
    QByteArray m_body;
    qsizetype m_lineBegin = 0;
    qsizetype m_searchBegin = 0;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
