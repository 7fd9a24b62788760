#include "ChunkRecorder.h"

int ChunkRecorder::record(const char* data, int len, void* context)
{
    auto* recorder = static_cast<ChunkRecorder*>(context);
    if (recorder->m_inFlight.fetch_add(1) != 0) {
        recorder->m_overlapped = true;
    }
    if (recorder->m_closed.load()) {
        ++recorder->m_callsAfterClose;
    }
    if (data[len] != '\0') {
        ++recorder->m_unterminated;
    }
    {
        std::lock_guard<std::mutex> lock(recorder->m_mutex);
        recorder->m_bytes.append(data, len);
    }
    ++recorder->m_calls;
    recorder->m_inFlight.fetch_sub(1);
    return 0;
}

void ChunkRecorder::markClosed()
{
    m_closed = true;
    if (m_inFlight.load() > 0) {
        ++m_callsAfterClose;
    }
}

QByteArray ChunkRecorder::bytes() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_bytes;
}
