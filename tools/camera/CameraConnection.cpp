#include "CameraConnection.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <cstdio>

namespace {

constexpr int kConnectTimeoutMs = 3000;
constexpr int kFinishTimeoutMs = 5000;

void report(const QString& text)
{
    std::fprintf(stderr, "tapwright-camera: %s\n", qPrintable(text));
}

} // namespace

CameraConnection::CameraConnection(const CameraOptions& options, QObject* parent)
    : QObject(parent)
    , m_options(options)
{
    m_retryTimer.setSingleShot(true);
    m_retryTimer.setInterval(options.intervalMs);
    connect(&m_retryTimer, &QTimer::timeout, this, &CameraConnection::attemptConnection);

    m_connectTimeout.setSingleShot(true);
    m_connectTimeout.setInterval(kConnectTimeoutMs);
    connect(&m_connectTimeout, &QTimer::timeout, this, [this] {
        if (m_socket) {
            m_socket->disconnect(this);
            m_socket->abort();
        }
        report(QStringLiteral("no answer from %1 within %2 ms").arg(peerText()).arg(kConnectTimeoutMs));
        onClientError();
    });

    // A peer that stops reading must not keep the camera from ending.
    m_finishTimeout.setSingleShot(true);
    m_finishTimeout.setInterval(kFinishTimeoutMs);
    connect(&m_finishTimeout, &QTimer::timeout, this, [this] {
        if (m_socket) {
            m_socket->abort();
        }
        emit finished();
    });
}

bool CameraConnection::start(QString* error)
{
    if (m_options.role == CameraOptions::Role::Client) {
        attemptConnection();
        return true;
    }
    m_server = new QTcpServer(this);
    if (!m_server->listen(m_options.host, m_options.port)) {
        *error = QStringLiteral("cannot listen on %1: %2").arg(peerText(), m_server->errorString());
        return false;
    }
    connect(m_server, &QTcpServer::newConnection, this, &CameraConnection::onNewPeer);
    report(QStringLiteral("listening on %1:%2").arg(m_options.host.toString()).arg(m_server->serverPort()));
    return true;
}

bool CameraConnection::isConnected() const
{
    return m_connected;
}

qint64 CameraConnection::pendingBytes() const
{
    return m_socket ? m_socket->bytesToWrite() : 0;
}

void CameraConnection::write(const QByteArray& bytes)
{
    m_socket->write(bytes);
    m_socket->flush();
}

void CameraConnection::finish()
{
    m_finishing = true;
    m_retryTimer.stop();
    if (m_server) {
        m_server->close();
    }
    if (!m_connected) {
        QTimer::singleShot(0, this, &CameraConnection::finished);
        return;
    }
    m_finishTimeout.start();
    m_socket->disconnectFromHost();
}

void CameraConnection::attemptConnection()
{
    if (m_socket) {
        m_socket->deleteLater();
    }
    auto* socket = new QTcpSocket(this);
    m_socket = socket;
    connect(socket, &QTcpSocket::connected, this, &CameraConnection::onClientConnected);
    connect(socket, &QTcpSocket::errorOccurred, this, [this, socket] {
        if (socket == m_socket && !m_connected) {
            m_connectTimeout.stop();
            report(QStringLiteral("cannot connect to %1: %2").arg(peerText(), socket->errorString()));
            onClientError();
        }
    });
    connect(socket, &QTcpSocket::disconnected, this, &CameraConnection::onPeerGone);
    m_connectTimeout.start();
    socket->connectToHost(m_options.host, m_options.port);
}

void CameraConnection::onClientConnected()
{
    m_connectTimeout.stop();
    adopt(m_socket);
}

void CameraConnection::onClientError()
{
    if (m_finishing) {
        return;
    }
    if (m_options.reconnect) {
        m_retryTimer.start();
    } else {
        emit failed(QStringLiteral("giving up on %1 (use --reconnect to keep trying)").arg(peerText()));
    }
}

void CameraConnection::onNewPeer()
{
    while (QTcpSocket* socket = m_server->nextPendingConnection()) {
        if (m_socket || m_finishing) {
            report(QStringLiteral("already serving a peer; closing the connection from %1:%2")
                       .arg(socket->peerAddress().toString())
                       .arg(socket->peerPort()));
            socket->abort();
            socket->deleteLater();
            continue;
        }
        m_socket = socket;
        connect(socket, &QTcpSocket::disconnected, this, &CameraConnection::onPeerGone);
        adopt(socket);
    }
}

void CameraConnection::adopt(QTcpSocket* socket)
{
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    connect(socket, &QTcpSocket::bytesWritten, this, &CameraConnection::drained);
    // The camera only sends; what comes back is thrown away.
    connect(socket, &QTcpSocket::readyRead, socket, [socket] { socket->readAll(); });
    m_connected = true;
    report(QStringLiteral("connected to %1:%2").arg(socket->peerAddress().toString()).arg(socket->peerPort()));
    emit connected();
}

void CameraConnection::onPeerGone()
{
    auto* socket = qobject_cast<QTcpSocket*>(sender());
    if (socket != m_socket || !m_connected) {
        return;
    }
    m_connected = false;
    if (m_options.role == CameraOptions::Role::Server) {
        m_socket = nullptr;
    }
    socket->deleteLater();
    if (m_finishing) {
        m_finishTimeout.stop();
        emit finished();
        return;
    }
    emit lost();
    if (!m_options.reconnect) {
        emit failed(QStringLiteral("the peer closed the connection before all frames were sent"));
    } else if (m_options.role == CameraOptions::Role::Client) {
        report(QStringLiteral("connection lost; connecting again in %1 ms").arg(m_options.intervalMs));
        m_retryTimer.start();
    } else {
        report(QStringLiteral("peer gone; waiting for the next one"));
    }
}

QString CameraConnection::peerText() const
{
    return QStringLiteral("%1:%2").arg(m_options.host.toString()).arg(m_options.port);
}
