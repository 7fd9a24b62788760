#pragma once

#include <QByteArray>
#include <cstddef>
#include <cstdint>

// Reads a fuzzer's input front to back; past its end every read comes back short or zero.
class FuzzInput
{
public:
    FuzzInput(const uint8_t* data, size_t size);

    bool atEnd() const { return m_position >= m_size; }
    uint8_t takeByte();
    QByteArray takeBytes(int count);

private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_position = 0;
};
