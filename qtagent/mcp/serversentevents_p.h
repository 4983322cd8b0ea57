#ifndef MIRELOQTLIB_QTAGENT_SERVERSENTEVENTS_P_H
#define MIRELOQTLIB_QTAGENT_SERVERSENTEVENTS_P_H

#include <QByteArray>

namespace MireloQtLib {
namespace QtAgent {

// Takes the data of events out of a text/event-stream, in whatever portions it arrives. Every byte is looked
// at once.
class ServerSentEvents
{
public:
    explicit ServerSentEvents(qsizetype maximumLength)
        : m_maximumLength(maximumLength)
    {}

    void append(const QByteArray &bytes);

    // Moves the data of the next event that has any to @p data. Returns false where no event is complete.
    bool takeEvent(QByteArray *data);

    // Returns whether a line or an event has more bytes than allowed. No event is taken from then on.
    bool isEventTooLong() const { return m_isEventTooLong; }

    // Returns the id that the stream can be resumed after, empty where there is none.
    QByteArray lastEventId() const { return m_lastEventId; }

    // Returns how long to wait before that, in ms, or -1 where the stream did not say.
    int retryMs() const { return m_retryMs; }

    // Forgets an event that is not complete, as the stream has ended.
    void restart();

private:
    bool takeLine(QByteArray *line);
    void readField(const QByteArray &line);

    const qsizetype m_maximumLength;
    QByteArray m_buffer;
    int m_position = 0;
    bool m_isFirstLine = true;
    // A line feed right after a carriage return belongs to the same line end.
    bool m_skipsLineFeed = false;
    bool m_isEventTooLong = false;
    QByteArray m_line;
    QByteArray m_data;
    // Counts when the event is complete.
    QByteArray m_eventId;
    QByteArray m_lastEventId;
    int m_retryMs = -1;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
