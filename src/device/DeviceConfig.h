#pragma once

#include "TCPSettings.h"

#include <QList>
#include <QMap>
#include <QPair>
#include <QString>

// TCPconfig.json: one object per device page, keyed by the page's name.
namespace DeviceConfig {

enum class ReadResult
{
    Read,
    Unreadable,
    Invalid
};

// Fills devices by page name; a failure is logged with the line the operator knows.
ReadResult read(const QString& path, QMap<QString, TCPSettings>& devices);
bool write(const QString& path, const QList<QPair<QString, TCPSettings>>& devices);

} // namespace DeviceConfig
