#include "FakeCamera.h"
#include "RecordingSink.h"
#include "Wirelet.h"

#include <QtTest>

using Velko::Memory::TSharedPtr;
using Velko::Wirelet::CSessionFactory;
using Velko::Wirelet::ISessionClient;

namespace {

constexpr int kWaitMs = 10000;

QByteArray address(quint16 port)
{
    return "127.0.0.1:" + QByteArray::number(port);
}

// Bytes of every value, zero included, in a run long enough to span many reads.
QByteArray pattern(int size)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>((i * 7 + i / 251) & 0xff);
    }
    return bytes;
}

TSharedPtr<ISessionClient> newClient()
{
    TSharedPtr<ISessionClient> client;
    if (CSessionFactory::instance().createTcpClient(false, client) != 0) {
        return nullptr;
    }
    return client;
}

} // namespace

class tst_TcpClientSession final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void refusesAddressesThatDoNotParse_data();
    void refusesAddressesThatDoNotParse();
    void failedFirstConnectIsNotRetried();
    void deliversTheStreamInOrder();
    void reconnectsOnTheSameSession();
    void closeStopsTheRetries();
    void noSinkCallOnceClosed_data();
    void noSinkCallOnceClosed();
    void sendWritesEveryByte();
    void finalizeEndsConnectionsAndLaterCallsAreHarmless();
};

void tst_TcpClientSession::initTestCase()
{
    QVERIFY(Velko::Wirelet::initialize());
    QVERIFY(Velko::Wirelet::initialize());
}

void tst_TcpClientSession::cleanupTestCase()
{
    Velko::Wirelet::finalize();
}

void tst_TcpClientSession::refusesAddressesThatDoNotParse_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("three parts") << QByteArray("1.2.3:80");
    QTest::newRow("port too big") << QByteArray("127.0.0.1:99999");
    QTest::newRow("names") << QByteArray("x:y");
    QTest::newRow("no port") << QByteArray("127.0.0.1");
    QTest::newRow("empty port") << QByteArray("127.0.0.1:");
    QTest::newRow("port with letters") << QByteArray("127.0.0.1:80x");
    QTest::newRow("octet too big") << QByteArray("256.0.0.1:80");
    QTest::newRow("signed port") << QByteArray("127.0.0.1:-1");
}

void tst_TcpClientSession::refusesAddressesThatDoNotParse()
{
    QFETCH(QByteArray, text);
    RecordingSink sink;
    TSharedPtr<ISessionClient> client = newClient();
    QVERIFY(client);
    QVERIFY(client->connect(text.constData(), true, &sink) != 0);
    QCOMPARE(QByteArray(client->getRemoteAddress()->getIP()), QByteArray());
    QCOMPARE(client->close(), 0);
    QVERIFY(sink.events().isEmpty());
}

void tst_TcpClientSession::failedFirstConnectIsNotRetried()
{
    const quint16 port = FakeCamera::freePort();
    RecordingSink sink;
    TSharedPtr<ISessionClient> client = newClient();
    QVERIFY(client->connect(address(port).constData(), true, &sink) != 0);

    // Had the failure been retried, this camera would be found within a second.
    FakeCamera camera;
    QCOMPARE(camera.listen(port), port);
    QTest::qWait(1500);
    QCOMPARE(camera.acceptedCount(), 0);
    QVERIFY(sink.events().isEmpty());
    QCOMPARE(client->close(), 0);
}

void tst_TcpClientSession::deliversTheStreamInOrder()
{
    FakeCamera camera;
    const quint16 port = camera.listen();
    RecordingSink sink;
    TSharedPtr<ISessionClient> client = newClient();
    QCOMPARE(client->connect(address(port).constData(), true, &sink), 0);
    QTRY_COMPARE_WITH_TIMEOUT(sink.events(), QStringList { QString("connected 127.0.0.1:%1").arg(port) }, kWaitMs);
    QCOMPARE(sink.lastSession(), static_cast<const void*>(client.get()));

    const QByteArray stream = pattern(1 << 20);
    for (int offset = 0; offset < stream.size(); offset += 100000) {
        camera.send(stream.mid(offset, 100000));
    }
    QTRY_COMPARE_WITH_TIMEOUT(sink.received().size(), stream.size(), kWaitMs);
    QVERIFY(sink.received() == stream);
    QVERIFY(sink.receiveCount() > 1);
    QVERIFY(!sink.overlapped());
    QCOMPARE(client->close(), 0);
    QVERIFY(client->close() != 0);
}

void tst_TcpClientSession::reconnectsOnTheSameSession()
{
    FakeCamera camera;
    const quint16 port = camera.listen();
    RecordingSink sink;
    TSharedPtr<ISessionClient> client = newClient();
    QCOMPARE(client->connect(address(port).constData(), true, &sink), 0);
    QTRY_COMPARE_WITH_TIMEOUT(camera.openCount(), 1, kWaitMs);
    QCOMPARE(client->send("a", 1), 0);

    camera.stopListening();
    camera.dropConnections();
    QTRY_COMPARE_WITH_TIMEOUT(sink.count("disconnected"), 1, kWaitMs);
    QVERIFY(client->send("b", 1) != 0);

    QCOMPARE(camera.listen(port), port);
    QTRY_COMPARE_WITH_TIMEOUT(sink.count("connected"), 2, kWaitMs);
    const QString peer = QString("127.0.0.1:%1").arg(port);
    QCOMPARE(sink.events(), (QStringList { "connected " + peer, "disconnected " + peer, "connected " + peer }));
    QCOMPARE(sink.lastSession(), static_cast<const void*>(client.get()));

    QTRY_COMPARE_WITH_TIMEOUT(camera.openCount(), 1, kWaitMs);
    camera.send("after");
    QTRY_COMPARE_WITH_TIMEOUT(sink.received(), QByteArray("after"), kWaitMs);
    QVERIFY(!sink.overlapped());
    QCOMPARE(client->close(), 0);
}

