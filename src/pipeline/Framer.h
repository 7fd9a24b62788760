#pragma once

#include <QByteArray>
#include <QStringList>
#include <optional>

// Cuts a device's byte stream into frames. Pure: no thread, clock or file, so a rule can be
// checked in-process; the worker reads, waits, logs and hands the frames on.
class Framer
{
public:
    struct Result
    {
        // Complete frames in the order they came, line ends still in them.
        QStringList frames;
        // Log lines saying what was thrown away and why.
        QStringList dropped;
    };

    virtual ~Framer() = default;

    virtual Result feed(const QByteArray& bytes) = 0;
    // The line went quiet: what is carried ends. Nothing when no silence ends anything.
    virtual std::optional<Result> silence() = 0;
};
