#pragma once

#include <QtCore>

// In-process windows take the test binary's directory for the program's: they read Conf/, Language/
// and Skins/ beside it and write TCPconfig.json there. Whole-program tests use a scratch copy.
namespace TestProgramDir {

// Replaces the file, creating its directory; false when it could not be written.
inline bool writeFile(const QString& file, const QByteArray& bytes)
{
    QFile out(file);
    return QDir().mkpath(QFileInfo(file).path()) && out.open(QIODevice::WriteOnly) && out.write(bytes) == bytes.size();
}

// One page's member of TCPconfig.json: a client device at 127.0.0.1 whose frames run from [ to ].
inline QJsonObject clientDevice(int status, quint16 port, const QString& fileDir)
{
    const QString text = R"({"Status": %1, "TcpType": 0, "TcpPort": "%2", "TcpClientIP": "127.0.0.1", )"
                         R"("FileDir": "%3", "StartChar": "[", "EndChar": "]"})";
    return QJsonDocument::fromJson(text.arg(status).arg(port).arg(fileDir).toUtf8()).object();
}

} // namespace TestProgramDir
