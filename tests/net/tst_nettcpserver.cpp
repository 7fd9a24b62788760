#include "ChunkRecorder.h"
#include "FakeCamera.h"
#include "NetTCPServer.h"

#include <QtTest>
#include <mutex>

namespace {

constexpr int kWaitMs = 10000;

QByteArray pattern(int size)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>((i * 17 + i / 2039) & 0xff);
    }
    return bytes;
}

// The server writes a trace line per chunk: keep those out of the output and count them.
std::mutex tracesMutex;
QStringList traces;
QtMessageHandler previousHandler = nullptr;

void collectTraces(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (type == QtInfoMsg && message.startsWith("onReceive data size: ")) {
        std::lock_guard<std::mutex> lock(tracesMutex);
        if (traces.size() < 100) {
            traces.append(message);
        }
        return;
    }
    previousHandler(type, context, message);
}

QStringList takeTraces()
{
    std::lock_guard<std::mutex> lock(tracesMutex);
    QStringList taken;
    taken.swap(traces);
    return taken;
}

QString cameraConnected(const FakeCamera& camera)
{
    return QString("Camera 127.0.0.1:%1 connected to the server successfully!").arg(camera.localPort());
}

QString cameraGone(const FakeCamera& camera)
{
    return QString("The camera 127.0.0.1:%1 is disconnected from the server!").arg(camera.localPort());
}

} // namespace

class tst_NetTCPServer final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void closeWithoutOpen();
    void failedOpenThenClose_data();
    void failedOpenThenClose();
    void takesOneCameraAtATime();
    void sendReachesTheCamera();
    void closeEndsTheCameraAndFreesThePort();
    void noCallbackOnceClosed_data();
    void noCallbackOnceClosed();
    void closeAfterFinalizeIsHarmless();

private:
    void watch(NetTCPServer& server);

    QStringList m_messages;
};

void tst_NetTCPServer::initTestCase()
{
    previousHandler = qInstallMessageHandler(collectTraces);
    QVERIFY(Velko::Wirelet::initialize());
}

void tst_NetTCPServer::init()
{
    m_messages.clear();
    takeTraces();
}

void tst_NetTCPServer::cleanupTestCase()
{
    Velko::Wirelet::finalize();
    qInstallMessageHandler(previousHandler);
}

void tst_NetTCPServer::watch(NetTCPServer& server)
{
    // As on the device page: messages from the library's threads arrive queued on this thread.
    connect(&server, &NetTCPServer::sendMsgSig, this, [this](const QString& msg) { m_messages.append(msg); });
}

void tst_NetTCPServer::closeWithoutOpen()
{
    NetTCPServer server(nullptr);
    watch(server);
    QCOMPARE(server.send("x", 1), 1);
    QCOMPARE(server.close(), 0);
    QCOMPARE(m_messages, QStringList { "Shut down the server successfully!" });
}

void tst_NetTCPServer::failedOpenThenClose_data()
{
    QTest::addColumn<QString>("ip");
    QTest::addColumn<QString>("port");
    QTest::newRow("empty") << ""
                           << "";
    QTest::newRow("three parts") << "1.2.3"
                                 << "80";
    QTest::newRow("port too big") << "127.0.0.1"
                                  << "99999";
    QTest::newRow("names") << "x"
                           << "y";
}

void tst_NetTCPServer::failedOpenThenClose()
{
    QFETCH(QString, ip);
    QFETCH(QString, port);
    NetTCPServer server(nullptr);
    watch(server);
    QCOMPARE(server.open(ip, port), 1);
    QCOMPARE(server.close(), 0);
    QCOMPARE(m_messages, (QStringList { "Failed to open the server!", "Shut down the server successfully!" }));
}

