#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

// The test binary's own directory standing in for the program directory: in-process windows read
// Conf/, Language/ and Skins/ beside the running binary and write TCPconfig.json there.
namespace TestProgramDir {

QString path(const QString& relative);

// Replaces the file, creating its directory; false when it could not be written.
bool writeFile(const QString& relative, const QByteArray& bytes);

// The language the program starts in, as the ini beside it says.
bool writeLanguageIni(const QByteArray& langValue);

// TCPconfig.json with one member per page.
bool writeDeviceConfig(const QJsonObject& pages);

// One page's member of TCPconfig.json: a client device at 127.0.0.1.
QJsonObject clientDevice(int status, quint16 port, const QString& fileDir);

// Removes what a run leaves beside the program and restores the shipped language default.
void restore();

} // namespace TestProgramDir
