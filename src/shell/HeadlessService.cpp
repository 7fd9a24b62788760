#include "HeadlessService.h"

#include "Device.h"
#include "DeviceSet.h"

#include <QCoreApplication>
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
    int opened = 0;
    for (Device* device : m_devices->storedOpen()) {
        openDevice(device);
        if (device->isOpen()) {
            ++opened;
        } else {
            // A device that did not open has said why; the closing it does later is no news.
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
