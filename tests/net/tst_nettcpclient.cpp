#include "ChunkRecorder.h"
#include "FakeCamera.h"
#include "NetTcpClient.h"

#include <QtTest>

using Velko::Memory::TSharedPtr;
using Velko::Wirelet::CMemoryPacket;
using Velko::Wirelet::ISessionClient;

namespace {

constexpr int kWaitMs = 10000;

QByteArray pattern(int size)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>((i * 31 + i / 1021) & 0xff);
    }
    return bytes;
}

} // namespace

class tst_NetTcpClient final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void closeWithoutOpenSaysNothing();
    void failedConnectThenClose_data();
    void failedConnectThenClose();
    void streamsExactBytesWithATrailingZero();
    void skipsEmptyChunks_data();
    void skipsEmptyChunks();
    void followsTheCameraAwayAndBack();
    void closeStopsReconnecting();
    void noCallbackOnceClosed_data();
    void noCallbackOnceClosed();
    void closeAfterFinalizeIsHarmless();

private:
    void watch(NetTcpClient& client);

    QStringList m_messages;
};

void tst_NetTcpClient::initTestCase()
{
    QVERIFY(Velko::Wirelet::initialize());
}

void tst_NetTcpClient::init()
{
    m_messages.clear();
}

void tst_NetTcpClient::cleanupTestCase()
{
    Velko::Wirelet::finalize();
}

void tst_NetTcpClient::watch(NetTcpClient& client)
{
    // As on the device page: messages from the library's threads arrive queued on this thread.
    connect(&client, &NetTcpClient::sendMsgSig, this, [this](const QString& msg) { m_messages.append(msg); });
}

void tst_NetTcpClient::closeWithoutOpenSaysNothing()
{
    NetTcpClient client(nullptr);
    watch(client);
    QCOMPARE(client.close(), 1);
    QCOMPARE(client.send("x", 1), 1);
    QCoreApplication::processEvents();
    QVERIFY(m_messages.isEmpty());
}

void tst_NetTcpClient::failedConnectThenClose_data()
{
    QTest::addColumn<QString>("ip");
    QTest::addColumn<QString>("port");
    QTest::newRow("refused") << "127.0.0.1" << QString::number(FakeCamera::freePort());
    QTest::newRow("empty") << ""
                           << "";
    QTest::newRow("three parts") << "1.2.3"
                                 << "80";
    QTest::newRow("port too big") << "127.0.0.1"
                                  << "99999";
    QTest::newRow("names") << "x"
                           << "y";
}

void tst_NetTcpClient::failedConnectThenClose()
{
    QFETCH(QString, ip);
    QFETCH(QString, port);
    NetTcpClient client(nullptr);
    watch(client);
    QCOMPARE(client.open(ip, port), 1);
    QCOMPARE(client.send("x", 1), 1);
    QCOMPARE(client.close(), 0);
    QCOMPARE(client.close(), 1);
    QCoreApplication::processEvents();
    QCOMPARE(m_messages, (QStringList { "Failed to connect to the server.", "Disconnected server successfully!" }));
}

void tst_NetTcpClient::streamsExactBytesWithATrailingZero()
{
    FakeCamera camera;
    const quint16 port = camera.listen();
    ChunkRecorder recorder;
    NetTcpClient client(nullptr);
    QCOMPARE(client.setDataCallback(&ChunkRecorder::record, &recorder), 0);
    watch(client);
    QCOMPARE(client.open("127.0.0.1", QString::number(port)), 0);
    const QString peer = QString("127.0.0.1:%1").arg(port);
    QTRY_COMPARE_WITH_TIMEOUT(
        m_messages,
        (QStringList { "Link to server successfully!",
                       QString("This device is successfully connected to camera %1 !").arg(peer) }),
        kWaitMs);

    QByteArray stream("\0head\0", 6);
    stream += pattern(300000);
    camera.send(stream.left(6));
    camera.send(stream.mid(6));
    QTRY_COMPARE_WITH_TIMEOUT(recorder.bytes().size(), stream.size(), kWaitMs);
    QVERIFY(recorder.bytes() == stream);
    QCOMPARE(recorder.unterminated(), 0);
    QVERIFY(!recorder.overlapped());

    QCOMPARE(client.send("reply", 5), 0);
    QTRY_COMPARE_WITH_TIMEOUT(camera.received(), QByteArray("reply"), kWaitMs);
    QCOMPARE(client.close(), 0);
    QCOMPARE(m_messages.last(), QString("Disconnected server successfully!"));
}

void tst_NetTcpClient::skipsEmptyChunks_data()
{
    QTest::addColumn<bool>("withCallback");
    QTest::newRow("with callback") << true;
    QTest::newRow("without callback") << false;
}

void tst_NetTcpClient::skipsEmptyChunks()
{
    QFETCH(bool, withCallback);
    ChunkRecorder recorder;
    NetTcpClient client(nullptr);
    if (withCallback) {
        client.setDataCallback(&ChunkRecorder::record, &recorder);
    }
    TSharedPtr<ISessionClient> noSession;
    auto empty = std::make_shared<CMemoryPacket>("", 0);
    client.onReceive(noSession, empty);
    QCOMPARE(recorder.calls(), 0);

    auto zeros = std::make_shared<CMemoryPacket>("\0\0\0", 3);
    client.onReceive(noSession, zeros);
    QCOMPARE(recorder.calls(), withCallback ? 1 : 0);
    QCOMPARE(recorder.bytes(), withCallback ? QByteArray("\0\0\0", 3) : QByteArray());
    QCOMPARE(recorder.unterminated(), 0);
}

