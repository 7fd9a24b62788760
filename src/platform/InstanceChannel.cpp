#include "InstanceChannel.h"

#include "InstanceLock.h"

#include <QLocalServer>
#include <QLocalSocket>

namespace {

const QByteArray kRaise = QByteArrayLiteral("raise\n");
const QByteArray kRaised = QByteArrayLiteral("raised\n");

} // namespace

InstanceChannel::InstanceChannel(QObject* parent)
    : QObject(parent)
    , m_server(new QLocalServer(this))
{
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    connect(m_server, &QLocalServer::newConnection, this, &InstanceChannel::serveNext);
}

bool InstanceChannel::listen(const QString& name)
{
    const QString path = socketPath(name);
    QLocalServer::removeServer(path);
    return m_server->listen(path);
}

bool InstanceChannel::askToRaise(const QString& name, int timeoutMs)
{
    QLocalSocket socket;
    socket.connectToServer(socketPath(name));
    if (!socket.waitForConnected(timeoutMs)) {
        return false;
    }
    socket.write(kRaise);
    if (!socket.waitForBytesWritten(timeoutMs)) {
        return false;
    }
    while (socket.bytesAvailable() < kRaised.size()) {
        if (!socket.waitForReadyRead(timeoutMs)) {
            return false;
        }
    }
    return socket.read(kRaised.size()) == kRaised;
}

QString InstanceChannel::socketPath(const QString& name)
{
    QString path = InstanceLock::markerPath(name);
    path.chop(QStringLiteral(".lock").size());
    return path + QStringLiteral(".socket");
}

void InstanceChannel::serveNext()
{
    QLocalSocket* socket = m_server->nextPendingConnection();
    if (!socket) {
        return;
    }
    connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
    connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
        if (socket->bytesAvailable() < kRaise.size()) {
            return;
        }
        if (socket->read(kRaise.size()) == kRaise) {
            emit raiseRequested();
            socket->write(kRaised);
        }
        socket->disconnectFromServer();
    });
}
