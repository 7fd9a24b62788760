#pragma once

#include "DeviceConfig.h"

#include <QList>
#include <QObject>
#include <QSet>
#include <QString>

class Device;

// Every device of the program by its stable name (page_Device1, page_Device2, ...), as TCPconfig.json
// stores them. The first two always exist, so a file that stores neither still gives the two pages.
// The window and the headless service are views of it.
class DeviceSet : public QObject
{
    Q_OBJECT

public:
    // Device1 and Device2: there from the start, never removed.
    static constexpr int kFixedDevices = 2;

    explicit DeviceSet(const QString& configPath, QObject* parent = nullptr);
    ~DeviceSet() override;

    // Takes the devices the file stores; members of other names are left out, as the window always did.
    DeviceConfig::ReadResult read();
    // Writes every device's settings, and nothing else.
    bool write() const;

    // In the order of their numbers.
    const QList<Device*>& devices() const { return m_devices; }
    // Whether the file gave the device's settings.
    bool isStored(const Device* device) const { return m_stored.contains(device); }
    // The devices the file stores open, in order.
    QList<Device*> storedOpen() const;
    // Opens them with nobody there to press a button: a client whose camera does not answer yet waits
    // for it. Gives the number open or waiting; one that fails a check is refused.
    int openStored();

    // A new closed device numbered after the last one.
    Device* add();
    // Removes and deletes a device that is neither fixed nor open; false when it may not go.
    bool remove(Device* device);

    static QString nameOf(int number);
    // The number of a device's name, or 0 for a name the set does not give.
    static int numberOf(const QString& name);

signals:
    // A device stored open whose fields fail a check, with the address it would open on.
    void refused(Device* device, const QString& ip, const QString& problem);

private:
    Device* insert(int number);

    QString m_configPath;
    QList<Device*> m_devices;
    QSet<const Device*> m_stored;
};
