#include "ReceiveBuffer.h"

#include <algorithm>

int ReceiveBuffer::write(const unsigned char* data, unsigned int len)
{
    m_bytes.append(data, len);
    return static_cast<int>(len);
}

int ReceiveBuffer::size() const
{
    return static_cast<int>(m_bytes.size());
}

int ReceiveBuffer::read(unsigned char* out, unsigned int n)
{
    const std::size_t count = std::min<std::size_t>(m_bytes.size(), n);
    m_bytes.copy(out, count);
    if (count < m_bytes.size()) {
        m_bytes = m_bytes.substr(count);
    } else {
        m_bytes.clear();
    }
    return static_cast<int>(count);
}

int ReceiveBuffer::peek(unsigned char* out, unsigned int n) const
{
    const std::size_t count = std::min<std::size_t>(m_bytes.size(), n);
    m_bytes.copy(out, count);
    return static_cast<int>(count);
}

int ReceiveBuffer::clear()
{
    m_bytes.clear();
    return 0;
}
