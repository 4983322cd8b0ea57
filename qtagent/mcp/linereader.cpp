#include "linereader_p.h"

namespace MireloQtLib {
namespace QtAgent {

void LineReader::append(const QByteArray &bytes)
{
    if (m_lineBegin > m_buffer.size() / 2) {
        m_buffer.remove(0, m_lineBegin);
        m_searchBegin -= m_lineBegin;
        m_lineBegin = 0;
    }
    m_buffer += bytes;
}

bool LineReader::takeLine(QByteArray *line)
{
    if (m_isLineTooLong)
        return false;
    const int lineEnd = int(m_buffer.indexOf('\n', m_searchBegin));
    m_searchBegin = lineEnd < 0 ? int(m_buffer.size()) : lineEnd;
    m_isLineTooLong = m_searchBegin - m_lineBegin > m_maximumLength;
    if (m_isLineTooLong || lineEnd < 0)
        return false;
    *line = m_buffer.mid(m_lineBegin, lineEnd - m_lineBegin);
    m_lineBegin = m_searchBegin = lineEnd + 1;
    return true;
}

} // namespace QtAgent
} // namespace MireloQtLib
