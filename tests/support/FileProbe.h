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

// Names of the "*.txt" files in dir, sorted by time: by name, with a name's "_N" copy number as a number.
inline QStringList textFiles(const QString& dir)
{
    QStringList names = QDir(dir).entryList({ "*.txt" }, QDir::Files);
    const auto key = [](const QString& name) {
        return name.section('_', 0, 2).section('.', 0, 0) + name.section('_', 3).section('.', 0, 0).rightJustified(9);
    };
    std::sort(names.begin(), names.end(), [&key](const QString& a, const QString& b) { return key(a) < key(b); });
    return names;
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
