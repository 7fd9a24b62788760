// TCPconfig.json as the program reads it, whatever the file holds: a device opens only on a
// "Status" of the number 1, an option is on only when it is the number 1, the typing speed stays
// one of its five steps, and what was read is written back and read again unchanged.
#include "DeviceConfig.h"
#include "Logger.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <cstdlib>

namespace {

QTemporaryDir* g_dir = nullptr;

bool isOne(const QJsonValue& value)
{
    return value.isDouble() && value.toDouble() == 1.0;
}

bool same(const TCPSettings& a, const TCPSettings& b)
{
    return a.status == b.status && a.tcpType == b.tcpType && a.tcpPort == b.tcpPort && a.tcpClientIP == b.tcpClientIP
        && a.fileDir == b.fileDir && a.startChar == b.startChar && a.endChar == b.endChar
        && a.keepEveryFrame == b.keepEveryFrame && a.keyOutput == b.keyOutput && a.keySpeed == b.keySpeed
        && a.allowedCamera == b.allowedCamera;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    new QCoreApplication(*argc, *argv);
    Logger::setLevel(LOG_FATAL);
    g_dir = new QTemporaryDir;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString path = g_dir->filePath("TCPconfig.json");
    const QByteArray bytes(reinterpret_cast<const char*>(data), int(size));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
        std::abort();
    }
    file.close();
    QMap<QString, TCPSettings> read;
    if (DeviceConfig::read(path, read) != DeviceConfig::ReadResult::Read) {
        return 0;
    }
    const QJsonObject root = QJsonDocument::fromJson(QString::fromUtf8(bytes).toUtf8()).object();
    QList<QPair<QString, TCPSettings>> devices;
    for (auto device = read.cbegin(); device != read.cend(); ++device) {
        const QJsonObject stored = root.value(device.key()).toObject();
        if ((device->status == 1 && !isOne(stored.value("Status")))
            || (device->keepEveryFrame && !isOne(stored.value("KeepEveryFrame")))
            || (device->keyOutput && !isOne(stored.value("KeyOutput"))) || device->keySpeed < 0 || device->keySpeed > 4) {
            std::abort();
        }
        devices.append({ device.key(), device.value() });
    }
    QMap<QString, TCPSettings> again;
    if (!DeviceConfig::write(path, devices) || DeviceConfig::read(path, again) != DeviceConfig::ReadResult::Read
        || again.keys() != read.keys()) {
        std::abort();
    }
    for (auto device = read.cbegin(); device != read.cend(); ++device) {
        if (!same(device.value(), again.value(device.key()))) {
            std::abort();
        }
    }
    return 0;
}
