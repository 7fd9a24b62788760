#pragma once

#include "FrameFileWriter.h"
#include "FrameSink.h"

// Writes every frame to a file of its own that never replaces another, through FrameFileWriter:
// frames the disk refuses wait in memory, and files a crash left unfinished are recovered.
class KeptFrameFileSink final : public FrameSink
{
public:
    KeptFrameFileSink(const QString& dir, FrameFileWriter::Notice notice);

    void open() override { m_writer.recover(); }
    void take(const Frame& frame) override { m_writer.write({ frame }); }
    void takeAll(const std::vector<Frame>& frames) override { m_writer.write(frames); }
    std::optional<std::chrono::milliseconds> untilRetry() const override;
    void retryIfDue() override { m_writer.retryIfDue(); }
    void finish() override { m_writer.finish(); }

private:
    FrameFileWriter m_writer;
};
