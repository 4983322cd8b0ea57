#ifndef MIRELOQTLIB_QTAGENT_EVENTSTREAMREADER_P_H
#define MIRELOQTLIB_QTAGENT_EVENTSTREAMREADER_P_H

#include <qtagent/chatcompletion_p.h>

#include <QByteArray>
#include <QString>

namespace MireloQtLib {
namespace QtAgent {

/// Takes the text pieces out of a stream of chat-completions events, in whatever portions it arrives.
///
/// Lines are found by offsets into one buffer, and what was read is dropped when it is at least half of
/// the buffer: the cost of a byte does not depend on how much arrived before it or with it, and no more is
/// kept than the line that has not ended and what an error report may show. Nothing but the offsets is held
/// across calls, so append() and takeDelta() may be called again from whatever a piece sets off.
class EventStreamReader
{
public:
    /// Adds received bytes.
    void append(const QByteArray &bytes);

    /// Moves the next non-empty piece of text to @p delta. Returns false where no complete line holds one.
    bool takeDelta(QString *delta);

    /// Returns how many bytes were received.
    qint64 size() const;

    /// Returns what bodySummary() needs of the bytes received.
    const QByteArray &body() const;

private:
    void dropReadLines();

    QByteArray m_lines;
    qsizetype m_lineBegin = 0;
    qsizetype m_searchBegin = 0;
    qint64 m_size = 0;
    SummarizedBody m_body;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
