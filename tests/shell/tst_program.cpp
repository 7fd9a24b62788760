#include "FakeCamera.h"
#include "FileProbe.h"
#include "TestProgramDir.h"

#include <QtTest>

static QString xdotool(const QString& arguments)
{
    QProcess process;
    process.start("xdotool", arguments.split(' '));
    process.waitForFinished();
    return QString::fromLocal8Bit(process.readAllStandardOutput());
}

// The real program, run from a scratch copy of its directory on the test's own X server, and ended
// as a user ends it: by the close button at the title bar's top right corner.
class tst_Program final : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_dir.reset(new QTemporaryDir);
        QCOMPARE(QProcess::execute("cp", { "-r", QFileInfo(TAPWRIGHT_PROGRAM).path() + "/.", m_dir->path() }), 0);
        QDir(path("Log")).removeRecursively(); // what a developer's own runs left
        QFile::remove(path("TCPconfig.json"));
        QVERIFY(QDir().mkpath(path("elsewhere")));
    }

    // A row: TCPconfig.json ("-" for none; %DEV% is an open client device) | what stands in the way
    // (a trailing / for a directory) | errors logged (r reading, i invalid, w writing) | device opens.
    void startRunAndClose_data()
    {
        QTest::addColumn<QString>("row");
        const QString good = "{\"page_Device1\": %DEV%, \"stray\": {}}";
        QTest::newRow("intact") << good + "|||1";
        QTest::newRow("missing") << "-||r|0";
        QTest::newRow("cut short") << "{\"page_Device1\": %DEV%||i|0";
        QTest::newRow("array root") << "[%DEV%]||i|0";
        QTest::newRow("wrong types") << "{\"page_Device1\": {\"Status\": \"1\", \"TcpPort\": 1}}|||0";
        QTest::newRow("Log is a file") << good + "|Log||1";
        QTest::newRow("today's log is a directory") << good + "|Log/" + logName() + "/||1";
        QTest::newRow("TCPconfig.json is a directory") << "-|TCPconfig.json/|rw|0";
    }

    void startRunAndClose()
    {
        QFETCH(QString, row);
        const QStringList cell = row.split('|');
        FakeCamera camera;
        QTemporaryDir frames;
        const QJsonObject device = TestProgramDir::clientDevice(1, camera.listen(), frames.path());
        QByteArray config = cell[0].toUtf8().replace("%DEV%", QJsonDocument(device).toJson(QJsonDocument::Compact));
        QVERIFY(cell[0] == "-" || TestProgramDir::writeFile(path("TCPconfig.json"), config));
        if (!cell[1].isEmpty())
            QVERIFY(cell[1].endsWith('/') ? QDir().mkpath(path(cell[1]))
                                          : TestProgramDir::writeFile(path(cell[1]), "x"));

        QProcess program;
        const QString window = start(program, "MainWindow");
        QVERIFY(!window.isEmpty());
        if (cell[3] == "1") {
            QTRY_COMPARE(camera.openCount(), 1);
            camera.send("[ABC-1]noise[XYZ-2]");
            QTRY_COMPARE(FileProbe::textFileContents(frames.path()).join('|'),
                         QByteArray("The package barcode info is :ABC-1|The package barcode info is :XYZ-2"));
        }
        QVERIFY(endsWell(program, window));

        const QByteArray out = program.readAllStandardOutput();
        QString errors;
        for (const char* error : { "r JSON file for reading.", "i Invalid JSON format.", "w JSON file for writing." })
            errors += out.contains(error + 2) ? QString(error[0]) : QString();
        QCOMPARE(errors, cell[2]);
        QCOMPARE(FileProbe::readAll(path("Log/" + logName())).endsWith("LOG FINALISED\n"), !cell[1].startsWith("Log"));
        const QByteArray saved = FileProbe::readAll(path("TCPconfig.json"));
        const QJsonObject root = QJsonDocument::fromJson(saved).object();
        QCOMPARE(saved, errors.contains('w') ? QByteArray() : QJsonDocument(root).toJson()); // indented, members sorted
        QCOMPARE(root["page_Device1"].toObject()["Status"].toInt(), cell[3].toInt());
        QVERIFY(cell[3] == "0" || root["page_Device1"].toObject() == device);
    }

    void secondInstanceEndsWithMinusOne()
    {
        FakeCamera camera;
        QTemporaryDir frames;
        const QJsonObject root { { "page_Device1", TestProgramDir::clientDevice(1, camera.listen(), frames.path()) } };
        QVERIFY(TestProgramDir::writeFile(path("TCPconfig.json"), QJsonDocument(root).toJson()));
        QProcess first, second;
        const QString window = start(first, "MainWindow");
        const QDateTime saved = QFileInfo(path("TCPconfig.json")).lastModified();

        const QString tip = start(second, "Tip"); // it tells the user
        QVERIFY(!tip.isEmpty());
        xdotool("key --window " + tip + " Return");
        QVERIFY(second.waitForFinished(15000));
        QCOMPARE(second.exitCode(), 255);
        QCOMPARE(QFileInfo(path("TCPconfig.json")).lastModified(), saved);
        QVERIFY(endsWell(first, window));
    }

private:
    QString path(const QString& relative) const { return m_dir->filePath(relative); }
    static QString logName() { return "log_Tapwright_" + QDate::currentDate().toString("yyyy_MM_dd") + ".txt"; }
    // Started from another directory: the program must still work beside itself, and leave it alone.
    QString start(QProcess& process, const QString& title)
    {
        process.setWorkingDirectory(path("elsewhere"));
        process.start(path("tapwright"), QStringList());
        const QString search = "search --sync --onlyvisible --pid %1 --name ^%2$";
        return xdotool(search.arg(process.processId()).arg(title)).section('\n', 0, 0);
    }
    bool endsWell(QProcess& process, const QString& window)
    {
        const int width
            = xdotool("getwindowgeometry --shell " + window).section("WIDTH=", 1).section('\n', 0, 0).toInt();
        const QString click = "mousemove --window %1 --sync 9 99 mousemove --window %1 --sync %2 14 click 1";
        xdotool(click.arg(window).arg(width - 14)); // from inside the window, as a hand comes, to the close button
        return process.waitForFinished(15000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0
            && QDir(path("elsewhere")).isEmpty();
    }

    QScopedPointer<QTemporaryDir> m_dir;
};

QTEST_GUILESS_MAIN(tst_Program)
#include "tst_program.moc"