void tst_NetTcpClient::followsTheCameraAwayAndBack()
{
    FakeCamera camera;
    const quint16 port = camera.listen();
    ChunkRecorder recorder;
    NetTcpClient client(nullptr);
    client.setDataCallback(&ChunkRecorder::record, &recorder);
    watch(client);
    QCOMPARE(client.open("127.0.0.1", QString::number(port)), 0);
    const QString connected = QString("This device is successfully connected to camera 127.0.0.1:%1 !").arg(port);
    const QString disconnected = QString("This device is disconnected from camera 127.0.0.1:%1 !").arg(port);
    QTRY_COMPARE_WITH_TIMEOUT(m_messages.count(connected), 1, kWaitMs);

    camera.stopListening();
    camera.dropConnections();
    QTRY_COMPARE_WITH_TIMEOUT(m_messages.count(disconnected), 1, kWaitMs);
    QCOMPARE(client.send("x", 1), 1);

    QCOMPARE(camera.listen(port), port);
    QTRY_COMPARE_WITH_TIMEOUT(m_messages.count(connected), 2, kWaitMs);
    QCOMPARE(m_messages, (QStringList { "Link to server successfully!", connected, disconnected, connected }));
    QTRY_COMPARE_WITH_TIMEOUT(camera.openCount(), 1, kWaitMs);
    camera.send("back");
    QTRY_COMPARE_WITH_TIMEOUT(recorder.bytes(), QByteArray("back"), kWaitMs);
    QCOMPARE(client.send("x", 1), 0);
    QCOMPARE(client.close(), 0);
}

void tst_NetTcpClient::closeStopsReconnecting()
{
    FakeCamera camera;
    const quint16 port = camera.listen();
    NetTcpClient client(nullptr);
    watch(client);
    QCOMPARE(client.open("127.0.0.1", QString::number(port)), 0);
    camera.setDropOnAccept(true);
    camera.dropConnections();
    QTRY_VERIFY_WITH_TIMEOUT(camera.acceptedCount() >= 3, kWaitMs);

    QCOMPARE(client.close(), 0);
    const int accepted = camera.acceptedCount();
    // Retries come every second: two and a half quiet seconds show that they have stopped.
    QTest::qWait(2500);
    QCOMPARE(camera.acceptedCount(), accepted);
    QCOMPARE(m_messages.last(), QString("Disconnected server successfully!"));
}

void tst_NetTcpClient::noCallbackOnceClosed_data()
{
    QTest::addColumn<int>("round");
    for (int round = 0; round < 5; ++round) {
        QTest::newRow(qPrintable(QString("round %1").arg(round))) << round;
    }
}

void tst_NetTcpClient::noCallbackOnceClosed()
{
    FakeCamera camera;
    const quint16 port = camera.listen();
    ChunkRecorder recorder;
    NetTcpClient client(nullptr);
    client.setDataCallback(&ChunkRecorder::record, &recorder);
    QCOMPARE(client.open("127.0.0.1", QString::number(port)), 0);
    camera.startFlood(pattern(8192));
    QTRY_VERIFY_WITH_TIMEOUT(recorder.calls() > 50, kWaitMs);

    QCOMPARE(client.close(), 0);
    recorder.markClosed();
    QTRY_COMPARE_WITH_TIMEOUT(camera.endedByPeerCount(), 1, kWaitMs);
    QCOMPARE(recorder.callsAfterClose(), 0);
    QVERIFY(!recorder.overlapped());
    QCOMPARE(recorder.unterminated(), 0);
}

void tst_NetTcpClient::closeAfterFinalizeIsHarmless()
{
    FakeCamera camera;
    const quint16 port = camera.listen();
    ChunkRecorder recorder;
    auto* client = new NetTcpClient(nullptr);
    client->setDataCallback(&ChunkRecorder::record, &recorder);
    QCOMPARE(client->open("127.0.0.1", QString::number(port)), 0);
    camera.startFlood(pattern(1000));
    QTRY_VERIFY_WITH_TIMEOUT(recorder.calls() > 0, kWaitMs);

    Velko::Wirelet::finalize();
    recorder.markClosed();
    QCOMPARE(client->close(), 0);
    QCOMPARE(client->send("x", 1), 1);
    delete client;
    QTRY_COMPARE_WITH_TIMEOUT(camera.endedByPeerCount(), 1, kWaitMs);
    QCOMPARE(recorder.callsAfterClose(), 0);

    // open starts the library again.
    NetTcpClient again(nullptr);
    watch(again);
    QCOMPARE(again.open("127.0.0.1", QString::number(port)), 0);
    QCOMPARE(again.close(), 0);
}

QTEST_GUILESS_MAIN(tst_NetTcpClient)
#include "tst_nettcpclient.moc"
