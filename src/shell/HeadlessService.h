#pragma once

#include <QObject>
#include <QString>

class Device;
class DeviceSet;

// The devices without the window: opens every device the set stores open, and prints what the
// message pane would show to standard output. Never writes the configuration.
class HeadlessService : public QObject
{
    Q_OBJECT

public:
    explicit HeadlessService(QObject* parent = nullptr);
    ~HeadlessService() override;

    // The number of devices opened or waiting for their camera; -1 when the file cannot be used.
    int start(const QString& configPath);
    void stop();

private:
    void print(const Device* device, const QString& ip, const QString& text);

    DeviceSet* m_devices = nullptr;
};
