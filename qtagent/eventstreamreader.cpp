#include "eventstreamreader_p.h"

#include "chatcompletion_p.h"

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

bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

ByteRange trimmed(ByteRange range)
{
    while (range.begin != range.end && isSpace(*range.begin))
        ++range.begin;
    while (range.end != range.begin && isSpace(range.end[-1]))
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
    m_body += bytes;
}

bool EventStreamReader::takeDelta(QString *delta)
{
    const char *const bytes = m_body.constData();
    const char *const end = bytes + m_body.size();
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

const QByteArray &EventStreamReader::body() const
{
    return m_body;
}

} // namespace QtAgent
} // namespace MireloQtLib
