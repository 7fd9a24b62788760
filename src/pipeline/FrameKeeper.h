#pragma once

#include <QString>
#include <memory>

class FrameFileWriter;
class QTextDecoder;

// The frames of a device that keeps every one. Decodes UTF-8 across reads, cuts every frame that
// lies between the whole start text and the whole end text however the frames fall into reads,
// and hands each, on one line, to the writer.
class FrameKeeper
{
public:
    FrameKeeper(const QString& start, const QString& end, FrameFileWriter& writer);
    ~FrameKeeper();

    // Hands over the frames these bytes complete, in order, and gives the text they decode to.
    QString feed(const QByteArray& bytes);

    // An unfinished frame longer than this is dropped, with a log line.
    static constexpr int kCarryLimit = 16 * 1024 * 1024;

private:
    void write(QString frame);

    const QString m_start;
    const QString m_end;
    FrameFileWriter& m_writer;
    std::unique_ptr<QTextDecoder> m_decoder;
    // Inside a frame: its text so far. Outside: a tail that may be the beginning of a start text.
    QString m_carry;
    bool m_inFrame = false;
};
