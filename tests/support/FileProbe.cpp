#include "FileProbe.h"

#include <QDir>
#include <QFile>

namespace FileProbe {

QStringList textFiles(const QString& dir)
{
    return QDir(dir).entryList({"*.txt"}, QDir::Files, QDir::Name);
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return file.readAll();
}

QList<QByteArray> textFileContents(const QString& dir)
{
    QList<QByteArray> contents;
    for (const QString& name : textFiles(dir)) {
        contents.append(readAll(dir + "/" + name));
    }
    return contents;
}

} // namespace FileProbe
