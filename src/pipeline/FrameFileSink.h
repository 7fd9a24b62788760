#pragma once

#include "FrameSink.h"

#include <mutex>

// Writes each frame as "<prefix><frame>" to "<dir>/<yyyyMMdd_hhmmss_zzz>.txt", the way the
// device always has: a frame of the same millisecond replaces the one before, a directory that is
// not there is not made, and each failure is one log line.
class FrameFileSink final : public FrameSink
{
public:
    // Writes under the worker's buffer lock, as it always has: a push waits for the write.
    FrameFileSink(const QString& dir, std::mutex& bufferLock);

    void take(const Frame& frame) override;

    // What every frame file begins with, in both modes.
    static const char* const kPrefix;
    static QString fileStamp(const QDateTime& time);

private:
    const QString m_dir;
    std::mutex& m_bufferLock;
};
