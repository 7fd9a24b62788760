#include "FrameFileSink.h"

#include "Logger.h"

#include <QFile>
#include <QTextStream>

const char* const FrameFileSink::kPrefix = "The package barcode info is :";

FrameFileSink::FrameFileSink(const QString& dir, std::mutex& bufferLock)
    : m_dir(dir)
    , m_bufferLock(bufferLock)
{
}

QString FrameFileSink::fileStamp(const QDateTime& time)
{
    return time.toString("yyyyMMdd_hhmmss_zzz");
}

void FrameFileSink::take(const Frame& frame)
{
    std::lock_guard<std::mutex> lock(m_bufferLock);
    const QString path = QString("%1/%2.txt").arg(m_dir, fileStamp(frame.received));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text | QIODevice::Truncate)) {
        Logger::info(QString("[INFO] Could not open file %1 for writing.").arg(path).toStdString());
        return;
    }
    QString text = frame.text;
    text.remove('\r');
    text.remove('\n');
    QTextStream out(&file);
    out << kPrefix << text;
}
