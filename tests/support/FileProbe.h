#pragma once

#include <QDir>
#include <QFile>

// Read-only looks at what the program left on disk.
namespace FileProbe {

// The whole file, or an empty array when it cannot be read.
inline QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Names of the "*.txt" files in dir, sorted by name (which sorts frame files by time).
inline QStringList textFiles(const QString& dir)
{
    return QDir(dir).entryList({ "*.txt" }, QDir::Files, QDir::Name);
}

// The contents of every "*.txt" file in dir, in name order.
inline QList<QByteArray> textFileContents(const QString& dir)
{
    QList<QByteArray> contents;
    for (const QString& name : textFiles(dir))
        contents.append(readAll(dir + "/" + name));
    return contents;
}

} // namespace FileProbe
