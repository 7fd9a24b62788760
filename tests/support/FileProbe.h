#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// Read-only looks at what the program left on disk.
namespace FileProbe {

// Names of the "*.txt" files in dir, sorted by name (which sorts frame files by time).
QStringList textFiles(const QString& dir);

// The whole file, or an empty array when it cannot be read.
QByteArray readAll(const QString& path);

// The contents of every "*.txt" file in dir, in name order.
QList<QByteArray> textFileContents(const QString& dir);

} // namespace FileProbe
