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
    // Chosen per device; off, these leave the device as it always was.
    bool keepEveryFrame = false;
    bool keyOutput = false;
    int keySpeed = kDefaultKeySpeed;
    QString allowedCamera {};
    // A client stored open whose camera does not answer at start keeps trying instead of staying closed.
    bool waitForCamera = false;

    static constexpr int kDefaultKeySpeed = 2;
};
