#include "FakeCamera.h"
#include "FakeSystemTray.h"
#include "FileProbe.h"
#include "TestProgramDir.h"

#include <QtTest>
#include <csignal>

static const QString kShown = "search --all --onlyvisible --pid %1 --name ^Tapwright$";
// What the log says of a configuration that cannot be read, is not JSON, or cannot be written.
static const QString kUnreadable = "reading.", kInvalid = "Invalid JSON", kUnwritable = "writing.";

// Runs xdotool, or another X tool, and gives what it printed.
static QString xtool(const QString& arguments, const QString& tool = "xdotool")
{
    QProcess process;
    process.start(tool, arguments.split(' '));
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
        QVERIFY(QFile::link("../tapwright", path("elsewhere/tw"))); // a name of the user's own
    }

    // The configuration as found at start, what stands in the way (a trailing / for a directory), and
    // the device's options, kept as they were. %DEV% is a client device stored open, on the
    // page of the number given.
    void startRunAndClose_data()
    {
        QTest::addColumn<QByteArray>("config");
        QTest::addColumn<QString>("obstacle");
        QTest::addColumn<QJsonObject>("options");
        QTest::addColumn<bool>("cameraLate");
        QTest::addColumn<QStringList>("errorsLogged");
        QTest::addColumn<bool>("headlessRefuses");
        QTest::addColumn<bool>("serves");
        QTest::addColumn<int>("page");

        const QByteArray good = "{\"page_Device1\": %DEV%, \"stray\": {}}", cut = "{\"page_Device1\": %DEV%";
        const QJsonObject none, waits { { "WaitForCamera", 1 } };
        const QStringList clean;
        const QStringList unreadable { kUnreadable }, invalid { kInvalid };
        QTest::newRow("intact") << good << "" << none << false << clean << false << true << 1;
        QTest::newRow("missing") << QByteArray() << "" << none << false << unreadable << true << false << 1;
        QTest::newRow("cut short") << cut << "" << none << false << invalid << true << false << 1;
        QTest::newRow("array root") << QByteArray("[%DEV%]") << "" << none << false << invalid << true << false << 1;
        QTest::newRow("wrong types") << QByteArray("{\"page_Device1\": {\"Status\": \"1\", \"TcpPort\": 1}}") << ""
                                     << none << false << clean << true << false << 1;
        QTest::newRow("Log is a file") << good << "Log" << none << false << clean << false << true << 1;
        QTest::newRow("TCPconfig.json is a directory")
            << QByteArray() << "TCPconfig.json/" << none << false << QStringList { kUnreadable, kUnwritable } << true
            << false << 1;
        QTest::newRow("camera absent at start") << good << "" << none << true << clean << false << false << 1;
        QTest::newRow("camera absent at start, waited for")
            << good << "" << waits << true << clean << false << true << 1;
        QTest::newRow("a third device") << QByteArray("{\"page_Device3\": %DEV%}") << "" << none << false << clean
                                        << false << true << 3;
    }
    void startRunAndClose()
    {
        QFETCH(QByteArray, config);
        QFETCH(QString, obstacle);
        QFETCH(QJsonObject, options);
        QFETCH(bool, cameraLate);
        QFETCH(bool, headlessRefuses);
        QFETCH(bool, serves);
        QFETCH(int, page);
        FakeCamera camera;
        QTemporaryDir frames;
        const quint16 port = cameraLate ? FakeCamera::freePort() : camera.listen();
        QJsonObject device = TestProgramDir::clientDevice(1, port, frames.path());
        for (auto option = options.begin(); option != options.end(); ++option)
            device.insert(option.key(), option.value());
        config.replace("%DEV%", QJsonDocument(device).toJson(QJsonDocument::Compact));
        QVERIFY(config.isEmpty() || TestProgramDir::writeFile(path("TCPconfig.json"), config));
        if (!obstacle.isEmpty())
            QVERIFY(obstacle.endsWith('/') ? QDir().mkpath(path(obstacle))
                                           : TestProgramDir::writeFile(path(obstacle), "x"));

        QProcess program;
        if (headlessRefuses) { // without the window there is nothing to serve: it says so and ends
            start(program, QString());
            QVERIFY(program.waitForFinished(15000));
            QCOMPARE(program.exitCode(), 2);
            QVERIFY(program.readAllStandardError().contains("TCPconfig.json"));
        }
        // None shown: endsWell() cannot close it.
        const QString window = start(program, "^Tapwright$");
        QVERIFY(!cameraLate || camera.listen(port) == port);
        QByteArrayList kept; // every frame of the burst
        if (serves) {
            QTRY_COMPARE_WITH_TIMEOUT(camera.openCount(), 1, 10000);
            // One read of many frames: as cut by the chunk, only the first few of them are written.
            QByteArray burst;
            for (int i = 10; i < 40; ++i) {
                burst += "[F-" + QByteArray::number(i) + "]noise";
                kept << "The package barcode info is :F-" + QByteArray::number(i);
            }
            camera.send(burst);
            QTRY_VERIFY(FileProbe::textFiles(frames.path()).size() >= 2);
        }
        QVERIFY(endsWell(program, window));
        QCOMPARE(camera.acceptedCount(), int(serves)); // a failed open is not tried again
        const QByteArrayList written = FileProbe::textFileContents(frames.path());
        QCOMPARE(written, kept.mid(0, std::min(int(written.size()), 29)));

        const QByteArray out = program.readAllStandardOutput();
        QStringList errorsFound;
        for (const QString& error : { kUnreadable, kInvalid, kUnwritable })
            if (out.contains(error.toUtf8()))
                errorsFound << error;
        QTEST(errorsFound, "errorsLogged");
        QCOMPARE(FileProbe::readAll(path("Log/" + logName())).endsWith("LOG FINALISED\n"), obstacle != "Log");
        const QJsonObject root = QJsonDocument::fromJson(FileProbe::readAll(path("TCPconfig.json"))).object();
        const QJsonObject saved = root["page_Device" + QString::number(page)].toObject();
        QCOMPARE(saved["Status"].toInt(), int(serves)); // a device that served is stored open
        if (serves)
            QCOMPARE(saved, device);
    }

    // Without a display: the device stored open waits for its late camera and serves it; a second
    // instance, with a window or without, says so and ends with -1; SIGTERM ends the log; the
    // configuration stays as it was.
    void headlessServesTheStoredDevicesAlone()
    {
        for (const QString option : { "--version", "--help" }) { // as a Linux user expects them
            QProcess info;
            info.start(path("tapwright"), { option });
            const QString expected = option == "--help" ? "--headless" : "^tapwright \\d+\\.\\d+";
            QVERIFY(info.waitForFinished() && QString(info.readAll()).contains(QRegularExpression(expected)));
        }
        FakeCamera camera;
        QTemporaryDir frames;
        const quint16 port = FakeCamera::freePort();
        const QJsonObject root { { "page_Device16", TestProgramDir::clientDevice(1, port, frames.path()) } };
        QVERIFY(TestProgramDir::writeFile(path("TCPconfig.json"), QJsonDocument(root).toJson()));
        QProcess program, second, third;
        start(program, QString());
        QByteArray out;
        QTRY_VERIFY((out += program.readAllStandardOutput()).contains("does not answer yet"));
        QCOMPARE(camera.listen(port), port);
        QTRY_COMPARE_WITH_TIMEOUT(camera.openCount(), 1, 10000);
        camera.send("[late]");
        QTRY_COMPARE(FileProbe::textFiles(frames.path()).size(), 1);

        // A second instance with a window tells the user, one without tells its error output; both end.
        pressReturn(start(second, "^Tip"));
        start(third, QString());
        for (QProcess* refused : { &second, &third })
            QVERIFY(refused->waitForFinished(15000) && refused->exitCode() == 255
                    && refused->readAllStandardError().contains("already running"));
        ::kill(pid_t(program.processId()), SIGINT); // Ctrl+C in its terminal; the package test stops it as systemd does
        QVERIFY(program.waitForFinished(15000) && program.exitCode() == 0);
        out += program.readAllStandardOutput();
        QVERIFY(!program.readAllStandardError().contains("onReceive")); // traces only when asked for
        QVERIFY(
            out.contains(" page_Device16 127.0.0.1:" + QByteArray::number(port) + " : This device is successfully"));
        QVERIFY(FileProbe::readAll(path("Log/" + logName())).endsWith("LOG FINALISED\n"));
        QCOMPARE(FileProbe::readAll(path("TCPconfig.json")), QJsonDocument(root).toJson());
    }

    // Installed from the package, where it cannot write, the program keeps its settings in
    // $XDG_CONFIG_HOME/tapwright and its log in $XDG_STATE_HOME/tapwright, and serves as before.
    void runsFromThePackage()
    {
        QTemporaryDir root, home;
        const QString config = home.filePath("config/tapwright"), logs = home.filePath("state/tapwright/Log");
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath("config")));
        qputenv("XDG_STATE_HOME", QFile::encodeName(home.filePath("state")));
        FakeCamera camera; // frames go to the home directory
        QJsonObject device = TestProgramDir::clientDevice(1, camera.listen(), home.path());
        device.insert("KeepEveryFrame", 1); // its worker is there before the camera greets it
        const QJsonObject stored { { "page_Device1", device } };
        QVERIFY(TestProgramDir::writeFile(config + "/TCPconfig.json", QJsonDocument(stored).toJson()));
        QCOMPARE(QProcess::execute("dpkg-deb", { "-x", TAPWRIGHT_DEB, root.path() }), 0);
        // A read-only mount, as /usr is to a user: file modes would not stop root.
        const QString mount
            = "mount --bind \"$0\" \"$0\" && mount -o remount,bind,ro \"$0\" && exec \"$0\"/usr/bin/tapwright \"$@\"";
        const QStringList command { "unshare", "-r", "-m", "sh", "-c", mount, root.path() };
        QProcess program, headless;
        const QString window = start(program, "^Tapwright$", command);
        QTRY_COMPARE(camera.openCount(), 1);
        camera.send("[PKG-1]");
        QTRY_COMPARE(FileProbe::textFileContents(home.path()), QByteArrayList { "The package barcode info is :PKG-1" });
        QVERIFY(endsWell(program, window));
        const QJsonObject written = QJsonDocument::fromJson(FileProbe::readAll(config + "/TCPconfig.json")).object();
        QVERIFY(written != stored && written["page_Device1"] == device); // rewritten at close
        QCOMPARE(FileProbe::readAll(config + "/Conf/language.ini"),      // seeded from beside the program
                 FileProbe::readAll(root.filePath("usr/lib/tapwright/Conf/language.ini")));

        // Without a window it serves the device of the same settings, with the traces the user asks for.
        camera.greetWith("[PKG-2]");
        QVERIFY(TestProgramDir::writeFile(config + "/Conf/language.ini", "[language]\nlang=0")); // in Chinese
        start(headless, "", QStringList { "env", "QT_LOGGING_RULES=default.debug=true;default.info=true" } + command);
        QTRY_COMPARE(FileProbe::textFiles(home.path()).size(), 2);
        headless.terminate();
        QVERIFY(headless.waitForFinished(15000) && headless.exitCode() == 0);
        QVERIFY(QString::fromUtf8(headless.readAllStandardOutput()).contains("本设备已成功连接到相机"));
        QVERIFY(
            QString(headless.readAllStandardError()).contains(QRegularExpression("onReceive data size: 7\n(?!\n)")));
        const QString place = "[INFO] Settings in %1, logs in %2: the program directory %3 cannot be written.";
        const QByteArray log = FileProbe::readAll(logs + "/" + logName());
        QVERIFY(log.split('\n').value(1).endsWith(place.arg(config, logs, root.filePath("usr/lib/tapwright")).toUtf8())
                && log.count("LOG FINALISED\n") == 2);
    }

    // A second start leaves the window that runs alone, in the tray: it says so in a box and ends.
    void secondStartLeavesTheFirstAlone()
    {
        FakeSystemTray panel;
        QProcess first, second;
        const QString window = start(first, "^Tapwright$");
        // Known to the desktop as its menu entry, whatever name it was started under.
        QCOMPARE(xtool("-id " + window + " WM_CLASS", "xprop"), "WM_CLASS(STRING) = \"tapwright\", \"tapwright\"\n");
        const auto shown = [&first] { return xtool(kShown.arg(first.processId())).section('\n', 0, 0); };
        // A utility window, with no task bar entry, while in the tray.
        const auto type = [&shown] { return xtool("-id " + shown() + " _NET_WM_WINDOW_TYPE", "xprop"); };
        QTRY_COMPARE(panel.dockRequests(), 1);
        // "Minimal enable" at the bottom right, then the title bar's minimise button: into the tray.
        xtool(QString("mousemove --window %1 --sync 790 723 click 1 mousemove --window %1 --sync 852 14 click 1")
                  .arg(window));
        QTRY_VERIFY(type().contains("UTILITY"));
        const QString box = start(second, "^Tip$"); // titled exactly so
        QVERIFY(!box.isEmpty());
        pressReturn(box);
        QVERIFY(second.waitForFinished(15000));
        QCOMPARE(second.exitCode(), 255);
        QVERIFY(second.readAllStandardError().contains("already running"));
        QVERIFY(type().contains("UTILITY"));
        QVERIFY(QFile::exists(qEnvironmentVariable("XDG_CONFIG_HOME") + "/tapwright/language.ini"));
        QVERIFY(endsWell(first, shown()));
    }

