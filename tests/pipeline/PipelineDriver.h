#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <functional>

class DataThread;

// Drives a running DataThread from a test and reads back what it left on disk and in the log.
namespace PipelineDriver {

constexpr int kDefaultTimeoutMs = 15000;

// Polls condition every millisecond until it holds or the time is up; true if it held.
bool waitUntil(const std::function<bool()>& condition, int timeoutMs = kDefaultTimeoutMs);

// Pushes bytes in one call and waits until the worker has taken all of them out, so that the
// bytes of the next push land in a chunk of their own (when this one is at most a chunk long).
bool pushAndDrain(DataThread& thread, const QByteArray& bytes);

// What the frame files of these frames hold, in the same order.
QList<QByteArray> frameFileContents(const QList<QByteArray>& frames);

// Lines of the log file at path from byte offset on.
QStringList logLinesFrom(const QString& path, qint64 offset);

} // namespace PipelineDriver
