// A server device whose camera streams while strangers keep knocking.
#include "CameraProcess.h"
#include "DevicePageDriver.h"
#include "TCPSettingWidget.h"

#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

using namespace DevicePageDriver;

class tst_ServerIntrusion final : public QObject
{
    Q_OBJECT

private slots:
    void keepsItsCameraThroughAThousandIntruders();
};

void tst_ServerIntrusion::keepsItsCameraThroughAThousandIntruders()
{
    constexpr int kIntruders = 1000;
    constexpr int kAtOnce = 40;
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const quint16 port = CameraProcess::freePort();

    TCPSettingWidget page;
    openLoopbackServer(page, port, dir.path());
    QCOMPARE(buttonText(page), QStringLiteral("Close"));

    // No --reconnect: if the device ever drops the camera, the camera ends with an error.
    CameraProcess camera(
        { "--connect", QStringLiteral("127.0.0.1:%1").arg(port), "--rate", "50", "--repeat", "0", "C{seq}" });
    QVERIFY(camera.start());
    QTRY_VERIFY_WITH_TIMEOUT(!storedFrames(dir.path()).isEmpty(), kFrameTimeoutMs);

    int started = 0;
    int turnedAway = 0;
    int refused = 0;
    std::function<void()> knock = [&] {
        auto* intruder = new QTcpSocket(this);
        ++started;
        connect(intruder, &QTcpSocket::connected, intruder, [intruder] { intruder->write("[EVIL]"); });
        connect(intruder, &QTcpSocket::disconnected, intruder, [&, intruder] {
            ++turnedAway;
            intruder->deleteLater();
            if (started < kIntruders) {
                knock();
            }
        });
        connect(intruder, &QTcpSocket::errorOccurred, intruder, [&, intruder] {
            if (intruder->state() != QAbstractSocket::ConnectedState
                && intruder->error() == QAbstractSocket::ConnectionRefusedError) {
                ++refused;
            }
        });
        intruder->connectToHost(QHostAddress::LocalHost, port);
    };
    for (int i = 0; i < kAtOnce; ++i) {
        knock();
    }
    QTRY_VERIFY_WITH_TIMEOUT(turnedAway + refused >= kIntruders, 120000);
    QCOMPARE(refused, 0);

    const int framesBefore = storedFrames(dir.path()).size();
    QTRY_VERIFY_WITH_TIMEOUT(storedFrames(dir.path()).size() >= framesBefore + 5, kFrameTimeoutMs);
    QVERIFY2(camera.stop(), camera.errors().constData());
    QCOMPARE(buttonText(page), QStringLiteral("Close"));

    QStringList expected;
    for (const QString& frame : camera.sentFrames()) {
        expected.append(frame.mid(1, frame.size() - 2));
    }
    QTRY_COMPARE_WITH_TIMEOUT(storedFrames(dir.path()).size(), expected.size(), kFrameTimeoutMs);
    QStringList stored = storedFrames(dir.path());
    stored.sort();
    expected.sort();
    QCOMPARE(stored, expected);
    qInfo("%d intruders turned away while %d frames arrived", turnedAway, int(stored.size()));
}

QTEST_MAIN(tst_ServerIntrusion)
#include "tst_serverintrusion.moc"