private:
    QString path(const QString& relative) const { return m_dir->filePath(relative); }
    static QString logName() { return "log_Tapwright_" + QDate::currentDate().toString("yyyy_MM_dd") + ".txt"; }
    // Started from another directory: the program must still work beside itself, and leave it alone.
    // Without a title it runs headless, with no display at all. A command replaces the program's path.
    QString start(QProcess& process, const QString& title, QStringList command = QStringList())
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(title.isEmpty() ? "DISPLAY" : "QT_QPA_PLATFORM"); // left to a Wayland session
        environment.insert("XDG_SESSION_TYPE", "wayland");
        environment.insert("XDG_CURRENT_DESKTOP", "KDE");
        process.setProcessEnvironment(environment);
        process.setWorkingDirectory(path("elsewhere"));
        command = (command.isEmpty() ? QStringList(path("elsewhere/tw")) : command)
            + (title.isEmpty() ? QStringList("--headless") : QStringList());
        process.start(command.takeFirst(), command);
        const QString search = "search --sync --all --onlyvisible --pid %1 --name %2";
        return title.isEmpty() ? "" : xtool(search.arg(process.processId()).arg(title)).section('\n', 0, 0);
    }
    // The box closes at the press, before a release could reach it; the key must not stay down for
    // the next window.
    static void pressReturn(const QString& window)
    {
        QProcess::execute("xdotool", { "keydown", "--window", window, "Return" });
        QProcess::execute("xdotool", { "keyup", "Return" });
    }
    bool endsWell(QProcess& process, const QString& window)
    {
        // From inside the window, as a hand comes, to the close button at the top right corner.
        const QString script
            = "eval $(xdotool getwindowgeometry --shell %1); xdotool mousemove --window %1 --sync 9 99 "
              "mousemove --window %1 --sync $((WIDTH - 14)) 14 click 1";
        QProcess::execute("sh", { "-c", script.arg(window) });
        return process.waitForFinished(15000) && process.exitStatus() + process.exitCode() == 0; // a normal exit, 0
    }

    QScopedPointer<QTemporaryDir> m_dir;
};

QTEST_GUILESS_MAIN(tst_Program)
#include "tst_program.moc"
