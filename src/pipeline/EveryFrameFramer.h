#pragma once

#include "Framer.h"

#include <QString>
#include <memory>

class QTextDecoder;

// Keeps every frame: decodes UTF-8 across reads and cuts every frame that lies between the whole
// start text and the whole end text, however the frames fall into reads. An open frame outlasts
// a silence.
class EveryFrameFramer final : public Framer
{
public:
    EveryFrameFramer(const QString& start, const QString& end);
    ~EveryFrameFramer() override;

    Result feed(const QByteArray& bytes) override;
    std::optional<Result> silence() override { return std::nullopt; }

    // An unfinished frame longer than this is dropped.
    static constexpr int kCarryLimit = 16 * 1024 * 1024;

private:
    const QString m_start;
    const QString m_end;
    std::unique_ptr<QTextDecoder> m_decoder;
    // Inside a frame: its text so far. Outside: a tail that may be the beginning of a start text.
    QString m_carry;
    bool m_inFrame = false;
};
