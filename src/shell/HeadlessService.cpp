#include "HeadlessService.h"

#include "Device.h"
#include "DeviceConfig.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QMap>
#include <cstdio>

namespace {

// The pages of the window, by the names their settings are stored under.
const char* const kDeviceNames[] = { "page_Device1", "page_Device2" };

} // namespace

HeadlessService::HeadlessService(QObject* parent)
    : QObject(parent)
{
}

HeadlessService::~HeadlessService()
{
    stop();
}

int HeadlessService::start(const QString& configPath)
{
    QMap<QString, TCPSettings> stored;
    if (DeviceConfig::read(configPath, stored) != DeviceConfig::ReadResult::Read) {
        return -1;
    }
    for (const char* name : kDeviceNames) {
        const auto settings = stored.constFind(QString::fromLatin1(name));
        if (settings == stored.constEnd() || settings->status != 1) {
            continue;
        }
        auto* device = new Device(this);
        device->setObjectName(QString::fromLatin1(name));
        device->setSettings(*settings);
        openDevice(device);
        if (device->isOpen()) {
            m_devices.append(device);
        } else {
            delete device;
        }
    }
    return m_devices.size();
}

void HeadlessService::stop()
{
    qDeleteAll(m_devices);
    m_devices.clear();
}

void HeadlessService::openDevice(Device* device)
{
    // As on the page: a server listens on the machine's address of the moment, not the stored one.
    const QString ip = device->openAddress();
    Device::Fields fields = Device::storedFields(device->settings(), ip);
    // Nobody is there to press the button once the camera is up, so a device always waits for it.
    fields.waitForCamera = true;
    // A server that moves to the network address once there is one prints its new address.
    connect(device, &Device::message, this, [this, device](const QString& text) {
        print(device, device->address(), text);
    });

    if (const char* problem = device->checkFields(fields)) {
        print(device, ip, QCoreApplication::translate("TCPSettingWidget", problem));
        return;
    }
    device->openAtStart(fields);
}

void HeadlessService::print(const Device* device, const QString& ip, const QString& text)
{
    const QString line = QStringLiteral("[%1] %2 %3:%4 : %5\n")
                             .arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")),
                                  device->objectName(),
                                  ip,
                                  device->settings().tcpPort,
                                  text);
    std::fputs(line.toLocal8Bit().constData(), stdout);
    std::fflush(stdout);
}
