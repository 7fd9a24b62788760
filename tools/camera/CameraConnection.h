#pragma once

#include "CameraOptions.h"

#include <QObject>
#include <QPointer>
#include <QTimer>

class QTcpServer;
class QTcpSocket;

// The camera's one TCP connection, as client or server, with the reconnect policy. A server
// serves one peer at a time, as a camera does, and closes newcomers while it has one.
class CameraConnection : public QObject
{
    Q_OBJECT

public:
    CameraConnection(const CameraOptions& options, QObject* parent = nullptr);

    // A server listens now (false when it cannot); a client starts its first attempt.
    bool start(QString* error);

    bool isConnected() const;
    qint64 pendingBytes() const;
    void write(const QByteArray& bytes);

    // Sends what is pending, closes, then emits finished().
    void finish();

signals:
    void connected();
    void lost();
    void drained();
    void failed(const QString& message);
    void finished();

private slots:
    void attemptConnection();
    void onClientConnected();
    void onClientError();
    void onNewPeer();
    void onPeerGone();

private:
    void adopt(QTcpSocket* socket);
    QString peerText() const;

    const CameraOptions& m_options;
    QTcpServer* m_server = nullptr;
    QPointer<QTcpSocket> m_socket;
    bool m_connected = false;
    bool m_finishing = false;
    QTimer m_retryTimer;
    QTimer m_connectTimeout;
    QTimer m_finishTimeout;
};
