#include "FakeCamera.h"

#include <QAbstractEventDispatcher>
#include <QEventLoop>
#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>

namespace {

constexpr int kConnectTimeoutMs = 3000;
// Enough queued bytes to keep the peer busy without growing without end.
constexpr qint64 kFloodBacklog = 256 * 1024;

} // namespace

FakeCamera::FakeCamera()
    : m_thread([this] { run(); })
{
    std::unique_lock<std::mutex> lock(m_jobsMutex);
    m_ready.wait(lock, [this] { return m_dispatcher != nullptr; });
}

FakeCamera::~FakeCamera()
{
    {
        // Woken under the lock: the thread cannot see the stop and take its dispatcher away first.
        std::lock_guard<std::mutex> lock(m_jobsMutex);
        m_stopping = true;
        m_dispatcher->wakeUp();
    }
    m_thread.join();
}

quint16 FakeCamera::freePort()
{
    QTcpServer probe;
    if (!probe.listen(QHostAddress::LocalHost, 0)) {
        return 0;
    }
    return probe.serverPort();
}

quint16 FakeCamera::listen(quint16 port)
{
    quint16 listening = 0;
    onCameraThread([this, port, &listening] {
        if (!m_server) {
            m_server = new QTcpServer(m_context);
            QObject::connect(m_server, &QTcpServer::newConnection, m_context, [this] {
                while (QTcpSocket* socket = m_server->nextPendingConnection()) {
                    ++m_accepted;
                    if (m_dropOnAccept) {
                        socket->abort();
                        bury(socket);
                        continue;
                    }
                    adopt(socket);
                }
            });
        }
        if (m_server->isListening() || m_server->listen(QHostAddress::LocalHost, port)) {
            listening = m_server->serverPort();
        }
    });
    return listening;
}

void FakeCamera::stopListening()
{
    onCameraThread([this] {
        if (m_server) {
            m_server->close();
        }
    });
}

void FakeCamera::setDropOnAccept(bool drop)
{
    onCameraThread([this, drop] { m_dropOnAccept = drop; });
}

bool FakeCamera::connectToServer(quint16 port)
{
    bool connected = false;
    onCameraThread([this, port, &connected] {
        auto* socket = new QTcpSocket(m_context);
        socket->connectToHost(QHostAddress::LocalHost, port);
        connected = socket->waitForConnected(kConnectTimeoutMs);
        if (!connected) {
            delete socket;
            return;
        }
        m_localPort = socket->localPort();
        adopt(socket);
    });
    return connected;
}

void FakeCamera::send(const QByteArray& bytes)
{
    onCameraThread([this, bytes] {
        for (QTcpSocket* socket : qAsConst(m_sockets)) {
            socket->write(bytes);
        }
    });
}

void FakeCamera::startFlood(const QByteArray& pattern)
{
    onCameraThread([this, pattern] {
        m_floodPattern = pattern;
        for (QTcpSocket* socket : qAsConst(m_sockets)) {
            feedFlood(socket);
        }
    });
}

void FakeCamera::stopFlood()
{
    onCameraThread([this] { m_floodPattern.clear(); });
}

void FakeCamera::dropConnections()
{
    onCameraThread([this] {
        const QList<QTcpSocket*> sockets = m_sockets;
        m_sockets.clear();
        for (QTcpSocket* socket : sockets) {
            socket->disconnect();
            socket->abort();
            bury(socket);
            --m_open;
        }
    });
}

QByteArray FakeCamera::received() const
{
    std::lock_guard<std::mutex> lock(m_receivedMutex);
    return m_received;
}

void FakeCamera::run()
{
    QEventLoop loop; // gives this thread an event dispatcher
    QObject context;
    m_context = &context;
    {
        std::lock_guard<std::mutex> lock(m_jobsMutex);
        m_dispatcher = QAbstractEventDispatcher::instance();
    }
    m_ready.notify_all();

    for (;;) {
        std::deque<Job> jobs;
        bool stopping = false;
        {
            std::lock_guard<std::mutex> lock(m_jobsMutex);
            jobs.swap(m_jobs);
            stopping = m_stopping;
        }
        for (Job& job : jobs) {
            job.work();
            job.done.set_value();
        }
        qDeleteAll(m_buried);
        m_buried.clear();
        if (stopping) {
            break;
        }
        m_dispatcher->processEvents(QEventLoop::WaitForMoreEvents);
    }

    for (QTcpSocket* socket : qAsConst(m_sockets)) {
        socket->disconnect();
        socket->abort();
    }
    m_sockets.clear();
    // The context's children, server and sockets alike, go with it.
}

void FakeCamera::onCameraThread(const std::function<void()>& work)
{
    std::future<void> done;
    {
        std::lock_guard<std::mutex> lock(m_jobsMutex);
        m_jobs.push_back(Job { work, {} });
        done = m_jobs.back().done.get_future();
    }
    m_dispatcher->wakeUp();
    done.wait();
}

void FakeCamera::adopt(QTcpSocket* socket)
{
    m_sockets.append(socket);
    ++m_open;
    QObject::connect(socket, &QTcpSocket::readyRead, m_context, [this, socket] {
        const QByteArray bytes = socket->readAll();
        std::lock_guard<std::mutex> lock(m_receivedMutex);
        m_received.append(bytes);
    });
    QObject::connect(socket, &QTcpSocket::bytesWritten, m_context, [this, socket] { feedFlood(socket); });
    QObject::connect(socket, &QTcpSocket::disconnected, m_context, [this, socket] {
        if (m_sockets.removeOne(socket)) {
            --m_open;
            ++m_endedByPeer;
        }
        bury(socket);
    });
    feedFlood(socket);
}

void FakeCamera::bury(QTcpSocket* socket)
{
    socket->disconnect();
    if (!m_buried.contains(socket)) {
        m_buried.append(socket);
    }
}

void FakeCamera::feedFlood(QTcpSocket* socket)
{
    if (m_floodPattern.isEmpty()) {
        return;
    }
    while (socket->bytesToWrite() < kFloodBacklog) {
        socket->write(m_floodPattern);
    }
}
