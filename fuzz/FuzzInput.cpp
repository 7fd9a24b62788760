#include "FuzzInput.h"

#include <algorithm>

FuzzInput::FuzzInput(const uint8_t* data, size_t size)
    : m_data(data)
    , m_size(size)
{
}

uint8_t FuzzInput::takeByte()
{
    return atEnd() ? 0 : m_data[m_position++];
}

QByteArray FuzzInput::takeBytes(int count)
{
    const size_t taken = std::min(m_size - std::min(m_position, m_size), size_t(std::max(count, 0)));
    const QByteArray bytes(reinterpret_cast<const char*>(m_data + m_position), int(taken));
    m_position += taken;
    return bytes;
}
