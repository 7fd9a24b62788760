#include "KeptFrameFileSink.h"

KeptFrameFileSink::KeptFrameFileSink(const QString& dir, FrameFileWriter::Notice notice)
    : m_writer(dir, std::move(notice))
{
}

std::optional<std::chrono::milliseconds> KeptFrameFileSink::untilRetry() const
{
    if (!m_writer.hasWaiting()) {
        return std::nullopt;
    }
    return m_writer.untilRetry();
}
