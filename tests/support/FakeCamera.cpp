#include "FakeCamera.h"

#include <QEventLoop>
#include <algorithm>

namespace {

// Enough queued bytes to keep the peer busy without growing without end.
constexpr qint64 kFloodBacklog = 256 * 1024;

} // namespace

FakeCamera::FakeCamera()
    : m_thread([this] { run(); })
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_dispatcher != nullptr; });
}

FakeCamera::~FakeCamera()
{
    onCameraThread([this] { m_stopping = true; });
    m_thread.join();
}

quint16 FakeCamera::listen(quint16 port)
{
    quint16 listening = 0;
    onCameraThread([&] {
        if (m_server->isListening() || m_server->listen(QHostAddress::LocalHost, port))
            listening = m_server->serverPort();
    });
    return listening;
}

bool FakeCamera::connectToServer(quint16 port, const QString& from, const QString& to)
{
    bool connected = false;
    onCameraThread([&] {
        auto* socket = new QTcpSocket(m_server);
        socket->bind(QHostAddress(from));
        socket->connectToHost(QHostAddress(to), port);
        connected = socket->waitForConnected(3000);
        m_localPort = socket->localPort();
        connected ? adopt(socket) : delete socket;
    });
    return connected;
}

void FakeCamera::send(const QByteArray& bytes)
{
    onCameraThread([&] { std::for_each(m_sockets.begin(), m_sockets.end(), [&](QTcpSocket* s) { s->write(bytes); }); });
}

void FakeCamera::startFlood(const QByteArray& pattern)
{
    onCameraThread([&] {
        m_floodPattern = pattern;
        std::for_each(m_sockets.begin(), m_sockets.end(), [this](QTcpSocket* s) { feedFlood(s); });
    });
}

void FakeCamera::goOffline()
{
    onCameraThread([this] {
        m_server->close();
        for (QTcpSocket* socket : qAsConst(m_sockets)) {
            socket->disconnect();
            socket->abort();
        }
        m_sockets.clear();
        m_open = 0;
    });
}

void FakeCamera::run()
{
    QEventLoop loop; // gives this thread an event dispatcher
    QTcpServer server;
    m_server = &server;
    QObject::connect(&server, &QTcpServer::newConnection, [this] {
        while (QTcpSocket* socket = m_server->nextPendingConnection()) {
            ++m_accepted;
            socket->write(m_greeting);
            adopt(socket);
        }
    });
    std::unique_lock<std::mutex> lock(m_mutex);
    m_dispatcher = QAbstractEventDispatcher::instance();
    m_changed.notify_all();
    for (;;) {
        while (!m_jobs.empty()) {
            const std::function<void()> job = std::move(m_jobs.front());
            m_jobs.pop_front();
            lock.unlock();
            job();
            lock.lock();
            ++m_finished;
            m_changed.notify_all();
        }
        if (m_stopping)
            break;
        lock.unlock();
        m_dispatcher->processEvents(QEventLoop::WaitForMoreEvents);
        lock.lock();
    }
    // The server's children, every socket of this camera, go with it.
}

void FakeCamera::onCameraThread(const std::function<void()>& work)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_jobs.push_back(work);
    const quint64 ticket = ++m_posted;
    m_dispatcher->wakeUp();
    m_changed.wait(lock, [&] { return m_finished >= ticket; });
}

void FakeCamera::adopt(QTcpSocket* socket)
{
    m_sockets.append(socket);
    m_open = m_sockets.size();
    QObject::connect(socket, &QTcpSocket::readyRead, [this, socket] {
        const QByteArray bytes = socket->readAll();
        std::lock_guard<std::mutex> lock(m_mutex);
        m_received.append(bytes);
    });
    QObject::connect(socket, &QTcpSocket::bytesWritten, [this, socket] { feedFlood(socket); });
    QObject::connect(socket, &QTcpSocket::disconnected, [this, socket] {
        socket->disconnect();
        m_sockets.removeOne(socket);
        m_open = m_sockets.size();
        ++m_endedByPeer;
    });
    feedFlood(socket);
}

void FakeCamera::feedFlood(QTcpSocket* socket)
{
    while (!m_floodPattern.isEmpty() && socket->bytesToWrite() < kFloodBacklog)
        socket->write(m_floodPattern);
}
