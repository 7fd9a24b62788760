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
#include <future>
#include <unistd.h>

namespace {

const QByteArray kFramePrefix = FrameFileSink::kPrefix;

// The save directory held open while frames are stored: names relative to it skip walking its
// path twice for every file.
class OpenDirectory
{
public:
    explicit OpenDirectory(const QByteArray& path)
        : m_fd(::open(path.constData(), O_PATH | O_DIRECTORY | O_CLOEXEC))
    {
    }
    ~OpenDirectory()
    {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }
    OpenDirectory(const OpenDirectory&) = delete;
    OpenDirectory& operator=(const OpenDirectory&) = delete;

    int fd() const { return m_fd; }

private:
    const int m_fd;
};

// Gives the file its name only if no other file has it: a reader sees it whole or not at all.
bool renameWithoutReplacing(int dir, const QByteArray& source, const QByteArray& target)
{
    if (::renameat2(dir, source.constData(), dir, target.constData(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    // File systems without the flag: a hard link also fails on a taken name.
    return ::linkat(dir, source.constData(), dir, target.constData(), 0) == 0
        && ::unlinkat(dir, source.constData(), 0) == 0;
}

QByteArray finalName(const QByteArray& stamp, int copy)
{
    return stamp + (copy ? '_' + QByteArray::number(copy) : QByteArray()) + ".txt";
}

// The first free name of "<stamp>.txt", "<stamp>_1.txt", ... from copy on; false with errno when
// none is given. copy is left at the next number to try.
bool publish(int dir, const QByteArray& part, const QByteArray& stamp, int& copy)
{
    for (;; ++copy) {
        if (renameWithoutReplacing(dir, part, finalName(stamp, copy))) {
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
    const OpenDirectory dir(m_dirName);
    for (const QFileInfo& info : QDir(m_dir).entryInfoList({ ".*.part" }, QDir::Files | QDir::Hidden)) {
        const QRegularExpressionMatch match = ours.match(info.fileName());
        const pid_t pid = match.captured(2).toInt();
        if (!match.hasMatch() || ::kill(pid, 0) == 0 || errno == EPERM) {
            continue;
        }
        const QByteArray part = QFile::encodeName(info.fileName());
        if (info.size() == match.captured(3).toLongLong()) {
            int copy = 0;
            recovered += publish(dir.fd(), part, match.captured(1).toLatin1(), copy);
        } else {
            removed += ::unlinkat(dir.fd(), part.constData(), 0) == 0;
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

void FrameFileWriter::write(const std::vector<FrameSink::Frame>& frames)
{
    std::vector<Frame> batch;
    batch.reserve(frames.size());
    for (const FrameSink::Frame& frame : frames) {
        // Formatting the time costs more than writing a small file: once a millisecond is enough.
        const qint64 ms = frame.received.toMSecsSinceEpoch();
        if (ms != m_stampMs || m_stamp.isEmpty()) {
            m_stampMs = ms;
            m_stamp = FrameFileSink::fileStamp(frame.received).toLatin1();
        }
        QByteArray content = kFramePrefix + frame.text.toUtf8();
        content.replace('\r', QByteArray()).replace('\n', QByteArray());
        batch.push_back({ m_stamp, std::move(content) });
    }
    if (m_waiting.empty()) {
        storeBatch(batch);
    }
    for (Frame& frame : batch) {
        hold(std::move(frame));
    }
}

void FrameFileWriter::storeBatch(std::vector<Frame>& frames)
{
    const size_t split = frames.size() >= kSplitFrames ? frames.size() / 2 : frames.size();
    // A millisecond cut in two: the second thread numbers its copies on from where the first's end.
    Copies later;
    if (split < frames.size()) {
        later.stamp = frames[split].stamp;
        later.next = m_copies.stamp == later.stamp ? m_copies.next : 0;
        for (size_t i = split; i > 0 && frames[i - 1].stamp == later.stamp; --i) {
            ++later.next;
        }
    }
    const OpenDirectory dir(m_dirName);
    if (dir.fd() < 0) {
        stopped(errno);
        return;
    }
    std::future<Stored> second;
    if (split < frames.size()) {
        second
            = std::async(std::launch::async, [&] { return storeRun(dir.fd(), frames, split, frames.size(), later); });
    }
    const Stored first = storeRun(dir.fd(), frames, 0, split, m_copies);
    const Stored rest = second.valid() ? second.get() : Stored { frames.size(), 0 };
    if (first.end == split && rest.end == frames.size()) {
        if (split < frames.size()) {
            m_copies = later;
        }
        frames.clear();
        return;
    }
    stopped(first.end < split ? first.error : rest.error);
    // What is left waits in order: the first part's failures, then the second's.
    const auto at = [&frames](size_t index) { return frames.begin() + std::ptrdiff_t(index); };
    frames.erase(at(split), at(rest.end));
    frames.erase(at(0), at(first.end));
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

FrameFileWriter::Stored
FrameFileWriter::storeRun(int dir, const std::vector<Frame>& frames, size_t from, size_t to, Copies& copies) const
{
    for (size_t i = from; i < to; ++i) {
        if (!store(dir, frames[i], copies)) {
            return { i, errno };
        }
    }
    return { to, 0 };
}

bool FrameFileWriter::store(int dir, const Frame& frame, Copies& copies) const
{
    static std::atomic<unsigned> serial { 0 };
    // Hidden and not "*.txt" while it is written; the length in the name tells a whole file after a crash.
    const QByteArray part = '.' + frame.stamp + '-' + QByteArray::number(m_pid) + '-' + QByteArray::number(serial++)
        + '-' + QByteArray::number(frame.content.size()) + ".part";
    const int fd = ::openat(dir, part.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
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
    if (frame.stamp != copies.stamp) {
        copies.stamp = frame.stamp;
        copies.next = 0;
    }
    if (stored && publish(dir, part, frame.stamp, copies.next)) {
        return true;
    }
    error = stored ? errno : error;
    ::unlinkat(dir, part.constData(), 0);
    errno = error;
    return false;
}

bool FrameFileWriter::drain(Clock::time_point deadline)
{
    // A save directory that was removed is made again; one that is there costs a stat.
    QDir().mkpath(m_dir);
    const OpenDirectory dir(m_dirName);
    while (!m_waiting.empty()) {
        // A directory that could not be opened keeps the open's errno as the reason.
        if (dir.fd() < 0 || !store(dir.fd(), m_waiting.front(), m_copies)) {
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
