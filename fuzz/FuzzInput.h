#pragma once

#include <QByteArray>
#include <algorithm>
#include <cstddef>
#include <cstdint>

// Reads a fuzzer's input front to back; past its end every read comes back short or zero.
class FuzzInput
{
public:
    FuzzInput(const uint8_t* data, size_t size)
        : m_data(data)
        , m_size(size)
    {
    }

    bool atEnd() const { return m_position >= m_size; }
    uint8_t takeByte() { return atEnd() ? 0 : m_data[m_position++]; }
    QByteArray takeBytes(int count)
    {
        const size_t taken = std::min(m_size - std::min(m_position, m_size), size_t(std::max(count, 0)));
        const QByteArray bytes(reinterpret_cast<const char*>(m_data + m_position), int(taken));
        m_position += taken;
        return bytes;
    }

private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_position = 0;
};
