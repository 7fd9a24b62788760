// The two endpoints of a device, and the session library under them, against loopback cameras.
#include "FakeCamera.h"
#include "NetTCPServer.h"
#include "NetTcpClient.h"

#include <QtTest>
#include <dlfcn.h>
#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <thread>

namespace {

constexpr int kWaitMs = 10000;

// Attempts to connect to each port, counted as connect() returns: the kernel has answered one by then.
std::atomic<int> s_connects[65536];

// Keepalive on, idle, interval and probes of this process's socket whose peer has the loopback port.
QList<int> keepAlive(quint16 peerPort)
{
    QList<int> values;
    for (int fd = 0; fd < 1024 && values.isEmpty(); ++fd) {
        sockaddr_in peer {};
        socklen_t size = sizeof peer;
        if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) != 0 || ntohs(peer.sin_port) != peerPort)
            continue;
        for (const int name : { SO_KEEPALIVE, TCP_KEEPIDLE, TCP_KEEPINTVL, TCP_KEEPCNT }) {
            int value = -1;
            size = sizeof value;
            getsockopt(fd, name == SO_KEEPALIVE ? SOL_SOCKET : IPPROTO_TCP, name, &value, &size);
            values.append(value);
        }
    }
    return values;
}

// Keeps the chunks handed to a DataCallback and names what it must never see: two calls at once,
// a chunk without the zero byte behind it, a call made once the test set closed.
struct Recorder
{
    static int record(const char* data, int len, void* context)
    {
        auto* self = static_cast<Recorder*>(context);
        const bool overlapping = self->busy.exchange(true);
        // A call that lasts a while lets a close find one in flight.
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        std::lock_guard<std::mutex> lock(self->mutex);
        self->received.append(data, len);
        const std::pair<bool, const char*> checks[] = { { overlapping, "two calls at once" },
                                                        { data[len] != '\0', "no zero byte behind the chunk" },
                                                        { self->closed, "a call after the close" } };
        for (const auto& [fault, name] : checks)
            if (fault && !self->faults.contains(name))
                self->faults << name;
        self->busy = false;
        return 0;
    }
    QByteArray bytes()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return received;
    }
    QStringList faultsSeen()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return faults;
    }

    std::atomic<bool> busy { false };
    std::atomic<bool> closed { false };
    std::mutex mutex;
    QByteArray received;
    QStringList faults;
};

} // namespace

// Every connect() of this process comes here on its way to the C library's.
extern "C" int connect(int fd, const sockaddr* address, socklen_t size)
{
    const int result = reinterpret_cast<decltype(&connect)>(dlsym(RTLD_NEXT, "connect"))(fd, address, size);
    ++s_connects[ntohs(reinterpret_cast<const sockaddr_in*>(address)->sin_port)];
    return result;
}

