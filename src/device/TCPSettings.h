#pragma once

#include <QString>

// The stored settings of one device.
struct TCPSettings
{
    int status = 0;
    int tcpType = 0;
    QString tcpPort;
    QString tcpClientIP;
    QString fileDir;
    QString startChar;
    QString endChar;
};
