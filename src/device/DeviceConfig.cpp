#include "DeviceConfig.h"

#include "Logger.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

namespace DeviceConfig {

ReadResult read(const QString& path, QMap<QString, TCPSettings>& devices)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        Logger::info("[Error]: Failed to open JSON file for reading.");
        return ReadResult::Unreadable;
    }
    const QString text = QString::fromUtf8(file.readAll());
    file.close();

    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
    if (document.isNull() || !document.isObject()) {
        Logger::info("[Error] Invalid JSON format.");
        return ReadResult::Invalid;
    }
    const QJsonObject root = document.object();
    for (const QString& key : root.keys()) {
        const QJsonObject device = root.value(key).toObject();
        TCPSettings settings;
        settings.status = device.value(QStringLiteral("Status")).toInt();
        settings.tcpType = device.value(QStringLiteral("TcpType")).toInt();
        settings.tcpPort = device.value(QStringLiteral("TcpPort")).toString();
        settings.tcpClientIP = device.value(QStringLiteral("TcpClientIP")).toString();
        settings.fileDir = device.value(QStringLiteral("FileDir")).toString();
        settings.startChar = device.value(QStringLiteral("StartChar")).toString();
        settings.endChar = device.value(QStringLiteral("EndChar")).toString();
        settings.keepEveryFrame = device.value(QStringLiteral("KeepEveryFrame")).toInt() == 1;
        settings.keyOutput = device.value(QStringLiteral("KeyOutput")).toInt() == 1;
        const int keySpeed = device.value(QStringLiteral("KeySpeed")).toInt(TCPSettings::kDefaultKeySpeed);
        settings.keySpeed = keySpeed >= 0 && keySpeed <= 4 ? keySpeed : TCPSettings::kDefaultKeySpeed;
        settings.allowedCamera = device.value(QStringLiteral("AllowedCamera")).toString();
        settings.waitForCamera = device.value(QStringLiteral("WaitForCamera")).toInt() == 1;
        devices.insert(key, settings);
    }
    return ReadResult::Read;
}

bool write(const QString& path, const QList<QPair<QString, TCPSettings>>& devices)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        Logger::info("[Error]: Failed to open JSON file for writing.");
        return false;
    }
    QJsonObject root;
    for (const auto& named : devices) {
        const TCPSettings& settings = named.second;
        QJsonObject device;
        device.insert(QStringLiteral("Status"), settings.status);
        device.insert(QStringLiteral("TcpType"), settings.tcpType);
        device.insert(QStringLiteral("TcpPort"), settings.tcpPort);
        device.insert(QStringLiteral("TcpClientIP"), settings.tcpClientIP);
        device.insert(QStringLiteral("FileDir"), settings.fileDir);
        device.insert(QStringLiteral("StartChar"), settings.startChar);
        device.insert(QStringLiteral("EndChar"), settings.endChar);
        // The options go in only when chosen, so a user who chooses none keeps the file as it was.
        if (settings.keepEveryFrame) {
            device.insert(QStringLiteral("KeepEveryFrame"), 1);
        }
        if (settings.keyOutput) {
            device.insert(QStringLiteral("KeyOutput"), 1);
        }
        if (settings.keySpeed != TCPSettings::kDefaultKeySpeed) {
            device.insert(QStringLiteral("KeySpeed"), settings.keySpeed);
        }
        if (!settings.allowedCamera.isEmpty()) {
            device.insert(QStringLiteral("AllowedCamera"), settings.allowedCamera);
        }
        if (settings.waitForCamera) {
            device.insert(QStringLiteral("WaitForCamera"), 1);
        }
        root.insert(named.first, device);
    }
    file.write(QJsonDocument(root).toJson());
    file.close();
    return true;
}

} // namespace DeviceConfig