class tst_Net final : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_messages.clear(); }
    void opens_data()
    {
        QTest::addColumn<bool>("server");
        QTest::addColumn<QString>("address");
        QTest::addColumn<bool>("opens");
        QTest::newRow("client, nobody listens") << false << "127.0.0.1:1" << false;
        for (const char* address : { "127.0.0.1:0", "127.0.0.1:65535" })
            QTest::newRow(address) << true << QString(address) << true;
        const char* const refused[] = { "1.2.3:80",      "256.0.0.1:80", "127.0.0.1:",       "127.0.0.1:65536",
                                        "127.0.0.1:80x", "127.0.0.1:-1", "127.0.0.1:000000", "127.0.0.1:taken" };
        for (const char* address : refused)
            QTest::newRow(address) << true << QString(address) << false;
    }

    void opens()
    {
        QFETCH(bool, server);
        QFETCH(QString, address);
        QFETCH(bool, opens);
        FakeCamera occupant;
        address.replace("taken", QString::number(occupant.listen()));
        const QString ip = address.section(':', 0, 0), port = address.section(':', 1);
        std::unique_ptr<Endpoint> endpoint(server ? static_cast<Endpoint*>(new NetTCPServer(nullptr))
                                                  : new NetTcpClient(nullptr));
        // As on the device page: messages from the library's threads arrive queued on this thread.
        connect(endpoint.get(), &Endpoint::sendMsgSig, this, &tst_Net::note);
        QCOMPARE(endpoint->close(), server ? 0 : 1);
        QCOMPARE(endpoint->open(ip, port), opens ? 0 : 1);
        QCOMPARE(endpoint->send("x", 1), 1);
        QCOMPARE(endpoint->close(), 0);
        QCOMPARE(endpoint->close(), server ? 0 : 1);
        const QString shut = "Shut down the server successfully!";
        const QString opened = opens ? "Opening the server successfully!" : "Failed to open the server!";
        const QStringList failed { "Failed to connect to the server.", "Disconnected server successfully!" };
        QCOMPARE(m_messages, (server ? QStringList { shut, opened, shut, shut } : failed));
    }

    void streamsUntilClosed_data()
    {
        QTest::addColumn<bool>("server");
        QTest::addColumn<QString>("how");
        for (const char* how : { "close", "release", "finalize", "quiet" }) {
            QTest::addRow("client %s", how) << false << QString(how);
            QTest::addRow("server %s", how) << true << QString(how);
        }
    }

    void streamsUntilClosed()
    {
        QFETCH(bool, server);
        QFETCH(QString, how);
        FakeCamera camera, next, intruders;
        Recorder recorder;
        std::unique_ptr<Endpoint> endpoint(server ? static_cast<Endpoint*>(new NetTCPServer(nullptr))
                                                  : new NetTcpClient(nullptr));
        endpoint->setDataCallback(&Recorder::record, &recorder);
        connect(endpoint.get(), &Endpoint::sendMsgSig, this, &tst_Net::note);
        const quint16 port = server ? FakeCamera::freePort() : camera.listen();
        QCOMPARE(endpoint->open("127.0.0.1", QString::number(port)), 0);
        QVERIFY(!server || camera.connectToServer(port));
        // Numbers with a zero byte behind each: a chunk out of place shows.
        QByteArray flood;
        for (int i = 0; flood.size() < 8192; ++i)
            flood += QByteArray::number(i) + '\0';
        camera.startFlood(flood);
        next.startFlood(how == "quiet" ? QByteArray() : flood);
        QTRY_VERIFY_WITH_TIMEOUT(recorder.bytes().size() > 100000, kWaitMs);
        QCOMPARE(keepAlive(server ? camera.localPort() : port), (QList<int> { 1, 10, 5, 3 }));
        // Cameras that knock while one streams are turned away.
        for (int i = 0; server && i < 20; ++i)
            QVERIFY(intruders.connectToServer(port));
        QTRY_COMPARE_WITH_TIMEOUT(intruders.endedByPeerCount(), server ? 20 : 0, kWaitMs);
        const QByteArray reply = flood.repeated(384);
        QCOMPARE(endpoint->send(reply.constData(), static_cast<std::uint32_t>(reply.size())), 0);
        QTRY_VERIFY_WITH_TIMEOUT(camera.received() == reply, kWaitMs);
        const QByteArray got = recorder.bytes();
        QVERIFY(got == flood.repeated(got.size() / flood.size() + 1).left(got.size()));

        // The camera goes away. A client waits for it to come back on its port; a server takes the next.
        // A quiet one sends nothing more, so that only the close can end its connection.
        camera.startFlood(how == "quiet" ? QByteArray() : flood);
        camera.goOffline();
        QTRY_COMPARE_WITH_TIMEOUT(m_messages.size(), 3, kWaitMs);
        // Back once a retry found nobody listening: a refused retry does not end the retrying.
        const int attempts = s_connects[port];
        QTRY_VERIFY_WITH_TIMEOUT(server || s_connects[port] > attempts, kWaitMs);
        QVERIFY(server ? next.connectToServer(port) : camera.listen(port) == port);
        FakeCamera& back = server ? next : camera;
        QTRY_COMPARE_WITH_TIMEOUT(m_messages.size(), 4, kWaitMs);
        QCOMPARE(endpoint->send("!", 1), 0);
        // Opened; then connected, lost and connected again, each naming the camera.
        const QString first = QString("127.0.0.1:%1").arg(server ? camera.localPort() : port);
        QVERIFY(m_messages[1].contains(first));
        QVERIFY(m_messages[2].contains(first));
        QVERIFY(m_messages[3].contains(QString("127.0.0.1:%1").arg(server ? next.localPort() : port)));

        if (how == "finalize") {
            Velko::Wirelet::finalize();
            recorder.closed = true;
            Velko::Wirelet::finalize();
        }
        if (how == "release") {
            endpoint.reset();
        } else {
            QCOMPARE(endpoint->close(), 0);
            QCOMPARE(endpoint->send("x", 1), 1);
        }
        recorder.closed = true;
        QTRY_COMPARE_WITH_TIMEOUT(back.endedByPeerCount(), 1, kWaitMs);
        QCOMPARE(recorder.faultsSeen(), QStringList());

        // The port is free again at once; after finalize, opening starts the library again.
        endpoint.reset(server ? static_cast<Endpoint*>(new NetTCPServer(nullptr)) : new NetTcpClient(nullptr));
        QCOMPARE(endpoint->open("127.0.0.1", QString::number(port)), 0);
    }

private:
    void note(const QString& msg) { m_messages.append(msg); }

    QStringList m_messages;
};

QTEST_GUILESS_MAIN(tst_Net)
#include "tst_net.moc"
