#include "ChunkFramer.h"

#include <utility>

ChunkFramer::ChunkFramer(const QString& start, const QString& end)
    : m_start(start)
    , m_end(end)
{
}

Framer::Result ChunkFramer::feed(const QByteArray& chunk)
{
    // QString(QByteArray) ends at the first zero byte: what follows it in the chunk is never seen.
    const QString text = std::exchange(m_carry, QString()) + QString(chunk);
    const int size = text.size();
    const int s = text.indexOf(m_start);
    const int e = text.indexOf(m_end);

    Result result;
    if (s == -1 && e != -1) {
        m_carry = text.mid(e + 1);
    } else if (s >= 0 && (e == -1 || e < s) && size - s < kShortStartLength) {
        m_carry = text.mid(s);
    } else if (s >= 0) {
        if (e < size - 1) {
            m_carry = text.mid(e + 1);
        }
        const int n = e - s - 1;
        if (e >= 0 && n >= 1) {
            result.frames << text.mid(s + 1, n);
        }
    }
    limitCarry(result);
    return result;
}

std::optional<Framer::Result> ChunkFramer::silence()
{
    if (m_carry.isEmpty()) {
        return std::nullopt;
    }
    const QString carry = std::exchange(m_carry, QString());
    const int s = carry.indexOf(m_start);
    const int e = carry.indexOf(m_end);
    const int n = e - s - 1;
    Result result;
    if (s >= 0 && e >= 0 && n >= 1) {
        result.frames << carry.mid(s + 1, n);
    }
    return result;
}

void ChunkFramer::limitCarry(Result& result)
{
    if (m_carry.size() <= kCarryLimit) {
        return;
    }
    int frames = 0;
    for (int s = m_carry.indexOf(m_start), e = 0; s >= 0; s = m_carry.indexOf(m_start, e + 1)) {
        e = m_carry.indexOf(m_end, s + 1);
        if (e < 0) {
            break;
        }
        frames += e > s + 1;
    }
    const QString dropped = frames == 0
        ? QString("[INFO] Dropped %1 characters of an unfinished frame: no end text within %2 characters.")
        : QString("[INFO] Dropped %1 characters holding %3 complete frames: the carried text passed %2 characters.");
    result.dropped << dropped.arg(m_carry.size()).arg(kCarryLimit).arg(frames);
    m_carry.clear();
}
