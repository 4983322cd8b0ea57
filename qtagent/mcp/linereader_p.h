#ifndef MIRELOQTLIB_QTAGENT_LINEREADER_P_H
#define MIRELOQTLIB_QTAGENT_LINEREADER_P_H

#include <QByteArray>

namespace MireloQtLib {
namespace QtAgent {

// Cuts a stream of bytes into lines. The cost of a byte does not depend on how much arrived with it or before
// it: lines are found by offsets that grow, and what is read is dropped when it is the greater part.
class LineReader
{
public:
    explicit LineReader(qsizetype maximumLength)
        : m_maximumLength(maximumLength)
    {}

    void append(const QByteArray &bytes);

    // Moves the next line, without its end, to @p line. Returns false where no line is complete.
    bool takeLine(QByteArray *line);

    // Returns whether a line has more bytes than allowed. No line is taken from then on.
    bool isLineTooLong() const { return m_isLineTooLong; }

    // Returns the bytes that no line end has followed.
    QByteArray remainder() const { return m_buffer.mid(m_lineBegin); }

private:
    const qsizetype m_maximumLength;
    QByteArray m_buffer;
    int m_lineBegin = 0;
    int m_searchBegin = 0;
    bool m_isLineTooLong = false;
};

} // namespace QtAgent
} // namespace MireloQtLib

#endif
