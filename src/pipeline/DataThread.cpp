#include "DataThread.h"

#include "Logger.h"

#include <QByteArray>
#include <QDateTime>
#include <QFile>
#include <QTextStream>
#include <algorithm>
#include <cstring>

namespace {

const char* const kFramePrefix = "The package barcode info is :";

} // namespace

DataThread::DataThread(QObject* parent)
    : QThread(parent)
{
}

bool DataThread::startThread()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_buffer.clear();
    }
    m_stop = false;
    start(QThread::InheritPriority);
    return true;
}

bool DataThread::stopThread()
{
    if (!isRunning()) {
        return true;
    }
    m_stop = true;
    quit();
    wait();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_buffer.clear();
    return true;
}

void DataThread::setStartEndChar(const QString& start, const QString& end)
{
    m_startChar = start;
    m_endChar = end;
}

void DataThread::setFileDir(const QString& dir)
{
    m_fileDir = dir;
}

void DataThread::setKeyOutput(bool on)
{
    m_keyOutput = on;
}

void DataThread::pushData(const char* data, int len)
{
    if (data == nullptr || len <= 0) {
        return;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    const int room = kBufferLimit - m_buffer.size();
    if (room > 0) {
        m_buffer.write(reinterpret_cast<const unsigned char*>(data), static_cast<unsigned int>(std::min(len, room)));
    }
}

int DataThread::pendingBytes()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_buffer.size();
}

void DataThread::run()
{
    QString fileCarry;
    int idlePasses = 0;
    unsigned char chunk[kChunkSize];

    while (!m_stop) {
        std::memset(chunk, 0, sizeof chunk);
        const int count = takeChunk(chunk);
        if (count > 0) {
            idlePasses = 0;
            extractFrame(fileCarry, reinterpret_cast<const char*>(chunk), count, m_fileDir);
            QThread::msleep(kChunkPauseMs);
            continue;
        }

        QThread::msleep(kIdlePauseMs);
        ++idlePasses;
        if (!fileCarry.isEmpty() && idlePasses == kSilencePasses) {
            flushFileCarry(fileCarry);
            idlePasses = 0;
            fileCarry.clear();
        }
    }
}

int DataThread::takeChunk(unsigned char* chunk)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_buffer.read(chunk, kChunkSize);
}

void DataThread::extractFrame(QString& fileCarry, const char* data, int len, const QString& dir)
{
    QString text = QString(QByteArray(data, len));
    if (!fileCarry.isEmpty()) {
        text.prepend(fileCarry);
        fileCarry.clear();
    }

    const int size = text.size();
    const int s = text.indexOf(m_startChar);
    const int e = text.indexOf(m_endChar);

    if (s == -1 && e != -1) {
        fileCarry = text.mid(e + 1);
    } else if (s >= 0 && (e == -1 || e < s) && size - s < kShortStartLength) {
        fileCarry = text.mid(s);
    } else if (s >= 0) {
        if (e < size - 1) {
            fileCarry = text.mid(e + 1);
        }
        const int n = e - s - 1;
        if (e >= 0 && n >= 1) {
            QString frame = text.mid(s + 1, n);
            writeFrameFile(frame, dir);
        }
    }
    limitFileCarry(fileCarry);
}

void DataThread::limitFileCarry(QString& fileCarry)
{
    if (fileCarry.size() <= kFileCarryLimit) {
        return;
    }
    Logger::info(QString("[INFO] Dropped %1 characters of an unfinished frame: no end text within %2 characters.")
                     .arg(fileCarry.size())
                     .arg(kFileCarryLimit)
                     .toStdString());
    fileCarry.clear();
}

void DataThread::flushFileCarry(const QString& fileCarry)
{
    const int s = fileCarry.indexOf(m_startChar);
    const int e = fileCarry.indexOf(m_endChar);
    const int n = e - s - 1;
    if (s >= 0 && e >= 0 && n >= 1) {
        QString frame = fileCarry.mid(s + 1, n);
        writeFrameFile(frame, m_fileDir);
    }
}

void DataThread::writeFrameFile(QString& frame, const QString& dir)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const QString path = QString("%1/%2.txt").arg(dir, QDateTime::currentDateTime().toString("yyyyMMdd_hhmmss_zzz"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text | QIODevice::Truncate)) {
        Logger::info(QString("[INFO] Could not open file %1 for writing.").arg(path).toStdString());
        return;
    }
    frame.remove('\r');
    frame.remove('\n');
    {
        QTextStream out(&file);
        out << kFramePrefix << frame;
    }
    file.close();
}
