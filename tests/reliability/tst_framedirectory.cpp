// The frame directory taken away under an open device, and given back.
#include "CameraProcess.h"
#include "DevicePageDriver.h"
#include "FileProbe.h"
#include "Logger.h"
#include "TCPSettingWidget.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

using namespace DevicePageDriver;

class tst_FrameDirectory final : public QObject
{
    Q_OBJECT

private slots:
    void survivesItsDirectoryGoingAway();
};

void tst_FrameDirectory::survivesItsDirectoryGoingAway()
{
    QTemporaryDir scratch;
    QVERIFY(scratch.isValid());
    const QString logPath = scratch.filePath("device.log");
    QVERIFY(Logger::open(logPath.toStdString()));
    const QString frameDir = scratch.filePath("frames");
    QVERIFY(QDir().mkpath(frameDir));

    CameraProcess camera({ "--listen", "127.0.0.1:0", "--rate", "20", "--repeat", "0", "D{seq}" });
    QVERIFY(camera.start());
    TCPSettingWidget page;
    page.setSettings(clientSettings(camera.listeningPort(), frameDir));
    QCOMPARE(buttonText(page), QStringLiteral("Disconnect"));
    QTRY_VERIFY_WITH_TIMEOUT(storedFrames(frameDir).size() >= 3, kFrameTimeoutMs);

    QVERIFY(QDir(frameDir).removeRecursively());
    const QString refusal = QStringLiteral("Could not open file %1/").arg(frameDir);
    auto refusals = [&] { return QString::fromUtf8(FileProbe::readAll(logPath)).count(refusal); };
    QTRY_VERIFY_WITH_TIMEOUT(refusals() >= 2, kFrameTimeoutMs);
    QCOMPARE(buttonText(page), QStringLiteral("Disconnect"));
    QVERIFY(!QFileInfo::exists(frameDir));

    QVERIFY(QDir().mkpath(frameDir));
    QTRY_VERIFY_WITH_TIMEOUT(storedFrames(frameDir).size() >= 3, kFrameTimeoutMs);
    QVERIFY2(camera.stop(), camera.errors().constData());

    // The frames after the gap are whole and go on in the camera's order.
    const QList<int> numbers = frameNumbers(storedFrames(frameDir), "D");
    QCOMPARE(numbers.size(), storedFrames(frameDir).size());
    for (int i = 1; i < numbers.size(); ++i) {
        QCOMPARE(numbers[i], numbers[i - 1] + 1);
    }
    QVERIFY(numbers.first() > 3);
    Logger::close();
}

QTEST_MAIN(tst_FrameDirectory)
#include "tst_framedirectory.moc"
