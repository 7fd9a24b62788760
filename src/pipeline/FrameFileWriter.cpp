#include "FrameFileWriter.h"

#include "FrameFileSink.h"
#include "Logger.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

const QByteArray kFramePrefix = FrameFileSink::kPrefix;

// Gives the file its name only if no other file has it: a reader sees it whole or not at all.
bool renameWithoutReplacing(const QByteArray& source, const QByteArray& target)
{
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    // File systems without the flag: a hard link also fails on a taken name.
    return ::link(source.constData(), target.constData()) == 0 && ::unlink(source.constData()) == 0;
}

QByteArray finalName(const QByteArray& dir, const QByteArray& stamp, int copy)
{
    return dir + '/' + stamp + (copy ? '_' + QByteArray::number(copy) : QByteArray()) + ".txt";
}

// The first free name of "<stamp>.txt", "<stamp>_1.txt", ... from copy on; false with errno when
// none is given. copy is left at the next number to try.
bool publish(const QByteArray& dir, const QByteArray& part, const QByteArray& stamp, int& copy)
{
    for (;; ++copy) {
        if (renameWithoutReplacing(part, finalName(dir, stamp, copy))) {
            ++copy;
            return true;
        }
        if (errno != EEXIST) {
            return false;
        }
    }
}

bool writeAll(int fd, const QByteArray& bytes)
{
    for (qint64 done = 0; done < bytes.size();) {
        const ssize_t written = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (written < 0 && errno != EINTR) {
            return false;
        }
        done += std::max<ssize_t>(written, 0);
    }
    return true;
}

// The reasons an operator can act on; the log keeps the English text, the message pane the translation.
const char* reasonText(int error)
{
    switch (error) {
    case ENOSPC:
    case EDQUOT:
        return QT_TRANSLATE_NOOP("FrameFileWriter", "no space left on the disk");
    case ENOENT:
        return QT_TRANSLATE_NOOP("FrameFileWriter", "the directory is gone");
    case EACCES:
    case EPERM:
    case EROFS:
        return QT_TRANSLATE_NOOP("FrameFileWriter", "no permission to write there");
    default:
        return nullptr;
    }
}

QString englishReason(int error)
{
    const char* text = reasonText(error);
    return text ? QString(text) : QString::fromLocal8Bit(std::strerror(error));
}

QString texts(const QStringList& frames)
{
    return "\"" + frames.join("\", \"") + "\"";
}

} // namespace

FrameFileWriter::FrameFileWriter(const QString& dir, Notice notice)
    : m_dir(dir)
    , m_dirName(QFile::encodeName(dir))
    , m_notice(std::move(notice))
    , m_pid(::getpid())
{
}

void FrameFileWriter::recover()
{
    // Ours: ".<stamp>-<pid>-<serial>-<bytes>.part". A running process, this one too, may still be writing its own.
    static const QRegularExpression ours(R"(^\.(\d{8}_\d{6}_\d{3})-(\d+)-\d+-(\d+)\.part$)");
    int recovered = 0;
    int removed = 0;
    for (const QFileInfo& info : QDir(m_dir).entryInfoList({ ".*.part" }, QDir::Files | QDir::Hidden)) {
        const QRegularExpressionMatch match = ours.match(info.fileName());
        const pid_t pid = match.captured(2).toInt();
        if (!match.hasMatch() || ::kill(pid, 0) == 0 || errno == EPERM) {
            continue;
        }
        const QByteArray part = QFile::encodeName(info.filePath());
        if (info.size() == match.captured(3).toLongLong()) {
            int copy = 0;
            recovered += publish(m_dirName, part, match.captured(1).toLatin1(), copy);
        } else {
            removed += ::unlink(part.constData()) == 0;
        }
    }
    if (recovered + removed > 0) {
        Logger::info(QString("[INFO] Unfinished frame files in %1: %2 complete ones recovered, %3 cut ones removed.")
                         .arg(m_dir)
                         .arg(recovered)
                         .arg(removed)
                         .toStdString());
    }
}

void FrameFileWriter::write(const QString& frame, const QDateTime& received)
{
    // Formatting the time costs more than writing a small file: once a millisecond is enough.
    const qint64 ms = received.toMSecsSinceEpoch();
    if (ms != m_stampMs || m_stamp.isEmpty()) {
        m_stampMs = ms;
        m_stamp = FrameFileSink::fileStamp(received).toLatin1();
    }
    Frame next { m_stamp, kFramePrefix + frame.toUtf8() };
    if (m_waiting.empty()) {
        if (store(next)) {
            return;
        }
        stopped(errno);
    }
    hold(std::move(next));
}

void FrameFileWriter::retryIfDue()
{
    if (m_waiting.empty() || Clock::now() < m_nextTry) {
        return;
    }
    if (!m_lost.isEmpty() && Clock::now() - m_firstLost >= std::chrono::seconds(1)) {
        logLost();
    }
    drain(Clock::now() + std::chrono::milliseconds(kRetrySliceMs));
}

std::chrono::milliseconds FrameFileWriter::untilRetry() const
{
    return std::max(std::chrono::milliseconds(0),
                    std::chrono::ceil<std::chrono::milliseconds>(m_nextTry - Clock::now()));
}

