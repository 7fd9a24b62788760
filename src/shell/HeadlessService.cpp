#include "HeadlessService.h"

#include "Device.h"
#include "DeviceSet.h"

#include <QDateTime>
#include <cstdio>

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
    stop();
    m_devices = new DeviceSet(configPath, this);
    if (m_devices->read() != DeviceConfig::ReadResult::Read) {
        return -1;
    }
    const QList<Device*> stored = m_devices->storedOpen();
    for (Device* device : stored) {
        // A server that moves to the network address once there is one prints its new address.
        connect(device, &Device::message, this, [this, device](const QString& text) {
            print(device, device->address(), text);
        });
    }
    connect(m_devices, &DeviceSet::refused, this, [this](Device* device, const QString& ip, const QString& problem) {
        print(device, ip, problem);
    });
    const int opened = m_devices->openStored();
    for (Device* device : stored) {
        // A device that did not open has said why; the closing it does later is no news.
        if (!device->isOpen()) {
            disconnect(device, nullptr, this, nullptr);
        }
    }
    return opened;
}

void HeadlessService::stop()
{
    delete m_devices;
    m_devices = nullptr;
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
