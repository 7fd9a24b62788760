#include "PipelineDriver.h"

#include "DataThread.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QThread>

namespace PipelineDriver {

namespace {

const QByteArray kPrefix = "The package barcode info is :";

} // namespace

bool waitUntil(const std::function<bool()>& condition, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QThread::msleep(1);
    }
    return true;
}

bool pushAndDrain(DataThread& thread, const QByteArray& bytes)
{
    thread.pushData(bytes.constData(), bytes.size());
    return waitUntil([&thread] { return thread.pendingBytes() == 0; });
}

QList<QByteArray> frameFileContents(const QList<QByteArray>& frames)
{
    QList<QByteArray> contents;
    for (const QByteArray& frame : frames) {
        contents.append(kPrefix + frame);
    }
    return contents;
}

QStringList logLinesFrom(const QString& path, qint64 offset)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || !file.seek(offset)) {
        return {};
    }
    return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
}

} // namespace PipelineDriver
