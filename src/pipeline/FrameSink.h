#pragma once

#include <QDateTime>
#include <QString>
#include <chrono>
#include <optional>
#include <vector>

// Where the worker hands each complete frame: a file per frame today, another output later.
// Called on the worker's thread only.
class FrameSink
{
public:
    struct Frame
    {
        // As cut, line ends still in it: each sink decides what its output can carry.
        QString text;
        // The worker's objectName(): which device the frame came from.
        QString device;
        QDateTime received;
    };

    virtual ~FrameSink() = default;

    // Before the run's first frame.
    virtual void open() { }
    virtual void take(const Frame& frame) = 0;
    // The frames of one read, in order; a sink that gains from seeing them together overrides it.
    virtual void takeAll(const std::vector<Frame>& frames)
    {
        for (const Frame& frame : frames) {
            take(frame);
        }
    }
    // Frames held back for a later try: the time until it is due, or nothing when none are held.
    virtual std::optional<std::chrono::milliseconds> untilRetry() const { return std::nullopt; }
    virtual void retryIfDue() { }
    // The run ends: a last try for what is held.
    virtual void finish() { }
};
