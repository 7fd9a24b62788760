#include "DeviceSet.h"

#include "Device.h"

#include <QCoreApplication>
#include <QMap>
#include <algorithm>

namespace {

const QString kNamePrefix = QStringLiteral("page_Device");

} // namespace

DeviceSet::DeviceSet(const QString& configPath, QObject* parent)
    : QObject(parent)
    , m_configPath(configPath)
{
    for (int number = 1; number <= kFixedDevices; ++number) {
        insert(number);
    }
}

DeviceSet::~DeviceSet()
{
    // Closed before the members go, so that no device outlives the list it is in.
    qDeleteAll(m_devices);
}

DeviceConfig::ReadResult DeviceSet::read()
{
    QMap<QString, TCPSettings> stored;
    const DeviceConfig::ReadResult result = DeviceConfig::read(m_configPath, stored);
    for (auto settings = stored.cbegin(); settings != stored.cend(); ++settings) {
        const int number = numberOf(settings.key());
        if (number == 0) {
            continue;
        }
        const auto found = std::find_if(m_devices.cbegin(), m_devices.cend(), [&settings](const Device* device) {
            return device->objectName() == settings.key();
        });
        Device* device = found != m_devices.cend() ? *found : insert(number);
        device->setSettings(settings.value());
        m_stored.insert(device);
    }
    return result;
}

bool DeviceSet::write() const
{
    QList<QPair<QString, TCPSettings>> devices;
    for (const Device* device : m_devices) {
        devices.append({ device->objectName(), device->settings() });
    }
    return DeviceConfig::write(m_configPath, devices);
}

QList<Device*> DeviceSet::storedOpen() const
{
    QList<Device*> open;
    for (Device* device : m_devices) {
        if (isStored(device) && device->settings().status == 1) {
            open.append(device);
        }
    }
    return open;
}

int DeviceSet::openStored()
{
    int opened = 0;
    for (Device* device : storedOpen()) {
        // As on the page: a server listens on the machine's address of the moment, not the stored one.
        const QString ip = device->openAddress();
        Device::Fields fields = Device::storedFields(device->settings(), ip);
        fields.waitForCamera = true;
        if (const char* problem = device->checkFields(fields)) {
            emit refused(device, ip, QCoreApplication::translate("TCPSettingWidget", problem));
            continue;
        }
        device->openAtStart(fields);
        if (device->isOpen()) {
            ++opened;
        }
    }
    return opened;
}

Device* DeviceSet::add()
{
    return insert(numberOf(m_devices.last()->objectName()) + 1);
}

bool DeviceSet::remove(Device* device)
{
    if (numberOf(device->objectName()) <= kFixedDevices || device->isOpen() || !m_devices.removeOne(device)) {
        return false;
    }
    m_stored.remove(device);
    delete device;
    return true;
}

QString DeviceSet::nameOf(int number)
{
    return kNamePrefix + QString::number(number);
}

int DeviceSet::numberOf(const QString& name)
{
    if (!name.startsWith(kNamePrefix)) {
        return 0;
    }
    const int number = name.mid(kNamePrefix.size()).toInt();
    // Only the one spelling: "page_Device01" or "page_Device+1" would be a second name for a device.
    return number > 0 && nameOf(number) == name ? number : 0;
}

Device* DeviceSet::insert(int number)
{
    auto* device = new Device(this);
    device->setObjectName(nameOf(number));
    const auto after = std::find_if(m_devices.begin(), m_devices.end(), [number](const Device* other) {
        return numberOf(other->objectName()) > number;
    });
    m_devices.insert(after, device);
    return device;
}