void tst_NetTCPServer::takesOneCameraAtATime()
{
    const quint16 port = FakeCamera::freePort();
    ChunkRecorder recorder;
    NetTCPServer server(nullptr);
    server.setDataCallback(&ChunkRecorder::record, &recorder);
    watch(server);
    QCOMPARE(server.open("127.0.0.1", QString::number(port)), 0);

    FakeCamera first;
    QVERIFY(first.connectToServer(port));
    QTRY_COMPARE_WITH_TIMEOUT(
        m_messages, (QStringList { "Opening the server successfully!", cameraConnected(first) }), kWaitMs);
    first.send("hello");
    QTRY_COMPARE_WITH_TIMEOUT(recorder.bytes(), QByteArray("hello"), kWaitMs);
    QCOMPARE(takeTraces(), QStringList { "onReceive data size: 5\n" });

    FakeCamera second;
    QVERIFY(second.connectToServer(port));
    QTRY_COMPARE_WITH_TIMEOUT(second.endedByPeerCount(), 1, kWaitMs);
    second.send("ignored");
    first.send(QByteArray("\0more", 5));
    QTRY_COMPARE_WITH_TIMEOUT(recorder.bytes(), QByteArray("hello\0more", 10), kWaitMs);
    QCOMPARE(first.endedByPeerCount(), 0);
    QCOMPARE(m_messages.size(), 2);

    first.dropConnections();
    QTRY_COMPARE_WITH_TIMEOUT(m_messages.size(), 3, kWaitMs);
    QCOMPARE(m_messages.last(), cameraGone(first));

    FakeCamera third;
    QVERIFY(third.connectToServer(port));
    QTRY_COMPARE_WITH_TIMEOUT(m_messages.size(), 4, kWaitMs);
    QCOMPARE(m_messages.last(), cameraConnected(third));
    third.send("third");
    QTRY_COMPARE_WITH_TIMEOUT(recorder.bytes(), QByteArray("hello\0morethird", 15), kWaitMs);
    QCOMPARE(recorder.unterminated(), 0);
    QVERIFY(!recorder.overlapped());

    QCOMPARE(server.close(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(third.endedByPeerCount(), 1, kWaitMs);
    QCOMPARE(m_messages.last(), QString("Shut down the server successfully!"));
}

void tst_NetTCPServer::sendReachesTheCamera()
{
    const quint16 port = FakeCamera::freePort();
    NetTCPServer server(nullptr);
    watch(server);
    QCOMPARE(server.open("127.0.0.1", QString::number(port)), 0);
    QCOMPARE(server.send("x", 1), 1);
    FakeCamera camera;
    QVERIFY(camera.connectToServer(port));
    QTRY_COMPARE_WITH_TIMEOUT(m_messages.size(), 2, kWaitMs);

    const QByteArray bytes = pattern(1 << 20);
    QCOMPARE(server.send(bytes.constData(), static_cast<std::uint32_t>(bytes.size())), 0);
    QTRY_COMPARE_WITH_TIMEOUT(camera.received().size(), bytes.size(), kWaitMs);
    QVERIFY(camera.received() == bytes);
    QCOMPARE(server.close(), 0);
    QCOMPARE(server.send("x", 1), 1);
}

void tst_NetTCPServer::closeEndsTheCameraAndFreesThePort()
{
    const quint16 port = FakeCamera::freePort();
    NetTCPServer server(nullptr);
    watch(server);
    QCOMPARE(server.open("127.0.0.1", QString::number(port)), 0);
    FakeCamera camera;
    QVERIFY(camera.connectToServer(port));
    QTRY_COMPARE_WITH_TIMEOUT(m_messages.size(), 2, kWaitMs);

    QCOMPARE(server.close(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(camera.endedByPeerCount(), 1, kWaitMs);

    QCOMPARE(server.open("127.0.0.1", QString::number(port)), 0);
    FakeCamera next;
    QVERIFY(next.connectToServer(port));
    QTRY_COMPARE_WITH_TIMEOUT(m_messages.last(), cameraConnected(next), kWaitMs);
    QCOMPARE(server.close(), 0);
    QCOMPARE(m_messages,
             (QStringList { "Opening the server successfully!",
                            cameraConnected(camera),
                            "Shut down the server successfully!",
                            "Opening the server successfully!",
                            cameraConnected(next),
                            "Shut down the server successfully!" }));
}

void tst_NetTCPServer::noCallbackOnceClosed_data()
{
    QTest::addColumn<int>("round");
    for (int round = 0; round < 5; ++round) {
        QTest::newRow(qPrintable(QString("round %1").arg(round))) << round;
    }
}

void tst_NetTCPServer::noCallbackOnceClosed()
{
    const quint16 port = FakeCamera::freePort();
    ChunkRecorder recorder;
    NetTCPServer server(nullptr);
    server.setDataCallback(&ChunkRecorder::record, &recorder);
    QCOMPARE(server.open("127.0.0.1", QString::number(port)), 0);
    FakeCamera camera;
    QVERIFY(camera.connectToServer(port));
    camera.startFlood(pattern(8192));
    FakeCamera turnedAway;
    QVERIFY(turnedAway.connectToServer(port));
    QTRY_VERIFY_WITH_TIMEOUT(recorder.calls() > 50, kWaitMs);

    QCOMPARE(server.close(), 0);
    recorder.markClosed();
    QTRY_COMPARE_WITH_TIMEOUT(camera.endedByPeerCount(), 1, kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(turnedAway.endedByPeerCount(), 1, kWaitMs);
    QCOMPARE(recorder.callsAfterClose(), 0);
    QVERIFY(!recorder.overlapped());
}

void tst_NetTCPServer::closeAfterFinalizeIsHarmless()
{
    const quint16 port = FakeCamera::freePort();
    ChunkRecorder recorder;
    auto* server = new NetTCPServer(nullptr);
    server->setDataCallback(&ChunkRecorder::record, &recorder);
    QCOMPARE(server->open("127.0.0.1", QString::number(port)), 0);
    FakeCamera camera;
    QVERIFY(camera.connectToServer(port));
    camera.startFlood(pattern(1000));
    QTRY_VERIFY_WITH_TIMEOUT(recorder.calls() > 0, kWaitMs);

    Velko::Wirelet::finalize();
    recorder.markClosed();
    QTRY_COMPARE_WITH_TIMEOUT(camera.endedByPeerCount(), 1, kWaitMs);
    QCOMPARE(server->close(), 0);
    QCOMPARE(server->send("x", 1), 1);
    delete server;
    QCOMPARE(recorder.callsAfterClose(), 0);

    // open starts the library again.
    NetTCPServer again(nullptr);
    watch(again);
    QCOMPARE(again.open("127.0.0.1", QString::number(port)), 0);
    QCOMPARE(again.close(), 0);
}

QTEST_GUILESS_MAIN(tst_NetTCPServer)
#include "tst_nettcpserver.moc"
