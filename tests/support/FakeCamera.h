#pragma once

#include <QByteArray>
#include <QList>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

class QAbstractEventDispatcher;
class QObject;
class QTcpServer;
class QTcpSocket;

// A camera on 127.0.0.1 for the tests. Its sockets live on a thread of their own, so it accepts,
// streams and notices a closed connection while the test's thread is blocked in a connect.
// As a server it listens and streams to whoever connects; as a client it connects to a server.
// Every call waits until the camera's thread has done it. Work reaches that thread through a
// standard mutex and comes back through a promise, so ThreadSanitizer sees every hand-over.
class FakeCamera final
{
public:
    FakeCamera();
    ~FakeCamera();

    FakeCamera(const FakeCamera&) = delete;
    FakeCamera& operator=(const FakeCamera&) = delete;

    // A port that nothing listened on a moment ago.
    static quint16 freePort();

    // Listens on the port (0 picks one) and gives it, or 0 when the port is taken.
    quint16 listen(quint16 port = 0);
    // New connections are refused from now on; open ones stay.
    void stopListening();
    // Closes each connection as soon as it is accepted, as a camera that keeps rebooting.
    void setDropOnAccept(bool drop);

    // Connects to the port and says whether the connection was made within a few seconds.
    bool connectToServer(quint16 port);
    // This side's port of the last connectToServer().
    quint16 localPort() const { return m_localPort.load(); }

    void send(const QByteArray& bytes);
    // Streams the pattern over and over on every open connection until stopFlood().
    void startFlood(const QByteArray& pattern);
    void stopFlood();
    // Closes every open connection from this side.
    void dropConnections();

    int acceptedCount() const { return m_accepted.load(); }
    int openCount() const { return m_open.load(); }
    // Connections that the other side ended.
    int endedByPeerCount() const { return m_endedByPeer.load(); }
    QByteArray received() const;

private:
    struct Job
    {
        std::function<void()> work;
        std::promise<void> done;
    };

    void run();
    void onCameraThread(const std::function<void()>& work);
    void adopt(QTcpSocket* socket);
    void bury(QTcpSocket* socket);
    void feedFlood(QTcpSocket* socket);

    std::mutex m_jobsMutex;
    std::condition_variable m_ready;
    std::deque<Job> m_jobs;
    bool m_stopping = false;
    QAbstractEventDispatcher* m_dispatcher = nullptr;

    // Camera thread only.
    QObject* m_context = nullptr;
    QTcpServer* m_server = nullptr;
    QList<QTcpSocket*> m_sockets;
    // Sockets that ended inside their own signal, deleted once it has returned.
    QList<QTcpSocket*> m_buried;
    bool m_dropOnAccept = false;
    QByteArray m_floodPattern;

    std::atomic<quint16> m_localPort { 0 };
    std::atomic<int> m_accepted { 0 };
    std::atomic<int> m_open { 0 };
    std::atomic<int> m_endedByPeer { 0 };
    mutable std::mutex m_receivedMutex;
    QByteArray m_received;

    std::thread m_thread;
};
