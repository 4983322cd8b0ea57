#ifndef MIRELOQTLIB_QTAGENT_EVENTSTREAMREADER_P_H
#define MIRELOQTLIB_QTAGENT_EVENTSTREAMREADER_P_H

#include <qtagent/chatcompletion_p.h>

#include <QByteArray>
#include <QJsonObject>

namespace MireloQtLib {
namespace QtAgent {

/// What a line of a stream says.
struct StreamEvent
{
    enum class Kind {
        /// A JSON object.
        Object,
        /// The mark "[DONE]" of the end.
        EndMark,
        /// A field "error", as old servers send it in place of data.
        ErrorField,
    };

    Kind kind = Kind::Object;
    QJsonObject object;
    /// The value of an ErrorField.
    QByteArray error;
};

/// Takes the events out of a chat-completions stream, in whatever portions it arrives.
///
/// Lines are found by offsets into one buffer, and what was read is dropped when it is at least half of
/// the buffer: the cost of a byte does not depend on how much arrived before it or with it, and no more is
/// kept than the line that has not ended and what an error report may show. Nothing but the offsets is held
/// across calls, so append() and takeEvent() may be called again from whatever an event sets off.
class EventStreamReader
{
public:
    /// Adds received bytes.
    void append(const QByteArray &bytes);

    /// Moves the next event to @p event. Returns false where no complete line holds one.
    bool takeEvent(StreamEvent *event);

    /// Returns whether what follows the last line feed is the mark of the end.
    bool endsWithEndMark() const;

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
