#include "EveryFrameFramer.h"

#include "Utf8Decoder.h"

#include <algorithm>

EveryFrameFramer::EveryFrameFramer(const QString& start, const QString& end)
    : m_start(start)
    , m_end(end)
    , m_decoder(makeUtf8Decoder())
{
}

EveryFrameFramer::~EveryFrameFramer() = default;

Framer::Result EveryFrameFramer::feed(const QByteArray& bytes)
{
    Result result;
    // Only the new text and the marker's length before it can hold a marker not yet found.
    int from = std::max(0, m_carry.size() - std::max(m_start.size(), m_end.size()) + 1);
    int taken = 0;
    m_carry += m_decoder->toUnicode(bytes);
    for (;;) {
        if (!m_inFrame) {
            const int start = m_carry.indexOf(m_start, std::max(from, taken));
            if (start < 0) {
                taken = std::max(taken, m_carry.size() - m_start.size() + 1);
                break;
            }
            taken = from = start + m_start.size();
            m_inFrame = true;
        }
        const int end = m_carry.indexOf(m_end, std::max(from, taken));
        if (end < 0) {
            break;
        }
        if (end > taken) {
            result.frames << m_carry.mid(taken, end - taken);
        }
        taken = from = end + m_end.size();
        m_inFrame = false;
    }
    m_carry.remove(0, std::min(taken, m_carry.size()));
    if (m_carry.size() > kCarryLimit) {
        result.dropped << QString("[INFO] Dropped %1 characters of an unfinished frame: no end text within %2 "
                                  "characters.")
                              .arg(m_carry.size())
                              .arg(kCarryLimit);
        m_carry.clear();
        m_inFrame = false;
    }
    return result;
}
