#include "NetTcpClient.h"

using Velko::Memory::TSharedPtr;
using Velko::Wirelet::CMemoryPacket;
using Velko::Wirelet::CSessionFactory;
using Velko::Wirelet::ISessionClient;

NetTcpClient::NetTcpClient(QObject* parent)
    : Endpoint(parent)
{
}

NetTcpClient::~NetTcpClient()
{
    // Releasing the session ends its sink calls; they must end while the members still exist.
    session.reset();
}

int NetTcpClient::open(QString ip, QString port)
{
    if (!Velko::Wirelet::initialize()) {
        emit sendMsgSig(tr("The network initialization failed. "));
        connected = false;
        return 1;
    }
    if (CSessionFactory::instance().createTcpClient(false, session) != 0) {
        emit sendMsgSig(tr("Description Failed to create a client."));
        connected = false;
        return 1;
    }
    const QByteArray address = (ip + ":" + port).toLatin1();
    if (session->connect(address.constData(), true, this) != 0) {
        emit sendMsgSig(tr("Failed to connect to the server."));
        connected = false;
        return 1;
    }
    emit sendMsgSig(tr("Link to server successfully!"));
    connected = true;
    return 0;
}

int NetTcpClient::openWhenReachable(QString ip, QString port)
{
    if (!Velko::Wirelet::initialize() || CSessionFactory::instance().createTcpClient(false, session) != 0) {
        return 1;
    }
    const QByteArray address = (ip + ":" + port).toLatin1();
    return session->connectWhenReachable(address.constData(), this) != 0 ? 1 : 0;
}

int NetTcpClient::close()
{
    {
        std::lock_guard<std::mutex> lock(sessionMutex);
        if (!session) {
            return 1;
        }
        connected = false;
        if (session->close() == 0) {
            session.reset();
        }
    }
    emit sendMsgSig(tr("Disconnected server successfully!"));
    return 0;
}

int NetTcpClient::send(const char* data, std::uint32_t size)
{
    if (!session || !connected) {
        return 1;
    }
    return session->send(data, size) != 0 ? 1 : 0;
}

void NetTcpClient::onConnected(TSharedPtr<ISessionClient>& session)
{
    connected = true;
    QByteArray ip;
    quint16 port = 0;
    readPeer(session, ip, port);
    if (!ip.isEmpty()) {
        emit sendMsgSig(tr("This device is successfully connected to camera %1:%2 !").arg(QString(ip)).arg(port));
    }
    emit cameraConnected();
}

void NetTcpClient::onDisconnected(TSharedPtr<ISessionClient>& session, std::int32_t)
{
    connected = false;
    QByteArray ip;
    quint16 port = 0;
    readPeer(session, ip, port);
    emit sendMsgSig(tr("This device is disconnected from camera %1:%2 !").arg(QString(ip)).arg(port));
}

void NetTcpClient::onReceive(TSharedPtr<ISessionClient>&, TSharedPtr<CMemoryPacket>& packet)
{
    deliver(*packet);
}

void NetTcpClient::onSessionNotify(void*) { }

void NetTcpClient::readPeer(TSharedPtr<ISessionClient>& session, QByteArray& ip, quint16& port)
{
    const QByteArray readIp(session->getRemoteAddress()->getIP());
    const quint16 readPort = session->getRemoteAddress()->getPort();
    std::lock_guard<std::mutex> lock(peerMutex);
    peerIP = readIp;
    peerPort = readPort;
    ip = peerIP;
    port = peerPort;
}
