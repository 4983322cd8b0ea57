#include "eventstreamreader_p.h"

#include <QJsonDocument>

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

// Returns null where there is none. A byte costs std::find() many times as much.
const char *findLineFeed(ByteRange range)
{
    return static_cast<const char *>(std::memchr(range.begin, '\n', size_t(range.size())));
}

bool isEndMark(ByteRange data)
{
    constexpr char endMark[] = "[DONE]";
    return data.size() == qsizetype(std::strlen(endMark)) && data.startsWith(endMark);
}

// Returns the value of the field @p name, which ends in a colon.
ByteRange valueOf(ByteRange line, const char *name)
{
    return trimmed({line.begin + std::strlen(name), line.end});
}

constexpr char dataField[] = "data:";
constexpr char errorField[] = "error:";

// Returns whether the line says anything.
bool readData(ByteRange data, StreamEvent *event)
{
    event->kind = isEndMark(data) ? StreamEvent::Kind::EndMark : StreamEvent::Kind::Object;
    if (event->kind == StreamEvent::Kind::EndMark)
        return true;
    event->object = QJsonDocument::fromJson(QByteArray::fromRawData(data.begin, int(data.size()))).object();
    return !event->object.isEmpty();
}

bool readLine(ByteRange line, StreamEvent *event)
{
    line = trimmed(line);
    if (line.startsWith(dataField))
        return readData(valueOf(line, dataField), event);
    if (!line.startsWith(errorField))
        return false;
    const ByteRange error = valueOf(line, errorField);
    event->kind = StreamEvent::Kind::ErrorField;
    event->error = QByteArray(error.begin, int(error.size()));
    return true;
}

} // namespace

void EventStreamReader::append(const QByteArray &bytes)
{
    dropReadLines();
    if (m_lines.isEmpty())
        m_lines = bytes;
    else
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

bool EventStreamReader::takeEvent(StreamEvent *event)
{
    const char *const bytes = m_lines.constData();
    const char *const end = bytes + m_lines.size();
    while (const char *const lineEnd = findLineFeed({bytes + m_searchBegin, end})) {
        const ByteRange line{bytes + m_lineBegin, lineEnd};
        m_searchBegin = lineEnd + 1 - bytes;
        m_lineBegin = m_searchBegin;
        if (readLine(line, event))
            return true;
    }
    m_searchBegin = m_lines.size();
    return false;
}

bool EventStreamReader::endsWithEndMark() const
{
    const char *const bytes = m_lines.constData();
    const ByteRange line = trimmed({bytes + m_lineBegin, bytes + m_lines.size()});
    return line.startsWith(dataField) && isEndMark(valueOf(line, dataField));
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
