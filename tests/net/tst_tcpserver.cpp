#include "FakeCamera.h"
#include "RecordingSink.h"
#include "Wirelet.h"

#include <QtTest>
#include <mutex>
#include <thread>

using Velko::Memory::TSharedPtr;
using Velko::Wirelet::CSessionFactory;
using Velko::Wirelet::ISession;
using Velko::Wirelet::ISessionServer;

namespace {

constexpr int kWaitMs = 10000;

QByteArray address(quint16 port)
{
    return "127.0.0.1:" + QByteArray::number(port);
}

QByteArray pattern(int size)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>((i * 13 + i / 509) & 0xff);
    }
    return bytes;
}

TSharedPtr<ISessionServer> newServer()
{
    TSharedPtr<ISessionServer> server;
    if (CSessionFactory::instance().createTcpServer(false, server) != 0) {
        return nullptr;
    }
    return server;
}

QString peer(const FakeCamera& camera)
{
    return QString("127.0.0.1:%1").arg(camera.localPort());
}

} // namespace

class tst_TcpServer final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void refusesAddressesThatDoNotParse_data();
    void refusesAddressesThatDoNotParse();
    void refusesAPortInUse();
    void servesOneCameraAndTurnsTheOthersAway();
    void letsGoOfASessionNotAdded();
    void removeSessionNeitherWaitsNorCallsOnTheCallersThread();
    void closeEndsEveryConnection_data();
    void closeEndsEveryConnection();
    void sendWritesEveryByte();
    void finalizeEndsConnectionsAndLaterCallsAreHarmless();
};

void tst_TcpServer::initTestCase()
{
    QVERIFY(Velko::Wirelet::initialize());
}

void tst_TcpServer::cleanupTestCase()
{
    Velko::Wirelet::finalize();
}

void tst_TcpServer::refusesAddressesThatDoNotParse_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("three parts") << QByteArray("1.2.3:80");
    QTest::newRow("port too big") << QByteArray("127.0.0.1:99999");
    QTest::newRow("names") << QByteArray("x:y");
    QTest::newRow("no port") << QByteArray("127.0.0.1");
}

void tst_TcpServer::refusesAddressesThatDoNotParse()
{
    QFETCH(QByteArray, text);
    RecordingSink sink;
    TSharedPtr<ISessionServer> server = newServer();
    QVERIFY(server);
    QVERIFY(server->open(text.constData(), &sink) != 0);
    server->close();
    QVERIFY(sink.events().isEmpty());
}

void tst_TcpServer::refusesAPortInUse()
{
    FakeCamera holder;
    const quint16 port = holder.listen();
    RecordingSink sink;
    TSharedPtr<ISessionServer> server = newServer();
    QVERIFY(server->open(address(port).constData(), &sink) != 0);
    server->close();
}

