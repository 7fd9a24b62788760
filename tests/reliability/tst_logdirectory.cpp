// A log that cannot be written must not cost a frame. Runs the real program in a copy of its
// directory; as root no permission stops a write, so the log's place is taken by the wrong kind
// of file instead.
#include "CameraProcess.h"
#include "DevicePageDriver.h"
#include "FileProbe.h"

#include <QDate>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace DevicePageDriver;

namespace {

bool copyTree(const QString& from, const QString& to)
{
    QDirIterator it(from, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString source = it.next();
        const QString target = to + source.mid(from.size());
        if (!QDir().mkpath(QFileInfo(target).path()) || !QFile::copy(source, target)) {
            return false;
        }
        QFile::setPermissions(target, QFile(source).permissions());
    }
    return true;
}

} // namespace

class tst_LogDirectory final : public QObject
{
    Q_OBJECT

private slots:
    void keepsStoringFramesWithoutALog_data();
    void keepsStoringFramesWithoutALog();
};

void tst_LogDirectory::keepsStoringFramesWithoutALog_data()
{
    QTest::addColumn<QString>("blocker");
    QTest::addColumn<bool>("blockerIsDirectory");

    QTest::newRow("Log is a file") << "Log" << false;
    QTest::newRow("today's log is a directory")
        << "Log/log_Tapwright_" + QDate::currentDate().toString("yyyy_MM_dd") + ".txt" << true;
}

void tst_LogDirectory::keepsStoringFramesWithoutALog()
{
    QFETCH(QString, blocker);
    QFETCH(bool, blockerIsDirectory);

    QTemporaryDir scratch;
    QVERIFY(scratch.isValid());
    const QString programDir = scratch.filePath("program");
    QVERIFY(copyTree(QStringLiteral(TAPWRIGHT_PROGRAM_DIR), programDir));
    QFile::remove(programDir + "/TCPconfig.json");
    QDir(programDir + "/Log").removeRecursively();
    const QString blockerPath = programDir + "/" + blocker;
    if (blockerIsDirectory) {
        QVERIFY(QDir().mkpath(blockerPath));
    } else {
        QFile file(blockerPath);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("not a directory");
    }

    CameraProcess camera({ "--listen", "127.0.0.1:0", "--reconnect", "--rate", "20", "--repeat", "0", "LOG{seq}" });
    QVERIFY(camera.start());
    const QString frameDir = scratch.filePath("frames");
    QVERIFY(QDir().mkpath(frameDir));
    {
        QFile config(programDir + "/TCPconfig.json");
        QVERIFY(config.open(QIODevice::WriteOnly));
        config.write(QStringLiteral(R"({"page_Device1": {"EndChar": "]", "FileDir": "%1", "StartChar": "[",
            "Status": 1, "TcpClientIP": "127.0.0.1", "TcpPort": "%2", "TcpType": 0}})")
                         .arg(frameDir)
                         .arg(camera.listeningPort())
                         .toUtf8());
    }

    QProcess program;
    program.start(programDir + "/tapwright", QStringList());
    QVERIFY(program.waitForStarted(kFrameTimeoutMs));
    QTRY_VERIFY_WITH_TIMEOUT(frameNumbers(storedFrames(frameDir), "LOG").size() >= 5, kFrameTimeoutMs);
    QCOMPARE(program.state(), QProcess::Running);

    program.terminate();
    QVERIFY(program.waitForFinished(kFrameTimeoutMs));
    QVERIFY(camera.stop());
    // The log still reaches standard output, and what stood in its way is left as it was.
    QVERIFY(program.readAllStandardOutput().contains("[INFO]"));
    QCOMPARE(QFileInfo(blockerPath).isDir(), blockerIsDirectory);
    if (!blockerIsDirectory) {
        QCOMPARE(FileProbe::readAll(blockerPath), QByteArray("not a directory"));
    }
}

QTEST_MAIN(tst_LogDirectory)
#include "tst_logdirectory.moc"
