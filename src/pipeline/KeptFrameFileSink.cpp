#include "KeptFrameFileSink.h"

KeptFrameFileSink::KeptFrameFileSink(const QString& dir, FrameFileWriter::Notice notice)
    : m_writer(dir, std::move(notice))
{
}

void KeptFrameFileSink::take(const Frame& frame)
{
    QString text = frame.text;
    text.remove('\r');
    text.remove('\n');
    m_writer.write(text, frame.received);
}

std::optional<std::chrono::milliseconds> KeptFrameFileSink::untilRetry() const
{
    if (!m_writer.hasWaiting()) {
        return std::nullopt;
    }
    return m_writer.untilRetry();
}
