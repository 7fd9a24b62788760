#pragma once

#include "Framer.h"

#include <QString>

// The original rules: each read is one chunk of at most kChunkSize bytes, decoded by itself as
// UTF-8 up to its first zero byte, and gives at most one frame; the rest of the chunk is carried
// into the next. A silence writes the first carried frame only and drops the rest.
class ChunkFramer final : public Framer
{
public:
    ChunkFramer(const QString& start, const QString& end);

    Result feed(const QByteArray& chunk) override;
    std::optional<Result> silence() override;

    int carriedLength() const { return m_carry.size(); }

    // A start this close to the end of the text waits for the rest of its frame.
    static constexpr int kShortStartLength = 32;
    // A start whose end never comes must not grow the carried text without end.
    static constexpr int kCarryLimit = 64 * 1024;

private:
    void limitCarry(Result& result);

    const QString m_start;
    const QString m_end;
    QString m_carry;
};
