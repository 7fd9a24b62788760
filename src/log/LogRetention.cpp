#include "LogRetention.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

constexpr qint64 kRetentionDays = 3;

// Not every filesystem records a birth time; the last status change is the nearest stand-in.
QDateTime creationTime(const QFileInfo& info)
{
    const QDateTime born = info.birthTime();
    return born.isValid() ? born : info.metadataChangeTime();
}

} // namespace

void purgeOldLogs(const QString& directory)
{
    purgeOldLogs(directory, QDateTime::currentDateTime());
}

void purgeOldLogs(const QString& directory, const QDateTime& now)
{
    const QFileInfoList entries = QDir(directory).entryInfoList({ "*.txt" }, QDir::NoFilter, QDir::NoSort);
    for (const QFileInfo& entry : entries) {
        if (creationTime(entry).daysTo(now) >= kRetentionDays) {
            QFile(entry.filePath()).remove();
        }
    }
}
