#pragma once

#include <QDateTime>
#include <QString>

// Removes the "*.txt" files of directory that were created three or more midnights ago.
void purgeOldLogs(const QString& directory);

// The same, measured against the given moment instead of the current time.
void purgeOldLogs(const QString& directory, const QDateTime& now);
