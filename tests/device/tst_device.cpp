#include "Device.h"
#include "FakeCamera.h"
#include "FileProbe.h"
#include "Logger.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

constexpr int kWaitMs = 10000;
const QByteArray kPrefix = "The package barcode info is :";

QStringList texts(const QSignalSpy& spy)
{
    QStringList all;
    for (const QList<QVariant>& arguments : spy) {
        all << arguments.first().toString();
    }
    return all;
}

} // namespace

// The device without its page: the open and close sequences, and waiting for a camera.
class tst_device final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void opensReceivesAndCloses_data();
    void opensReceivesAndCloses();
    void failedOpenLogsTheStoredAddress();
    void waitsForTheCamera();
    void closeEndsTheWait();

private:
    QTemporaryDir m_logDir;
    QTemporaryDir m_frames;
    std::unique_ptr<Device> m_device;
    std::unique_ptr<QSignalSpy> m_messages;
};

void tst_device::initTestCase()
{
    QVERIFY(Logger::open(m_logDir.filePath("log.txt").toStdString()));
}

void tst_device::init()
{
    m_device = std::make_unique<Device>();
    m_device->settings().fileDir = m_frames.path();
    m_messages = std::make_unique<QSignalSpy>(m_device.get(), &Device::message);
    for (const QString& name : QDir(m_frames.path()).entryList(QDir::Files)) {
        QFile::remove(m_frames.filePath(name));
    }
}

void tst_device::opensReceivesAndCloses_data()
{
    QTest::addColumn<bool>("client");
    QTest::newRow("client") << true;
    QTest::newRow("server") << false;
}

void tst_device::opensReceivesAndCloses()
{
    QFETCH(bool, client);
    FakeCamera camera;
    const quint16 port = client ? camera.listen() : FakeCamera::freePort();
    QSignalSpy received(m_device.get(), &Device::received);
    QVERIFY(m_device->open({ client, "127.0.0.1", QString::number(port), "[", "]" }));
    QVERIFY(m_device->isOpen());
    if (!client) {
        QVERIFY(camera.connectToServer(port));
    }
    QTRY_COMPARE_WITH_TIMEOUT(camera.openCount(), 1, kWaitMs);
    camera.send("x[A1]y[B2]");
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFileContents(m_frames.path()).size(), 2, kWaitMs);
    QCOMPARE(FileProbe::textFileContents(m_frames.path()), QList<QByteArray>({ kPrefix + "A1", kPrefix + "B2" }));
    QCOMPARE(texts(received).join(QString()), "x[A1]y[B2]");

    m_device->close(client);
    QVERIFY(!m_device->isOpen());
    QTRY_COMPARE_WITH_TIMEOUT(camera.endedByPeerCount(), 1, kWaitMs);
    const QString closing = client ? "Disconnected server successfully!" : "Shut down the server successfully!";
    QTRY_VERIFY_WITH_TIMEOUT(texts(*m_messages).contains(closing), kWaitMs);
}

void tst_device::failedOpenLogsTheStoredAddress()
{
    m_device->settings().tcpClientIP = "10.0.0.9";
    m_device->settings().tcpPort = "7";
    QVERIFY(!m_device->open({ true, "127.0.0.1", QString::number(FakeCamera::freePort()), "[", "]" }));
    QVERIFY(!m_device->isOpen());
    QCOMPARE(texts(*m_messages),
             QStringList({ "Failed to connect to the server.", "Disconnected server successfully!" }));
    QVERIFY(FileProbe::readAll(m_logDir.filePath("log.txt"))
                .endsWith("[INFO] open TCP client failed, ip: 10.0.0.9, port: 7.\n"));
}

void tst_device::waitsForTheCamera()
{
    const quint16 port = FakeCamera::freePort();
    QSignalSpy opened(m_device.get(), &Device::openedAfterWait);
    QVERIFY(m_device->waitForCamera({ true, "127.0.0.1", QString::number(port), "[", "]" }));
    QVERIFY(m_device->isWaiting());
    QCOMPARE(texts(*m_messages).filter("does not answer yet").size(), 1);

    FakeCamera camera;
    QCOMPARE(camera.listen(port), port);
    QTRY_COMPARE_WITH_TIMEOUT(opened.count(), 1, kWaitMs);
    QVERIFY(!m_device->isWaiting());
    camera.send("[late]");
    QTRY_COMPARE_WITH_TIMEOUT(
        FileProbe::textFileContents(m_frames.path()), QList<QByteArray>({ kPrefix + "late" }), kWaitMs);
    QCOMPARE(texts(*m_messages).filter("does not answer yet").size(), 1);
}

void tst_device::closeEndsTheWait()
{
    const quint16 port = FakeCamera::freePort();
    QVERIFY(m_device->waitForCamera({ true, "127.0.0.1", QString::number(port), "[", "]" }));
    m_device->close(true);
    QVERIFY(!m_device->isWaiting() && !m_device->isOpen());
    FakeCamera camera;
    QCOMPARE(camera.listen(port), port);
    QTest::qWait(2500); // past the library's retry interval: nothing may connect now
    QCOMPARE(camera.acceptedCount(), 0);
}

QTEST_GUILESS_MAIN(tst_device)
#include "tst_device.moc"
