#pragma once

#include "TCPSettings.h"

#include <QObject>
#include <QString>

class DataThread;
class NetTCPServer;
class NetTcpClient;
class QTimer;

// One device without its page: the stored settings, the two endpoints and the worker, and the
// sequence that opens and closes them: endpoint first, then worker; a worker that keeps every
// frame starts first, so that nothing a camera sends at once is missed. The page and the
// headless service both drive it.
class Device : public QObject
{
    Q_OBJECT

public:
    // What the operator gave for one open: the address fields and the frame markers as they stand.
    struct Fields
    {
        bool client = true;
        QString ip;
        QString port;
        QString startChar;
        QString endChar;
        bool keepEveryFrame = false;
        bool keyOutput = false;
        int keySpeed = TCPSettings::kDefaultKeySpeed;
        QString allowedCamera {};
        bool waitForCamera = false;
    };

    // The fields as stored, with the address the role opens on.
    static Fields storedFields(const TCPSettings& settings, const QString& ip);

    explicit Device(QObject* parent = nullptr);
    ~Device() override;

    const TCPSettings& settings() const { return m_settings; }
    TCPSettings& settings() { return m_settings; }

    // The untranslated text (context "TCPSettingWidget") of the first check that fails, or null.
    const char* checkFields(const Fields& fields) const;

    // Opens the endpoint of the role and starts the worker. A failed open closes the endpoint
    // again, stops the worker and logs the stored address.
    bool open(const Fields& fields);
    // Closes the endpoint of the role and stops the worker; also ends a wait for the camera.
    void close(bool client);
    // Closes by the stored role, whether open or not.
    void closeDevice();

    // Opens a device stored open; a client that is to wait for its camera waits when it does not answer.
    bool openAtStart(const Fields& fields);

    // Opens a client device whose camera does not answer yet: the worker runs and the endpoint
    // keeps trying until the camera answers. Says so once.
    bool waitForCamera(const Fields& fields);
    // Open, or waiting for the camera.
    bool isOpen() const { return m_open; }
    bool isWaiting() const { return m_waiting; }
    // The address the endpoint was last opened on, or has moved to.
    const QString& address() const { return m_address; }

    // The address a server device listens on: the machine's network address.
    static QString localIPAddress();

signals:
    void message(QString text);
    // Received text, up to its first zero byte; emitted on a network thread.
    void received(QString text);
    // A device that waited for its camera is open now.
    void openedAfterWait();
    // A server opened on loopback for want of a network address listens on this one now.
    void serverMoved(QString ip);

private:
    void startWorker(const Fields& fields);
    void stopWorker();
    void moveToNetworkAddress();
    void onDeviceData(const char* data, int len);
    static int deviceDataCallback(const char* data, int len, void* context);

    NetTcpClient* m_client;
    NetTCPServer* m_server;
    DataThread* m_dataThread;
    QTimer* m_addressWatch;
    TCPSettings m_settings;
    QString m_address;
    QString m_port;
    // The network address a move failed on, so that the failure is told once.
    QString m_failedMove;
    bool m_open = false;
    bool m_waiting = false;
};
