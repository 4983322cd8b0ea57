#include "eventstreamreader_p.h"

#include <QJsonDocument>

#include <algorithm>
#include <cstring>

namespace MireloQtLib {
namespace QtAgent {

namespace {

// A part of the buffer, so that a line of many megabytes is parsed where it lies.
struct ByteRange
{
    const char *begin;
    const char *end;

    qsizetype size() const { return end - begin; }

    bool startsWith(const char *prefix) const
    {
        const auto length = qsizetype(std::strlen(prefix));
        return size() >= length && std::memcmp(begin, prefix, size_t(length)) == 0;
    }
};

ByteRange trimmed(ByteRange range)
{
    while (range.begin != range.end && isWhiteSpace(*range.begin))
        ++range.begin;
    while (range.end != range.begin && isWhiteSpace(range.end[-1]))
        --range.end;
    return range;
}

QString deltaOfLine(ByteRange line)
{
    constexpr char prefix[] = "data:";
    constexpr char endMark[] = "[DONE]";
    line = trimmed(line);
    if (!line.startsWith(prefix))
        return QString();
    const ByteRange data = trimmed({line.begin + std::strlen(prefix), line.end});
    if (data.size() == qsizetype(std::strlen(endMark)) && data.startsWith(endMark))
        return QString();
    const QJsonDocument event =
        QJsonDocument::fromJson(QByteArray::fromRawData(data.begin, int(data.size())));
    return eventContent(event.object());
}

} // namespace

void EventStreamReader::append(const QByteArray &bytes)
{
    dropReadLines();
    m_lines += bytes;
    m_size += bytes.size();
    m_body.append(bytes);
}

void EventStreamReader::dropReadLines()
{
    if (m_lineBegin < m_lines.size() - m_lineBegin)
        return;
    m_lines.remove(0, int(m_lineBegin));
    m_searchBegin -= m_lineBegin;
    m_lineBegin = 0;
}

bool EventStreamReader::takeDelta(QString *delta)
{
    const char *const bytes = m_lines.constData();
    const char *const end = bytes + m_lines.size();
    while (true) {
        const char *const lineEnd = std::find(bytes + m_searchBegin, end, '\n');
        m_searchBegin = lineEnd - bytes;
        if (lineEnd == end)
            return false;
        const ByteRange line{bytes + m_lineBegin, lineEnd};
        ++m_searchBegin;
        m_lineBegin = m_searchBegin;
        *delta = deltaOfLine(line);
        if (!delta->isEmpty())
            return true;
    }
}

qint64 EventStreamReader::size() const
{
    return m_size;
}

const QByteArray &EventStreamReader::body() const
{
    return m_body.bytes();
}

} // namespace QtAgent
} // namespace MireloQtLib
