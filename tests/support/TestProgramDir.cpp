#include "TestProgramDir.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>

namespace TestProgramDir {

QString path(const QString& relative)
{
    return QCoreApplication::applicationDirPath() + QLatin1Char('/') + relative;
}

bool writeFile(const QString& relative, const QByteArray& bytes)
{
    const QString target = path(relative);
    if (!QDir().mkpath(QFileInfo(target).absolutePath()))
        return false;
    QSaveFile file(target);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    return file.write(bytes) == bytes.size() && file.commit();
}

bool writeLanguageIni(const QByteArray& langValue)
{
    return writeFile(QStringLiteral("Conf/language.ini"), "[language]\nlang=" + langValue + "\n");
}

bool writeDeviceConfig(const QJsonObject& pages)
{
    return writeFile(QStringLiteral("TCPconfig.json"), QJsonDocument(pages).toJson());
}

QJsonObject clientDevice(int status, quint16 port, const QString& fileDir)
{
    return QJsonObject { { QStringLiteral("Status"), status },
                         { QStringLiteral("TcpType"), 0 },
                         { QStringLiteral("TcpPort"), QString::number(port) },
                         { QStringLiteral("TcpClientIP"), QStringLiteral("127.0.0.1") },
                         { QStringLiteral("FileDir"), fileDir },
                         { QStringLiteral("StartChar"), QStringLiteral("[") },
                         { QStringLiteral("EndChar"), QStringLiteral("]") } };
}

void restore()
{
    QFile::remove(path(QStringLiteral("TCPconfig.json")));
    QDir(path(QStringLiteral("Log"))).removeRecursively();
    writeLanguageIni("1");
}

} // namespace TestProgramDir