void tst_TcpServer::servesOneCameraAndTurnsTheOthersAway()
{
    const quint16 port = FakeCamera::freePort();
    RecordingSink sink;
    TSharedPtr<ISessionServer> server = newServer();
    sink.serve(server.get(), RecordingSink::Admission::FirstOnly);
    QCOMPARE(server->open(address(port).constData(), &sink), 0);

    FakeCamera first;
    QVERIFY(first.connectToServer(port));
    QTRY_COMPARE_WITH_TIMEOUT(sink.events(), QStringList { "connected " + peer(first) }, kWaitMs);
    first.send("one");
    QTRY_COMPARE_WITH_TIMEOUT(sink.received(), QByteArray("one"), kWaitMs);

    FakeCamera second;
    QVERIFY(second.connectToServer(port));
    QTRY_COMPARE_WITH_TIMEOUT(second.endedByPeerCount(), 1, kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(
        sink.events(),
        (QStringList { "connected " + peer(first), "connected " + peer(second), "disconnected " + peer(second) }),
        kWaitMs);

    first.send(QByteArray("two\0", 4));
    QTRY_COMPARE_WITH_TIMEOUT(sink.received(), QByteArray("onetwo\0", 7), kWaitMs);
    QCOMPARE(first.openCount(), 1);
    QCOMPARE(first.endedByPeerCount(), 0);

    first.dropConnections();
    QTRY_COMPARE_WITH_TIMEOUT(sink.count("disconnected"), 2, kWaitMs);
    QVERIFY(!sink.keptSession());
    FakeCamera third;
    QVERIFY(third.connectToServer(port));
    QTRY_COMPARE_WITH_TIMEOUT(sink.count("connected"), 3, kWaitMs);
    third.send("three");
    QTRY_COMPARE_WITH_TIMEOUT(sink.received(), QByteArray("onetwo\0three", 12), kWaitMs);
    QCOMPARE(third.endedByPeerCount(), 0);
    QVERIFY(!sink.overlapped());
    server->close();
    sink.markClosed();
    QTRY_COMPARE_WITH_TIMEOUT(third.endedByPeerCount(), 1, kWaitMs);
    QCOMPARE(sink.callsAfterClose(), 0);
}

void tst_TcpServer::letsGoOfASessionNotAdded()
{
    const quint16 port = FakeCamera::freePort();
    RecordingSink sink;
    TSharedPtr<ISessionServer> server = newServer();
    sink.serve(server.get(), RecordingSink::Admission::None);
    QCOMPARE(server->open(address(port).constData(), &sink), 0);

    FakeCamera camera;
    QVERIFY(camera.connectToServer(port));
    QTRY_COMPARE_WITH_TIMEOUT(camera.endedByPeerCount(), 1, kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(
        sink.events(), (QStringList { "connected " + peer(camera), "disconnected " + peer(camera) }), kWaitMs);
    QCOMPARE(sink.receiveCount(), 0);
    server->close();
}

void tst_TcpServer::removeSessionNeitherWaitsNorCallsOnTheCallersThread()
{
    const quint16 port = FakeCamera::freePort();
    std::mutex endpointLock;
    RecordingSink sink;
    sink.shareLock(&endpointLock);
    TSharedPtr<ISessionServer> server = newServer();
    sink.serve(server.get(), RecordingSink::Admission::FirstOnly);
    QCOMPARE(server->open(address(port).constData(), &sink), 0);
    FakeCamera camera;
    QVERIFY(camera.connectToServer(port));
    QTRY_VERIFY_WITH_TIMEOUT(sink.keptSession() != nullptr, kWaitMs);

    {
        // The sinks want this lock too: waiting for one of them here would never end.
        std::lock_guard<std::mutex> hold(endpointLock);
        TSharedPtr<ISession> session = sink.keptSession();
        server->removeSession(session);
        QCOMPARE(sink.count("disconnected"), 0);
    }
    QTRY_COMPARE_WITH_TIMEOUT(sink.count("disconnected"), 1, kWaitMs);
    QVERIFY(sink.lastDisconnectThread() != std::this_thread::get_id());
    QTRY_COMPARE_WITH_TIMEOUT(camera.endedByPeerCount(), 1, kWaitMs);
    server->close();
}

void tst_TcpServer::closeEndsEveryConnection_data()
{
    QTest::addColumn<bool>("release");
    for (int round = 0; round < 3; ++round) {
        QTest::newRow(qPrintable(QString("close %1").arg(round))) << false;
        QTest::newRow(qPrintable(QString("release %1").arg(round))) << true;
    }
}

void tst_TcpServer::closeEndsEveryConnection()
{
    QFETCH(bool, release);
    const quint16 port = FakeCamera::freePort();
    RecordingSink sink;
    sink.slowReceive(200);
    TSharedPtr<ISessionServer> server = newServer();
    sink.serve(server.get(), RecordingSink::Admission::FirstOnly);
    QCOMPARE(server->open(address(port).constData(), &sink), 0);
    FakeCamera flooding;
    QVERIFY(flooding.connectToServer(port));
    flooding.startFlood(pattern(4096));
    FakeCamera waiting;
    QVERIFY(waiting.connectToServer(port));
    QTRY_VERIFY_WITH_TIMEOUT(sink.receiveCount() > 20, kWaitMs);

    if (release) {
        server.reset();
    } else {
        server->close();
    }
    sink.markClosed();
    QTRY_COMPARE_WITH_TIMEOUT(flooding.endedByPeerCount(), 1, kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(waiting.endedByPeerCount(), 1, kWaitMs);
    QCOMPARE(sink.callsAfterClose(), 0);
    QVERIFY(!sink.overlapped());

    // The port is free again at once.
    RecordingSink next;
    TSharedPtr<ISessionServer> reopened = newServer();
    QCOMPARE(reopened->open(address(port).constData(), &next), 0);
    FakeCamera camera;
    QVERIFY(camera.connectToServer(port));
    QTRY_COMPARE_WITH_TIMEOUT(next.count("connected"), 1, kWaitMs);
    reopened->close();
}

void tst_TcpServer::sendWritesEveryByte()
{
    const quint16 port = FakeCamera::freePort();
    RecordingSink sink;
    TSharedPtr<ISessionServer> server = newServer();
    sink.serve(server.get(), RecordingSink::Admission::FirstOnly);
    QCOMPARE(server->open(address(port).constData(), &sink), 0);
    FakeCamera camera;
    QVERIFY(camera.connectToServer(port));
    QTRY_VERIFY_WITH_TIMEOUT(sink.keptSession() != nullptr, kWaitMs);

    TSharedPtr<ISession> session = sink.keptSession();
    const QByteArray bytes = pattern(3 << 20);
    QCOMPARE(session->send(bytes.constData(), static_cast<std::uint32_t>(bytes.size())), 0);
    QTRY_COMPARE_WITH_TIMEOUT(camera.received().size(), bytes.size(), kWaitMs);
    QVERIFY(camera.received() == bytes);

    server->close();
    QTRY_COMPARE_WITH_TIMEOUT(camera.endedByPeerCount(), 1, kWaitMs);
    QVERIFY(session->send("x", 1) != 0);
    QCOMPARE(QString("127.0.0.1:%1").arg(session->getRemoteAddress()->getPort()), peer(camera));
}

void tst_TcpServer::finalizeEndsConnectionsAndLaterCallsAreHarmless()
{
    const quint16 port = FakeCamera::freePort();
    RecordingSink sink;
    TSharedPtr<ISessionServer> server = newServer();
    sink.serve(server.get(), RecordingSink::Admission::FirstOnly);
    QCOMPARE(server->open(address(port).constData(), &sink), 0);
    FakeCamera camera;
    QVERIFY(camera.connectToServer(port));
    camera.startFlood(pattern(1000));
    QTRY_VERIFY_WITH_TIMEOUT(sink.receiveCount() > 0, kWaitMs);
    TSharedPtr<ISession> session = sink.keptSession();
    QVERIFY(session);

    Velko::Wirelet::finalize();
    sink.markClosed();
    QTRY_COMPARE_WITH_TIMEOUT(camera.endedByPeerCount(), 1, kWaitMs);
    server->removeSession(session);
    server->close();
    QVERIFY(session->send("x", 1) != 0);
    session.reset();
    server.reset();
    QCOMPARE(sink.callsAfterClose(), 0);

    // Started again, a new server takes the same port.
    QVERIFY(Velko::Wirelet::initialize());
    RecordingSink again;
    server = newServer();
    QCOMPARE(server->open(address(port).constData(), &again), 0);
    FakeCamera next;
    QVERIFY(next.connectToServer(port));
    QTRY_COMPARE_WITH_TIMEOUT(again.count("connected"), 1, kWaitMs);
    server->close();
}

QTEST_GUILESS_MAIN(tst_TcpServer)
#include "tst_tcpserver.moc"
