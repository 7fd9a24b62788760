#pragma once

#include <QByteArray>
#include <atomic>
#include <mutex>

// A DataCallback target that keeps what the endpoints hand over and checks how they hand it.
class ChunkRecorder final
{
public:
    // The DataCallback; context is the recorder.
    static int record(const char* data, int len, void* context);

    // From now on any chunk, and one still being handed over, is a fault.
    void markClosed();

    QByteArray bytes() const;
    int calls() const { return m_calls.load(); }
    int callsAfterClose() const { return m_callsAfterClose.load(); }
    // Chunks that lacked the zero byte behind them.
    int unterminated() const { return m_unterminated.load(); }
    bool overlapped() const { return m_overlapped.load(); }

private:
    mutable std::mutex m_mutex;
    QByteArray m_bytes;
    std::atomic<int> m_inFlight { 0 };
    std::atomic<bool> m_overlapped { false };
    std::atomic<bool> m_closed { false };
    std::atomic<int> m_calls { 0 };
    std::atomic<int> m_callsAfterClose { 0 };
    std::atomic<int> m_unterminated { 0 };
};
