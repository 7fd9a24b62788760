#include "NetTCPServer.h"

#include <atomic>
#include <chrono>

using Velko::Memory::TSharedPtr;
using Velko::Wirelet::CMemoryPacket;
using Velko::Wirelet::CSessionFactory;
using Velko::Wirelet::ISession;
using Velko::Wirelet::ISessionServer;

namespace {

constexpr std::int64_t kTurnAwayQuietMs = 60000;

std::int64_t steadyMilliseconds()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::int64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

std::atomic<NetTCPServer::Clock> turnAwayClock { steadyMilliseconds };

} // namespace

NetTCPServer::NetTCPServer(QObject* parent)
    : Endpoint(parent)
{
}

NetTCPServer::~NetTCPServer()
{
    // Releasing the server ends its sink calls; they must end while the members still exist.
    server.reset();
    sessions.clear();
}

int NetTCPServer::open(QString ip, QString port)
{
    {
        std::lock_guard<std::mutex> lock(sessionMutex);
        sessions.clear();
    }
    if (!Velko::Wirelet::initialize()) {
        emit sendMsgSig(tr("The network initialization failed!"));
        return 1;
    }
    if (CSessionFactory::instance().createTcpServer(false, server) != 0) {
        emit sendMsgSig(tr("Failed to create a server!"));
        return 1;
    }
    const QByteArray address = (ip + ":" + port).toLatin1();
    if (server->open(address.constData(), this) != 0) {
        emit sendMsgSig(tr("Failed to open the server!"));
        return 1;
    }
    emit sendMsgSig(tr("Opening the server successfully!"));
    return 0;
}

int NetTCPServer::close()
{
    {
        std::lock_guard<std::mutex> lock(sessionMutex);
        for (auto& session : sessions) {
            server->removeSession(session);
        }
        sessions.clear();
    }
    if (server) {
        server->close();
    }
    emit sendMsgSig(tr("Shut down the server successfully!"));
    return 0;
}

int NetTCPServer::moveTo(QString ip, QString port)
{
    TSharedPtr<ISessionServer> moved;
    if (!server || CSessionFactory::instance().createTcpServer(false, moved) != 0) {
        return 1;
    }
    {
        std::lock_guard<std::mutex> lock(sessionMutex);
        moving = moved;
    }
    const QByteArray address = (ip + ":" + port).toLatin1();
    const bool opened = moved->open(address.constData(), this) == 0;
    if (opened) {
        // Once its close has returned no sink operation of the old server runs, nor starts.
        server->close();
    }
    std::lock_guard<std::mutex> lock(sessionMutex);
    moving.reset();
    if (!opened) {
        return 1;
    }
    sessions.clear();
    server = moved;
    return 0;
}

int NetTCPServer::send(const char* data, std::uint32_t size)
{
    std::lock_guard<std::mutex> lock(sessionMutex);
    if (sessions.isEmpty()) {
        return 1;
    }
    for (auto& session : sessions) {
        if (session->send(data, size) != 0) {
            return 1;
        }
    }
    return 0;
}

void NetTCPServer::setAllowedCamera(const QString& address)
{
    std::lock_guard<std::mutex> lock(sessionMutex);
    allowedCamera = address.isEmpty() ? QHostAddress() : QHostAddress(address);
    turnedAway.clear();
}

void NetTCPServer::setReplaceSameCamera(bool replace)
{
    std::lock_guard<std::mutex> lock(sessionMutex);
    replaceSameCamera = replace;
}

void NetTCPServer::setClock(Clock clock)
{
    turnAwayClock = clock;
}

void NetTCPServer::onConnected(TSharedPtr<ISession>& session)
{
    // One lock over the test and the append keeps a second camera from slipping in between.
    std::lock_guard<std::mutex> lock(sessionMutex);
    if (moving) {
        // Only the listener that accepted it knows the session; the other ignores the removal.
        server->removeSession(session);
        moving->removeSession(session);
        return;
    }
    const auto remote = session->getRemoteAddress();
    const QString ip(remote->getIP());
    if (!allowedCamera.isNull() && !allowedCamera.isEqual(QHostAddress(ip))) {
        // Said before the removal is posted: whoever sees the connection end finds the message queued.
        reportNotAllowed(ip, remote->getPort());
        server->removeSession(session);
        return;
    }
    if (!sessions.isEmpty()) {
        if (!replaceSameCamera || !QHostAddress(ip).isEqual(QHostAddress(QString(peerIP)))) {
            server->removeSession(session);
            return;
        }
        // The old session's own disconnect comes later, finds it gone from sessions and says nothing.
        server->removeSession(sessions.first());
        sessions.clear();
        emit sendMsgSig(tr("The camera %1 connected again; its earlier connection was closed.").arg(ip));
    }
    server->addSession(session);
    sessions.append(session);
    peerIP = QByteArray(remote->getIP());
    peerPort = remote->getPort();
    if (!peerIP.isEmpty()) {
        emit sendMsgSig(tr("Camera %1:%2 connected to the server successfully!").arg(QString(peerIP)).arg(peerPort));
    }
}

void NetTCPServer::reportNotAllowed(const QString& ip, quint16 port)
{
    const std::int64_t now = turnAwayClock.load()();
    const auto known = turnedAway.find(ip);
    if (known != turnedAway.end() && now - known->saidAt < kTurnAwayQuietMs) {
        ++known->unsaid;
        return;
    }
    const int unsaid = known == turnedAway.end() ? 0 : known->unsaid;
    turnedAway.insert(ip, { now, 0 });
    if (unsaid == 0) {
        emit sendMsgSig(tr("The camera %1:%2 is not the allowed camera %3; it was turned away.")
                            .arg(ip)
                            .arg(port)
                            .arg(allowedCamera.toString()));
        return;
    }
    emit sendMsgSig(tr("The camera %1 is not the allowed camera %2; %3 of its connections were turned away since "
                       "the last message.")
                        .arg(ip, allowedCamera.toString())
                        .arg(unsaid + 1));
}

void NetTCPServer::onDisconnected(TSharedPtr<ISession>& session, std::int32_t)
{
    std::lock_guard<std::mutex> lock(sessionMutex);
    server->removeSession(session);
    const int index = sessions.indexOf(session);
    if (index < 0) {
        return;
    }
    sessions.remove(index);
    if (!peerIP.isEmpty()) {
        emit sendMsgSig(tr("The camera %1:%2 is disconnected from the server!").arg(QString(peerIP)).arg(peerPort));
    }
}

void NetTCPServer::onReceive(TSharedPtr<ISession>&, TSharedPtr<CMemoryPacket>& packet)
{
    deliver(*packet);
}

void NetTCPServer::onSessionNotify(void*) { }
