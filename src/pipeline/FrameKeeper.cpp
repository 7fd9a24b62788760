#include "FrameKeeper.h"

#include "Logger.h"

#include <QDateTime>
#include <QFile>
#include <QTextCodec>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

const QByteArray kFramePrefix = "The package barcode info is :";

// Gives the file its name only if no other file has it: a reader sees it whole or not at all.
bool renameWithoutReplacing(const QString& from, const QString& to)
{
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    // File systems without the flag: a hard link also fails on a taken name.
    return ::link(source.constData(), target.constData()) == 0 && ::unlink(source.constData()) == 0;
}

} // namespace

FrameKeeper::FrameKeeper(const QString& start, const QString& end, const QString& dir)
    : m_start(start)
    , m_end(end)
    , m_dir(dir)
    , m_decoder(QTextCodec::codecForName("UTF-8")->makeDecoder())
{
}

FrameKeeper::~FrameKeeper() = default;

QString FrameKeeper::feed(const QByteArray& bytes)
{
    const QString text = m_decoder->toUnicode(bytes);
    // Only the new text and the marker's length before it can hold a marker not yet found.
    int from = std::max(0, m_carry.size() - std::max(m_start.size(), m_end.size()) + 1);
    int taken = 0;
    m_carry += text;
    for (;;) {
        if (!m_inFrame) {
            const int start = m_carry.indexOf(m_start, std::max(from, taken));
            if (start < 0) {
                taken = std::max(taken, m_carry.size() - m_start.size() + 1);
                break;
            }
            taken = from = start + m_start.size();
            m_inFrame = true;
        }
        const int end = m_carry.indexOf(m_end, std::max(from, taken));
        if (end < 0) {
            break;
        }
        if (end > taken) {
            write(m_carry.mid(taken, end - taken));
        }
        taken = from = end + m_end.size();
        m_inFrame = false;
    }
    m_carry.remove(0, std::min(taken, m_carry.size()));
    if (m_carry.size() > kCarryLimit) {
        Logger::info(QString("[INFO] Dropped %1 characters of an unfinished frame: no end text within %2 characters.")
                         .arg(m_carry.size())
                         .arg(kCarryLimit)
                         .toStdString());
        m_carry.clear();
        m_inFrame = false;
    }
    return text;
}

void FrameKeeper::write(QString frame)
{
    frame.remove('\r');
    frame.remove('\n');
    const QString stamp = QDateTime::currentDateTime().toString("yyyyMMdd_hhmmss_zzz");
    // Hidden and not "*.txt" while it is written; created as any frame file is, under the umask.
    static std::atomic<unsigned> serial { 0 };
    QFile file(QString("%1/.%2-%3-%4.part").arg(m_dir, stamp).arg(::getpid()).arg(serial++));
    const bool opened = file.open(QIODevice::WriteOnly | QIODevice::NewOnly);
    if (!opened || file.write(kFramePrefix + frame.toUtf8()) < 0 || !file.flush()) {
        Logger::info(QString("[INFO] Could not open file %1/%2.txt for writing.").arg(m_dir, stamp).toStdString());
        if (opened) {
            file.remove();
        }
        return;
    }
    file.close();
    for (int copy = 0;; ++copy) {
        const QString name = QString("%1/%2%3.txt").arg(m_dir, stamp, copy ? QString("_%1").arg(copy) : QString());
        if (renameWithoutReplacing(file.fileName(), name)) {
            return;
        }
        if (errno != EEXIST) {
            Logger::info(QString("[INFO] Could not open file %1 for writing.").arg(name).toStdString());
            file.remove();
            return;
        }
    }
}