void tst_TcpClientSession::closeStopsTheRetries()
{
    FakeCamera camera;
    const quint16 port = camera.listen();
    RecordingSink sink;
    TSharedPtr<ISessionClient> client = newClient();
    QCOMPARE(client->connect(address(port).constData(), true, &sink), 0);
    camera.setDropOnAccept(true);
    camera.dropConnections();
    QTRY_VERIFY_WITH_TIMEOUT(camera.acceptedCount() >= 3, kWaitMs);

    QCOMPARE(client->close(), 0);
    sink.markClosed();
    const int accepted = camera.acceptedCount();
    // Retries come every second: two and a half quiet seconds show that they have stopped.
    QTest::qWait(2500);
    QCOMPARE(camera.acceptedCount(), accepted);
    QCOMPARE(sink.callsAfterClose(), 0);
    QVERIFY(!sink.overlapped());
}

void tst_TcpClientSession::noSinkCallOnceClosed_data()
{
    QTest::addColumn<bool>("release");
    for (int round = 0; round < 4; ++round) {
        QTest::newRow(qPrintable(QString("close %1").arg(round))) << false;
        QTest::newRow(qPrintable(QString("release %1").arg(round))) << true;
    }
}

void tst_TcpClientSession::noSinkCallOnceClosed()
{
    QFETCH(bool, release);
    FakeCamera camera;
    const quint16 port = camera.listen();
    RecordingSink sink;
    sink.slowReceive(200);
    TSharedPtr<ISessionClient> client = newClient();
    QCOMPARE(client->connect(address(port).constData(), true, &sink), 0);
    camera.startFlood(pattern(4096));
    QTRY_VERIFY_WITH_TIMEOUT(sink.receiveCount() > 20, kWaitMs);

    if (release) {
        client.reset();
    } else {
        QCOMPARE(client->close(), 0);
    }
    sink.markClosed();
    QTRY_COMPARE_WITH_TIMEOUT(camera.endedByPeerCount(), 1, kWaitMs);
    QCOMPARE(sink.callsAfterClose(), 0);
    QVERIFY(!sink.overlapped());
}

void tst_TcpClientSession::sendWritesEveryByte()
{
    FakeCamera camera;
    const quint16 port = camera.listen();
    RecordingSink sink;
    TSharedPtr<ISessionClient> client = newClient();
    QVERIFY(client->send("x", 1) != 0);
    QCOMPARE(client->connect(address(port).constData(), true, &sink), 0);

    const QByteArray bytes = pattern(3 << 20);
    QCOMPARE(client->send(bytes.constData(), static_cast<std::uint32_t>(bytes.size())), 0);
    QCOMPARE(client->send("", 0), 0);
    QTRY_COMPARE_WITH_TIMEOUT(camera.received().size(), bytes.size(), kWaitMs);
    QVERIFY(camera.received() == bytes);
    QCOMPARE(client->close(), 0);
    QVERIFY(client->send("x", 1) != 0);
}

void tst_TcpClientSession::finalizeEndsConnectionsAndLaterCallsAreHarmless()
{
    FakeCamera camera;
    const quint16 port = camera.listen();
    RecordingSink sink;
    TSharedPtr<ISessionClient> client = newClient();
    QCOMPARE(client->connect(address(port).constData(), true, &sink), 0);
    camera.startFlood(pattern(1000));
    QTRY_VERIFY_WITH_TIMEOUT(sink.receiveCount() > 0, kWaitMs);

    Velko::Wirelet::finalize();
    sink.markClosed();
    Velko::Wirelet::finalize();
    QTRY_COMPARE_WITH_TIMEOUT(camera.endedByPeerCount(), 1, kWaitMs);
    QCOMPARE(client->close(), 0);
    QVERIFY(client->send("x", 1) != 0);
    QVERIFY(client->connect(address(port).constData(), true, &sink) != 0);
    client.reset();
    TSharedPtr<ISessionClient> none;
    QVERIFY(CSessionFactory::instance().createTcpClient(false, none) != 0);
    QCOMPARE(sink.callsAfterClose(), 0);

    // Started again, the library serves new sessions as before.
    camera.stopFlood();
    QVERIFY(Velko::Wirelet::initialize());
    RecordingSink again;
    client = newClient();
    QVERIFY(client);
    QCOMPARE(client->connect(address(port).constData(), true, &again), 0);
    QTRY_COMPARE_WITH_TIMEOUT(again.count("connected"), 1, kWaitMs);
    QCOMPARE(client->close(), 0);
}

QTEST_GUILESS_MAIN(tst_TcpClientSession)
#include "tst_tcpclientsession.moc"
