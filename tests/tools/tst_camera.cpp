#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>
#include <memory>

namespace {

constexpr int kWaitMs = 10000;

// What one accepted connection brought: its bytes and the size of each read.
struct Received
{
    QByteArray bytes;
    QList<int> readSizes;
    bool closed = false;
};

// A loopback server that keeps what every connection sends, connection by connection.
class RecordingServer : public QObject
{
public:
    RecordingServer() { connect(&m_server, &QTcpServer::newConnection, this, &RecordingServer::accept); }

    bool listen(quint16 port = 0) { return m_server.listen(QHostAddress::LocalHost, port); }
    quint16 port() const { return m_server.serverPort(); }
    QString address() const { return QStringLiteral("127.0.0.1:%1").arg(port()); }

    // Stops listening and drops every connection, as a device that goes away.
    void shutDown()
    {
        m_server.close();
        for (QTcpSocket* socket : m_sockets) {
            socket->abort();
        }
    }

    QList<std::shared_ptr<Received>> connections;

private:
    void accept()
    {
        while (QTcpSocket* socket = m_server.nextPendingConnection()) {
            auto received = std::make_shared<Received>();
            connections.append(received);
            m_sockets.append(socket);
            connect(socket, &QTcpSocket::readyRead, socket, [socket, received] {
                const QByteArray bytes = socket->readAll();
                received->bytes += bytes;
                received->readSizes.append(bytes.size());
            });
            connect(socket, &QTcpSocket::disconnected, socket, [received] { received->closed = true; });
        }
    }

    QTcpServer m_server;
    QList<QTcpSocket*> m_sockets;
};

QStringList nonEmptyLines(const QByteArray& text)
{
    return QString::fromUtf8(text).split('\n', Qt::SkipEmptyParts);
}

} // namespace

class tst_Camera final : public QObject
{
    Q_OBJECT

private slots:
    void sendsWrappedFrames_data();
    void sendsWrappedFrames();
    void cutsFramesIntoChunks();
    void readsFramesFromStandardInput();
    void readsFramesFromFile();
    void serverServesOnePeerAtATime();
    void reconnectsWhenThePeerComesBack();
    void givesUpWithoutReconnect();
    void rejectsBadArguments_data();
    void rejectsBadArguments();

private:
    void start(QProcess& camera, const QStringList& arguments);
};

void tst_Camera::start(QProcess& camera, const QStringList& arguments)
{
    camera.start(QStringLiteral(TAPWRIGHT_CAMERA_PATH), arguments);
    QVERIFY2(camera.waitForStarted(kWaitMs), qPrintable(camera.errorString()));
}

void tst_Camera::sendsWrappedFrames_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("expected");
    QTest::addColumn<int>("frames");

    QTest::newRow("default brackets") << QStringList { "A1", "B2" } << QByteArray("[A1][B2]") << 2;
    QTest::newRow("repeat") << QStringList { "--repeat", "3", "X" } << QByteArray("[X][X][X]") << 3;
    QTest::newRow("escapes") << QStringList { "--start", "\\x02", "--end", "\\r\\n", "a\\tb", "c\\\\d" }
                             << QByteArray("\x02"
                                           "a\tb\r\n\x02"
                                           "c\\d\r\n")
                             << 2;
    QTest::newRow("empty wrap") << QStringList { "--start", "", "--end", "", "raw" } << QByteArray("raw") << 1;
    QTest::newRow("sequence") << QStringList { "--repeat", "2", "P{seq}", "Q" }
                              << QByteArray("[P000001][Q][P000003][Q]") << 4;
    QTest::newRow("utf-8") << QStringList { "--start", "#", "--end", "$", "\u00e9\u4e2d" }
                           << QByteArray("#\xc3\xa9\xe4\xb8\xad$") << 1;
}

void tst_Camera::sendsWrappedFrames()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, expected);
    QFETCH(int, frames);

    RecordingServer server;
    QVERIFY(server.listen());
    QProcess camera;
    start(camera, QStringList { "--connect", server.address(), "--rate", "0" } + arguments);

    QTRY_VERIFY_WITH_TIMEOUT(!server.connections.isEmpty() && server.connections[0]->closed, kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(camera.state(), QProcess::NotRunning, kWaitMs);
    QCOMPARE(camera.exitStatus(), QProcess::NormalExit);
    QCOMPARE(camera.exitCode(), 0);
    QCOMPARE(server.connections.size(), 1);
    QCOMPARE(server.connections[0]->bytes, expected);

    const QStringList lines = nonEmptyLines(camera.readAllStandardOutput());
    QCOMPARE(lines.size(), frames);
    for (int i = 0; i < lines.size(); ++i) {
        QVERIFY2(lines[i].startsWith(QString::number(i + 1) + ' '), qPrintable(lines[i]));
    }
}

