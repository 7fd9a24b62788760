#pragma once

#include "TCPSettings.h"

#include <QObject>
#include <QString>

class DataThread;
class Endpoint;
class QTimer;

// One device without its page: the stored settings, the endpoint of its role and the worker, and the
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
        // The stored TcpType: an index of EndpointFactory.
        int role = 0;
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
    // Takes the stored settings, and the endpoint of their role.
    void setSettings(const TCPSettings& settings);
    // Takes another role while closed; the endpoint of the old one goes.
    void setRole(int role);
    // The endpoint of the role, or null for a role there is none of.
    const Endpoint* endpoint() const { return m_endpoint; }
    // Where the role opens: the machine's address for one that listens on it, else the stored one.
    QString openAddress() const;

    // The untranslated text (context "TCPSettingWidget") of the first check that fails, or null.
    const char* checkFields(const Fields& fields) const;

    // Opens the endpoint of the fields' role and starts the worker. A failed open closes the
    // endpoint again, stops the worker and logs the stored address.
    bool open(const Fields& fields);
    // Closes the endpoint and stops the worker; also ends a wait for the camera.
    void close();

    // Opens a device stored open; one that is to wait for its camera waits when it does not answer.
    bool openAtStart(const Fields& fields);

    // Opens a device whose camera does not answer yet, when its endpoint can wait: the worker runs
    // and the endpoint keeps trying until the camera answers. Says so once.
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
    // Makes the endpoint of the role unless it is held already.
    void followRole(int role);
    void startWorker(const Fields& fields);
    void stopWorker();
    void moveToNetworkAddress();
    void onDeviceData(const char* data, int len);
    static int deviceDataCallback(const char* data, int len, void* context);

    Endpoint* m_endpoint = nullptr;
    // The role m_endpoint was made for; none yet.
    int m_role = -1;
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
