#include "serversentevents_p.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace MireloQtLib {
namespace QtAgent {

namespace {

bool isLineEnd(char c)
{
    return c == '\n' || c == '\r';
}

} // namespace

void ServerSentEvents::append(const QByteArray &bytes)
{
    m_buffer = m_buffer.mid(m_position) + bytes;
    m_position = 0;
}

void ServerSentEvents::restart()
{
    m_buffer.clear();
    m_line.clear();
    m_data.clear();
    m_eventId = m_lastEventId;
    m_position = 0;
    m_isFirstLine = true;
    m_skipsLineFeed = false;
}

bool ServerSentEvents::takeEvent(QByteArray *data)
{
    QByteArray line;
    while (takeLine(&line)) {
        if (!line.isEmpty()) {
            readField(line);
            continue;
        }
        m_lastEventId = m_eventId;
        *data = std::exchange(m_data, {});
        data->chop(1);
        if (!data->isEmpty())
            return true;
    }
    return false;
}

bool ServerSentEvents::takeLine(QByteArray *line)
{
    if (m_skipsLineFeed && m_position < m_buffer.size()) {
        m_position += m_buffer.at(m_position) == '\n' ? 1 : 0;
        m_skipsLineFeed = false;
    }
    const char *const begin = m_buffer.constData() + m_position;
    const char *const end = m_buffer.constData() + m_buffer.size();
    const char *const lineEnd = std::find_if(begin, end, isLineEnd);
    m_line.append(begin, int(lineEnd - begin));
    m_position += int(lineEnd - begin);
    m_isEventTooLong = m_isEventTooLong || m_line.size() + m_data.size() > m_maximumLength;
    if (lineEnd == end || m_isEventTooLong)
        return false;

    m_skipsLineFeed = *lineEnd == '\r';
    ++m_position;
    *line = std::exchange(m_line, {});
    if (std::exchange(m_isFirstLine, false) && line->startsWith("\xEF\xBB\xBF"))
        line->remove(0, 3);
    return true;
}

void ServerSentEvents::readField(const QByteArray &line)
{
    const int colon = int(line.indexOf(':'));
    const QByteArray name = colon < 0 ? line : line.left(colon);
    const int valueBegin = colon < 0 ? int(line.size()) : colon + 1;
    const QByteArray value = line.mid(line.mid(valueBegin, 1) == " " ? valueBegin + 1 : valueBegin);
    if (name == "data") {
        m_data += value + '\n';
    } else if (name == "id" && !value.contains('\0')) {
        m_eventId = value;
    } else if (name == "retry") {
        bool isNumber = false;
        const qint64 ms = value.toLongLong(&isNumber);
        if (isNumber && ms >= 0)
            m_retryMs = int(std::min<qint64>(ms, std::numeric_limits<int>::max()));
    }
}

} // namespace QtAgent
} // namespace MireloQtLib