void FrameFileWriter::finish()
{
    if (!m_waiting.empty() && !drain(Clock::now() + std::chrono::milliseconds(kFinishMs))) {
        const QString reason = m_error ? englishReason(m_error) : QString("no time left before the stop");
        const int count = int(m_waiting.size());
        while (!m_waiting.empty()) {
            QStringList frames;
            for (; !m_waiting.empty() && frames.size() < kTextsPerLine; m_waiting.pop_front()) {
                frames << QString::fromUtf8(m_waiting.front().content.mid(kFramePrefix.size()));
            }
            Logger::info(QString("[INFO] Could not write %1 frames to %2 before the worker stopped (%3): %4.")
                             .arg(frames.size())
                             .arg(m_dir, reason, texts(frames))
                             .toStdString());
        }
        m_waitingBytes = 0;
        m_notice(tr("%1 frames could not be written to %2 before the device closed; their texts are in the log.")
                     .arg(count)
                     .arg(m_dir));
    }
    if (!m_lost.isEmpty()) {
        logLost();
    }
}

bool FrameFileWriter::store(const Frame& frame)
{
    static std::atomic<unsigned> serial { 0 };
    // Hidden and not "*.txt" while it is written; the length in the name tells a whole file after a crash.
    const QByteArray part = QFile::encodeName(QString("%1/.%2-%3-%4-%5.part")
                                                  .arg(m_dir, QString::fromLatin1(frame.stamp))
                                                  .arg(m_pid)
                                                  .arg(serial++)
                                                  .arg(frame.content.size()));
    const int fd = ::open(part.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0) {
        return false;
    }
    bool stored = writeAll(fd, frame.content);
    int error = errno;
    if (::close(fd) != 0 && stored) {
        stored = false;
        error = errno;
    }
    // Frames of one millisecond take "_1", "_2", ... in turn: each tries on from where the last got a name.
    if (frame.stamp != m_copyStamp) {
        m_copyStamp = frame.stamp;
        m_nextCopy = 0;
    }
    if (stored && publish(m_dirName, part, frame.stamp, m_nextCopy)) {
        return true;
    }
    error = stored ? errno : error;
    ::unlink(part.constData());
    errno = error;
    return false;
}

bool FrameFileWriter::drain(Clock::time_point deadline)
{
    // A save directory that was removed is made again; one that is there costs a stat.
    QDir().mkpath(m_dir);
    while (!m_waiting.empty()) {
        if (!store(m_waiting.front())) {
            m_error = errno;
            m_nextTry = Clock::now() + std::chrono::milliseconds(kRetryMs);
            return false;
        }
        m_waitingBytes -= m_waiting.front().content.size();
        m_waiting.pop_front();
        ++m_written;
        if (!m_waiting.empty() && Clock::now() >= deadline) {
            m_error = 0;
            m_nextTry = Clock::now();
            return false;
        }
    }
    if (!m_lost.isEmpty()) {
        logLost();
    }
    m_error = 0;
    Logger::info(
        QString("[INFO] Frames are written to %1 again; %2 frames waited.").arg(m_dir).arg(m_written).toStdString());
    m_notice(tr("Frames are written to %1 again; the %2 frames that waited are saved.").arg(m_dir).arg(m_written));
    return true;
}

void FrameFileWriter::hold(Frame frame)
{
    if (m_waiting.size() < kWaitingFramesLimit && m_waitingBytes + frame.content.size() <= kWaitingBytesLimit) {
        m_waitingBytes += frame.content.size();
        m_waiting.push_back(std::move(frame));
        return;
    }
    if (!m_toldLoss) {
        m_toldLoss = true;
        m_notice(tr("More frames wait for %1 than memory holds: new frames are lost and their texts go to the log.")
                     .arg(m_dir));
    }
    if (m_lost.isEmpty()) {
        m_firstLost = Clock::now();
    }
    m_lost << QString::fromUtf8(frame.content.mid(kFramePrefix.size()));
    if (m_lost.size() >= kTextsPerLine) {
        logLost();
    }
}

void FrameFileWriter::stopped(int error)
{
    m_error = error;
    m_written = 0;
    m_toldLoss = false;
    m_nextTry = Clock::now() + std::chrono::milliseconds(kRetryMs);
    Logger::info(QString("[INFO] Frames cannot be written to %1: %2. They wait in memory, up to %3 bytes or %4 "
                         "frames, and are written when the disk takes them again.")
                     .arg(m_dir, englishReason(error))
                     .arg(kWaitingBytesLimit)
                     .arg(kWaitingFramesLimit)
                     .toStdString());
    const char* reason = reasonText(error);
    m_notice(tr("Frames cannot be written to %1: %2. They wait in memory and are written as soon as the disk takes "
                "them again.")
                 .arg(m_dir, reason ? tr(reason) : englishReason(error)));
}

void FrameFileWriter::logLost()
{
    Logger::info(QString("[INFO] Lost %1 frames: more than %2 bytes or %3 frames waited for the disk. Their texts: %4.")
                     .arg(m_lost.size())
                     .arg(kWaitingBytesLimit)
                     .arg(kWaitingFramesLimit)
                     .arg(texts(m_lost))
                     .toStdString());
    m_lost.clear();
}