void tst_Camera::cutsFramesIntoChunks()
{
    RecordingServer server;
    QVERIFY(server.listen());
    QProcess camera;
    // The gap is long beside a loopback read, so each write arrives as a read of its own.
    start(camera, { "--connect", server.address(), "--rate", "0", "--chunk", "3", "--chunk-gap", "80", "ABCDEFG" });

    QTRY_VERIFY_WITH_TIMEOUT(!server.connections.isEmpty() && server.connections[0]->closed, kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(camera.state(), QProcess::NotRunning, kWaitMs);
    QCOMPARE(camera.exitCode(), 0);
    const Received& received = *server.connections[0];
    QCOMPARE(received.bytes, QByteArray("[ABCDEFG]"));
    QVERIFY2(received.readSizes.size() >= 2, "a chunked frame arrived in one read");
    for (const int size : received.readSizes) {
        QVERIFY2(size <= 3, qPrintable(QStringLiteral("a read of %1 bytes").arg(size)));
    }
}

void tst_Camera::readsFramesFromStandardInput()
{
    RecordingServer server;
    QVERIFY(server.listen());
    QProcess camera;
    start(camera, { "--connect", server.address(), "--rate", "0", "--stdin" });

    camera.write("one\r\ntwo\n");
    QTRY_COMPARE_WITH_TIMEOUT(
        server.connections.isEmpty() ? QByteArray() : server.connections[0]->bytes, QByteArray("[one][two]"), kWaitMs);
    // Lines are sent as they come, and the last one may lack its line end.
    camera.write("\nthree");
    camera.closeWriteChannel();

    QTRY_COMPARE_WITH_TIMEOUT(camera.state(), QProcess::NotRunning, kWaitMs);
    QCOMPARE(camera.exitCode(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(server.connections[0]->closed, kWaitMs);
    QCOMPARE(server.connections[0]->bytes, QByteArray("[one][two][three]"));
}

void tst_Camera::readsFramesFromFile()
{
    QTemporaryDir dir;
    QFile file(dir.filePath("frames.txt"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("first\r\n\r\nsecond\\x41\nthird");
    file.close();

    RecordingServer server;
    QVERIFY(server.listen());
    QProcess camera;
    start(camera, { "--connect", server.address(), "--rate", "0", "--repeat", "2", "--file", file.fileName() });

    QTRY_VERIFY_WITH_TIMEOUT(!server.connections.isEmpty() && server.connections[0]->closed, kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(camera.state(), QProcess::NotRunning, kWaitMs);
    QCOMPARE(camera.exitCode(), 0);
    QCOMPARE(server.connections[0]->bytes, QByteArray("[first][secondA][third][first][secondA][third]"));
}

void tst_Camera::serverServesOnePeerAtATime()
{
    QProcess camera;
    start(camera, { "--listen", "127.0.0.1:0", "--rate", "20", "--repeat", "6", "S" });

    QByteArray errors;
    const QRegularExpression listening("listening on 127\\.0\\.0\\.1:(\\d+)");
    QTRY_VERIFY_WITH_TIMEOUT((errors += camera.readAllStandardError(), listening.match(errors).hasMatch()), kWaitMs);
    const auto port = quint16(listening.match(errors).captured(1).toUInt());

    QTcpSocket first;
    QByteArray firstBytes;
    connect(&first, &QTcpSocket::readyRead, &first, [&] { firstBytes += first.readAll(); });
    first.connectToHost(QHostAddress::LocalHost, port);
    QTRY_VERIFY_WITH_TIMEOUT(firstBytes.startsWith("[S]"), kWaitMs);

    QTcpSocket second;
    QByteArray secondBytes;
    connect(&second, &QTcpSocket::readyRead, &second, [&] { secondBytes += second.readAll(); });
    second.connectToHost(QHostAddress::LocalHost, port);
    QTRY_COMPARE_WITH_TIMEOUT(second.state(), QAbstractSocket::UnconnectedState, kWaitMs);
    QVERIFY(secondBytes.isEmpty());

    QTRY_COMPARE_WITH_TIMEOUT(first.state(), QAbstractSocket::UnconnectedState, kWaitMs);
    QCOMPARE(firstBytes, QByteArray("[S][S][S][S][S][S]"));
    QTRY_COMPARE_WITH_TIMEOUT(camera.state(), QProcess::NotRunning, kWaitMs);
    QCOMPARE(camera.exitCode(), 0);
}

void tst_Camera::reconnectsWhenThePeerComesBack()
{
    RecordingServer server;
    QVERIFY(server.listen());
    const quint16 port = server.port();
    QProcess camera;
    start(camera,
          { "--connect",
            server.address(),
            "--reconnect",
            "--interval",
            "50",
            "--rate",
            "50",
            "--repeat",
            "0",
            "--chunk",
            "4",
            "F{seq}" });

    const QRegularExpression frame("\\[F(\\d{6})\\]");
    QTRY_VERIFY_WITH_TIMEOUT(server.connections.size() == 1 && server.connections[0]->bytes.count('[') >= 3, kWaitMs);

    server.shutDown();
    QByteArray errors;
    QTRY_VERIFY_WITH_TIMEOUT((errors += camera.readAllStandardError(), errors.contains("cannot connect")), kWaitMs);
    QCOMPARE(camera.state(), QProcess::Running);

    QVERIFY(server.listen(port));
    QTRY_VERIFY_WITH_TIMEOUT(server.connections.size() == 2 && server.connections[1]->bytes.count(']') >= 3, kWaitMs);

    camera.terminate();
    QTRY_COMPARE_WITH_TIMEOUT(camera.state(), QProcess::NotRunning, kWaitMs);
    QCOMPARE(camera.exitStatus(), QProcess::NormalExit);
    QCOMPARE(camera.exitCode(), 0);
    errors += camera.readAllStandardError();
    QVERIFY2(errors.contains("stopped by signal 15"), errors.constData());

    // The new connection starts on a whole frame and the numbers go on where they stopped.
    const QString second = QString::fromLatin1(server.connections[1]->bytes);
    QVERIFY2(second.startsWith("[F"), qPrintable(second));
    int previous = 0;
    for (QRegularExpressionMatchIterator it = frame.globalMatch(second); it.hasNext();) {
        const int number = it.next().captured(1).toInt();
        QVERIFY(number > previous);
        previous = number;
    }
    const int firstInSecond = frame.match(second).captured(1).toInt();
    const int firstConnectionFrames = QString::fromLatin1(server.connections[0]->bytes).count(frame);
    QVERIFY2(firstInSecond > firstConnectionFrames, qPrintable(second));
}

void tst_Camera::givesUpWithoutReconnect()
{
    QTcpServer probe;
    QVERIFY(probe.listen(QHostAddress::LocalHost));
    const quint16 port = probe.serverPort();
    probe.close();

    QProcess camera;
    start(camera, { "--connect", QStringLiteral("127.0.0.1:%1").arg(port), "A" });
    QTRY_COMPARE_WITH_TIMEOUT(camera.state(), QProcess::NotRunning, kWaitMs);
    QCOMPARE(camera.exitCode(), 1);
    const QByteArray errors = camera.readAllStandardError();
    QVERIFY2(errors.contains("cannot connect to 127.0.0.1:"), errors.constData());
    QVERIFY2(errors.contains("--reconnect"), errors.constData());
}

void tst_Camera::rejectsBadArguments_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("message");

    QTest::newRow("no role") << QStringList { "A" } << "exactly one of --connect";
    QTest::newRow("both roles") << QStringList { "--connect", "127.0.0.1:9", "--listen", "9", "A" }
                                << "exactly one of --connect";
    QTest::newRow("no port") << QStringList { "--connect", "127.0.0.1", "A" } << "is not host:port";
    QTest::newRow("port too big") << QStringList { "--connect", "127.0.0.1:70000", "A" } << "is not a port";
    QTest::newRow("port zero") << QStringList { "--connect", "127.0.0.1:0", "A" } << "port other than 0";
    QTest::newRow("bad host") << QStringList { "--connect", "camera.example:9", "A" } << "is not an IP address";
    QTest::newRow("negative rate") << QStringList { "--listen", "0", "--rate", "-1", "A" } << "--rate needs";
    QTest::newRow("bad chunk") << QStringList { "--listen", "0", "--chunk", "x", "A" } << "--chunk needs";
    QTest::newRow("zero interval") << QStringList { "--listen", "0", "--interval", "0", "A" } << "--interval needs";
    QTest::newRow("no frames") << QStringList { "--listen", "0" } << "give frames in exactly one way";
    QTest::newRow("two sources") << QStringList { "--listen", "0", "--stdin", "A" } << "give frames in exactly one way";
    QTest::newRow("missing file") << QStringList { "--listen", "0", "--file", "/nonexistent/frames" }
                                  << "cannot read /nonexistent/frames";
    QTest::newRow("bad escape") << QStringList { "--listen", "0", "--end", "\\q", "A" } << "unknown escape \\q";
    QTest::newRow("short hex") << QStringList { "--listen", "0", "A\\x4" } << "\\x needs two hex digits";
    QTest::newRow("unknown option") << QStringList { "--listen", "0", "--speed", "3", "A" } << "Unknown option";
}

void tst_Camera::rejectsBadArguments()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, message);

    QProcess camera;
    start(camera, arguments);
    QTRY_COMPARE_WITH_TIMEOUT(camera.state(), QProcess::NotRunning, kWaitMs);
    QCOMPARE(camera.exitStatus(), QProcess::NormalExit);
    QCOMPARE(camera.exitCode(), 2);
    const QString errors = QString::fromUtf8(camera.readAllStandardError());
    QVERIFY2(errors.contains(message), qPrintable(errors));
    QVERIFY2(errors.contains("--help"), qPrintable(errors));
}

QTEST_GUILESS_MAIN(tst_Camera)
#include "tst_camera.moc"
