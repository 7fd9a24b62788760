// Device pages on loopback, worked as an operator does, against a camera that restarts, strangers
// that knock, and a frame directory that goes away.
#include "FakeCamera.h"
#include "FileProbe.h"
#include "Logger.h"
#include "TCPSettingWidget.h"

#include <QAbstractButton>
#include <QDir>
#include <QLineEdit>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// Opens the page on 127.0.0.1 (also as a server, where it fills in the machine's address).
void openPage(TCPSettingWidget& page, int tcpType, quint16 port, const QString& dir)
{
    page.setSettings({ 0, tcpType, QString::number(port), "", dir, "[", "]" });
    page.findChild<QLineEdit*>("lineEdit_IP")->setText("127.0.0.1");
    page.findChild<QAbstractButton*>("openTcpBtn")->click();
}

// Sends a frame and waits until it is stored, so that each frame file has a name of its own.
void store(FakeCamera& camera, const QString& dir, QList<QByteArray>& stored, const QByteArray& frame)
{
    camera.send("[" + frame + "]");
    stored.append("The package barcode info is :" + frame);
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFileContents(dir), stored, 20000);
}

} // namespace

class tst_Reliability final : public QObject
{
    Q_OBJECT

private slots:
    void devicesKeepTheirCameras();
};

void tst_Reliability::devicesKeepTheirCameras()
{
    QTemporaryDir scratch;
    const QString clientDir = scratch.filePath("client");
    const QString serverDir = scratch.filePath("server");
    QVERIFY(QDir().mkpath(clientDir) && QDir().mkpath(serverDir)
            && Logger::open(scratch.filePath("log").toStdString()));
    FakeCamera restarting, streaming, intruders;
    const quint16 clientPort = restarting.listen();
    const quint16 serverPort = FakeCamera::freePort();
    TCPSettingWidget clientPage, serverPage;
    openPage(clientPage, 0, clientPort, clientDir);
    openPage(serverPage, 1, serverPort, serverDir);
    QVERIFY(streaming.connectToServer(serverPort));
    QList<QByteArray> fromRestarting, fromStreaming;
    for (int round = 0; round < 5; ++round) {
        QTRY_COMPARE_WITH_TIMEOUT(restarting.openCount(), 1, 20000);
        for (int i = 0; i < 40; ++i) {
            QVERIFY(intruders.connectToServer(serverPort));
            intruders.send("[intruder]");
        }
        for (int frame = 0; frame < 3; ++frame) {
            const QByteArray text = QString("%1-%2").arg(round).arg(frame).toUtf8();
            store(restarting, clientDir, fromRestarting, text);
            store(streaming, serverDir, fromStreaming, text);
        }
        // The client's camera restarts; the server keeps its camera among strangers that knock.
        restarting.stopListening();
        restarting.dropConnections();
        QCOMPARE(restarting.listen(clientPort), clientPort);
    }
    QTRY_COMPARE_WITH_TIMEOUT(intruders.endedByPeerCount(), 200, 20000);
    QCOMPARE(streaming.endedByPeerCount(), 0);

    // A frame that finds no directory is refused; once the directory is back, frames are stored again.
    QTRY_COMPARE_WITH_TIMEOUT(restarting.openCount(), 1, 20000);
    QVERIFY(QDir(clientDir).removeRecursively());
    restarting.send("[lost]");
    QTRY_VERIFY_WITH_TIMEOUT(FileProbe::readAll(scratch.filePath("log")).contains("Could not open file"), 20000);
    QVERIFY(!QFileInfo::exists(clientDir) && QDir().mkpath(clientDir));
    fromRestarting.clear();
    store(restarting, clientDir, fromRestarting, "back");
    Logger::close();
}

QTEST_MAIN(tst_Reliability)
#include "tst_reliability.moc"
