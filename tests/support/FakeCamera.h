#pragma once

#include <QAbstractEventDispatcher>
#include <QTcpServer>
#include <QTcpSocket>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

// A camera on 127.0.0.1 for the tests. Its sockets live on a thread of their own, so it accepts,
// streams and notices a closed connection while the test's thread is blocked in a connect.
// As a server it listens and streams to whoever connects; as a client it connects to a server.
// Every call returns once the camera's thread has done it. Work goes there and back under a
// standard mutex, so ThreadSanitizer sees every hand-over.
class FakeCamera final
{
public:
    FakeCamera();
    ~FakeCamera();

    // A port that nothing listened on a moment ago.
    static quint16 freePort()
    {
        QTcpServer probe;
        return probe.listen(QHostAddress::LocalHost, 0) ? probe.serverPort() : 0;
    }

    // Listens on the port (0 picks one) and gives it, or 0 when the port is taken.
    quint16 listen(quint16 port = 0);

    // Connects from one address to the port of another and says whether the connection was made
    // within a few seconds. Both are loopback addresses but in a test's private network namespace.
    bool connectToServer(quint16 port,
                         const QString& from = QStringLiteral("127.0.0.1"),
                         const QString& to = QStringLiteral("127.0.0.1"));
    // This side's port of the last connectToServer().
    quint16 localPort() const { return m_localPort.load(); }

    // Writes the bytes to every open connection.
    void send(const QByteArray& bytes);
    // Streams the pattern over and over on every open connection; an empty one stops.
    void startFlood(const QByteArray& pattern);
    // Refuses new connections and closes every open one from this side.
    void goOffline();
    // Bytes written to each connection the moment it is accepted, as a camera that flushes its queue.
    void greetWith(const QByteArray& bytes)
    {
        onCameraThread([&] { m_greeting = bytes; });
    }

    int acceptedCount() const { return m_accepted.load(); }
    int openCount() const { return m_open.load(); }
    // Connections that the other side ended.
    int endedByPeerCount() const { return m_endedByPeer.load(); }
    // All bytes that came in, over every connection.
    QByteArray received() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_received;
    }

private:
    void run();
    void onCameraThread(const std::function<void()>& work);
    void adopt(QTcpSocket* socket);
    void feedFlood(QTcpSocket* socket);

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_jobs;
    quint64 m_posted = 0;
    quint64 m_finished = 0;
    QAbstractEventDispatcher* m_dispatcher = nullptr;
    QByteArray m_received;

    // Camera thread only. Ended sockets stay children of the server until the camera goes.
    bool m_stopping = false;
    QTcpServer* m_server = nullptr;
    QList<QTcpSocket*> m_sockets;
    QByteArray m_floodPattern;
    QByteArray m_greeting;

    std::atomic<quint16> m_localPort { 0 };
    std::atomic<int> m_accepted { 0 };
    std::atomic<int> m_open { 0 };
    std::atomic<int> m_endedByPeer { 0 };

    std::thread m_thread;
};
