#pragma once

#include "TCPSettings.h"

#include <QList>
#include <QString>
#include <QStringList>

class TCPSettingWidget;

// Works a device page the way an operator does, and reads back the frames it stored.
namespace DevicePageDriver {

constexpr int kFrameTimeoutMs = 20000;

TCPSettings clientSettings(quint16 port, const QString& frameDir);

// Opens a server device on loopback: role first, then the address field, then the button, as an
// operator on a one-machine setup does.
void openLoopbackServer(TCPSettingWidget& page, quint16 port, const QString& frameDir);

QString buttonText(TCPSettingWidget& page);

// The frames stored in dir, without the file prefix; a file that is not prefix + frame is kept
// whole, so a comparison shows it.
QStringList storedFrames(const QString& dir);

// The frame texts among frames that begin with prefix, numbered by the six digits behind it.
QList<int> frameNumbers(const QStringList& frames, const QString& prefix);

} // namespace DevicePageDriver
