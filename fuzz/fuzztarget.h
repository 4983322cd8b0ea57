#ifndef FUZZTARGET_H
#define FUZZTARGET_H

#include <QByteArray>
#include <QtGlobal>

#include <cstddef>
#include <cstdint>

/// Runs one input. libFuzzer and the bounded run call it.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

/// Aborts with @p condition where an invariant does not hold, so that both drivers keep the input.
#define FUZZ_REQUIRE(condition) \
    do { \
        if (!(condition)) \
            qFatal("%s:%d: does not hold: %s", __FILE__, __LINE__, #condition); \
    } while (false)

/// Reads the parts of an input from its front.
class FuzzInput
{
public:
    FuzzInput(const uint8_t *data, size_t size)
        : m_bytes(reinterpret_cast<const char *>(data), int(size))
    {}

    /// Takes one byte, 0 at the end.
    uint8_t takeByte()
    {
        if (m_bytes.isEmpty())
            return 0;
        const auto byte = uint8_t(m_bytes.at(0));
        m_bytes.remove(0, 1);
        return byte;
    }

    /// Takes the bytes before the next zero byte, and that byte.
    QByteArray takeField()
    {
        const auto length = m_bytes.indexOf('\0');
        const QByteArray field = m_bytes.left(length);
        m_bytes = length < 0 ? QByteArray() : m_bytes.mid(length + 1);
        return field;
    }

    /// Returns what is left.
    QByteArray rest() const { return m_bytes; }

private:
    QByteArray m_bytes;
};

#endif
