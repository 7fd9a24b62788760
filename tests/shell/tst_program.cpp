#include "FileProbe.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>
#include <memory>

// The real program, run from a scratch copy of its directory on the test's own X server.
class tst_Program final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void openDeviceWritesFramesAndIsStoredOpenAtClose();
    void secondInstanceTellsTheUserAndEndsWithMinusOne();
    void killedInstanceLeavesNoMarkerBehind();
    void unusableConfiguration_data();
    void unusableConfiguration();
    void configurationThatCannotBeWrittenStillEndsTheProgram();

private:
    QString programPath() const { return m_programDir->path() + QStringLiteral("/tapwright"); }
    QString configPath() const { return m_programDir->path() + QStringLiteral("/TCPconfig.json"); }
    QProcess* startProgram(const QStringList& arguments = {});
    void writeConfig(const QJsonObject& root);
    QByteArray readLog() const;
    static QJsonObject deviceObject(int status,
                                    const QString& ip,
                                    const QString& port,
                                    const QString& dir,
                                    const QString& start,
                                    const QString& end);

    static QString xdotool(const QStringList& arguments);
    static QString visibleWindow(qint64 pid, const QString& title);
    static void clickCloseButton(const QString& window);

    std::unique_ptr<QTemporaryDir> m_programDir;
    std::unique_ptr<QTemporaryDir> m_elsewhere;
    QList<QProcess*> m_processes;
};

namespace {

void copyTree(const QString& from, const QString& to)
{
    QDirIterator it(from, QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        const QString relative = QDir(from).relativeFilePath(it.filePath());
        // What a developer's own runs left beside the program is not part of it.
        if (relative == QLatin1String("TCPconfig.json") || relative == QLatin1String("Log")
            || relative.startsWith(QLatin1String("Log/"))) {
            continue;
        }
        const QString target = to + QLatin1Char('/') + relative;
        if (it.fileInfo().isDir()) {
            QDir().mkpath(target);
        } else {
            QDir().mkpath(QFileInfo(target).absolutePath());
            QFile::copy(it.filePath(), target);
            QFile::setPermissions(target, it.fileInfo().permissions());
        }
    }
}

} // namespace

void tst_Program::init()
{
    m_programDir = std::make_unique<QTemporaryDir>();
    m_elsewhere = std::make_unique<QTemporaryDir>();
    QVERIFY(m_programDir->isValid());
    QVERIFY(m_elsewhere->isValid());
    copyTree(QFileInfo(QStringLiteral(TAPWRIGHT_PROGRAM)).absolutePath(), m_programDir->path());
    QVERIFY(QFileInfo(programPath()).isExecutable());
}

void tst_Program::cleanup()
{
    for (QProcess* process : m_processes) {
        if (process->state() != QProcess::NotRunning) {
            process->kill();
            process->waitForFinished(5000);
        }
        delete process;
    }
    m_processes.clear();
    m_programDir.reset();
    m_elsewhere.reset();
}

QProcess* tst_Program::startProgram(const QStringList& arguments)
{
    auto* process = new QProcess();
    m_processes.append(process);
    // Started from another directory: the program must still work beside itself.
    process->setWorkingDirectory(m_elsewhere->path());
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->start(programPath(), arguments);
    if (!process->waitForStarted(10000)) {
        qWarning() << "could not start" << programPath() << process->errorString();
    }
    return process;
}

void tst_Program::writeConfig(const QJsonObject& root)
{
    QFile file(configPath());
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QJsonDocument(root).toJson());
}

QByteArray tst_Program::readLog() const
{
    const QString logDir = m_programDir->path() + QStringLiteral("/Log");
    QByteArray all;
    for (const QByteArray& content : FileProbe::textFileContents(logDir)) {
        all += content;
    }
    return all;
}

QJsonObject tst_Program::deviceObject(
    int status, const QString& ip, const QString& port, const QString& dir, const QString& start, const QString& end)
{
    return QJsonObject { { "Status", status }, { "TcpType", 0 },       { "TcpClientIP", ip }, { "TcpPort", port },
                         { "FileDir", dir },   { "StartChar", start }, { "EndChar", end } };
}

QString tst_Program::xdotool(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral("xdotool"), arguments);
    if (!process.waitForFinished(10000)) {
        process.kill();
        process.waitForFinished(1000);
        return QString();
    }
    return QString::fromLocal8Bit(process.readAllStandardOutput()).trimmed();
}

QString tst_Program::visibleWindow(qint64 pid, const QString& title)
{
    const QString found = xdotool({ "search",
                                    "--all",
                                    "--onlyvisible",
                                    "--pid",
                                    QString::number(pid),
                                    "--name",
                                    QStringLiteral("^%1$").arg(title) });
    return found.section(QLatin1Char('\n'), 0, 0);
}

void tst_Program::clickCloseButton(const QString& window)
{
    // The close button is the title bar's last 28 by 28 pixel button, at the top right corner.
    int width = 0;
    for (const QString& line : xdotool({ "getwindowgeometry", "--shell", window }).split(QLatin1Char('\n'))) {
        if (line.startsWith(QLatin1String("WIDTH="))) {
            width = line.mid(6).toInt();
        }
    }
    QVERIFY(width > 28);
    // The pointer comes from inside the window, as a hand would bring it, so the button sees it arrive.
    xdotool({ "mousemove", "--window", window, "--sync", QString::number(width / 2), "200" });
    xdotool({ "mousemove", "--window", window, "--sync", QString::number(width - 14), "14", "click", "1" });
}

void tst_Program::openDeviceWritesFramesAndIsStoredOpenAtClose()
{
    QTcpServer camera;
    QVERIFY(camera.listen(QHostAddress(QStringLiteral("127.0.0.1")), 0));
    QTemporaryDir frames;
    QVERIFY(frames.isValid());
    const QString port = QString::number(camera.serverPort());
    writeConfig({ { "page_Device1", deviceObject(1, "127.0.0.1", port, frames.path(), "[", "]") },
                  { "stray", QJsonObject() } });

    QProcess* program = startProgram();
    QTRY_VERIFY_WITH_TIMEOUT(camera.hasPendingConnections(), 15000);
    std::unique_ptr<QTcpSocket> link(camera.nextPendingConnection());

    link->write("[ABC-1]noise");
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFiles(frames.path()).size(), 1, 10000);
    link->write("[XYZ-2]");
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFiles(frames.path()).size(), 2, 10000);
    const QList<QByteArray> contents = FileProbe::textFileContents(frames.path());
    QVERIFY2(contents.at(0).contains("ABC-1"), contents.at(0).constData());
    QVERIFY2(contents.at(1).contains("XYZ-2"), contents.at(1).constData());

    QString window;
    QTRY_VERIFY_WITH_TIMEOUT(!(window = visibleWindow(program->processId(), "MainWindow")).isEmpty(), 15000);
    clickCloseButton(window);
    QVERIFY(program->waitForFinished(15000));
    QCOMPARE(program->exitStatus(), QProcess::NormalExit);
    QCOMPARE(program->exitCode(), 0);

    const QByteArray saved = FileProbe::readAll(configPath());
    const QJsonObject root = QJsonDocument::fromJson(saved).object();
    // Indented, keys sorted, nothing else.
    QCOMPARE(saved, QJsonDocument(root).toJson());
    QCOMPARE(root.keys(), (QStringList { "page_Device1", "page_Device2" }));
    QCOMPARE(root.value("page_Device1").toObject(), deviceObject(1, "127.0.0.1", port, frames.path(), "[", "]"));
    QCOMPARE(root.value("page_Device2").toObject(), deviceObject(0, "", "", "", "", ""));

    const QByteArray log = readLog();
    QVERIFY(log.contains("[INFO] Quillon start..."));
    QVERIFY2(log.trimmed().endsWith("LOG FINALISED"), log.right(200).constData());
    QCOMPARE(FileProbe::textFiles(m_programDir->path() + "/Log").size(), 1);
    QVERIFY(FileProbe::textFiles(m_programDir->path() + "/Log")
                .first()
                .startsWith(QStringLiteral("log_Tapwright_") + QDate::currentDate().toString("yyyy_MM_dd")));
    QVERIFY(QDir(m_elsewhere->path()).isEmpty());
}

void tst_Program::secondInstanceTellsTheUserAndEndsWithMinusOne()
{
    QTcpServer camera;
    QVERIFY(camera.listen(QHostAddress(QStringLiteral("127.0.0.1")), 0));
    QTemporaryDir frames;
    QVERIFY(frames.isValid());
    writeConfig({ { "page_Device1",
                    deviceObject(1, "127.0.0.1", QString::number(camera.serverPort()), frames.path(), "<", ">") } });

    QProcess* first = startProgram();
    QString firstWindow;
    QTRY_VERIFY_WITH_TIMEOUT(!(firstWindow = visibleWindow(first->processId(), "MainWindow")).isEmpty(), 15000);
    QTRY_VERIFY_WITH_TIMEOUT(camera.hasPendingConnections(), 15000);
    std::unique_ptr<QTcpSocket> firstLink(camera.nextPendingConnection());
    const QByteArray configBefore = FileProbe::readAll(configPath());
    const QDateTime modifiedBefore = QFileInfo(configPath()).lastModified();

    QProcess* second = startProgram();
    QString box;
    QTRY_VERIFY_WITH_TIMEOUT(!(box = visibleWindow(second->processId(), "Tip")).isEmpty(), 15000);
    QVERIFY(visibleWindow(second->processId(), "MainWindow").isEmpty());
    QCOMPARE(second->state(), QProcess::Running);
    // Its hidden window opened the stored device too, beside the first instance.
    QTRY_VERIFY_WITH_TIMEOUT(camera.hasPendingConnections(), 15000);

    xdotool({ "windowfocus", "--sync", box });
    xdotool({ "key", "--clearmodifiers", "Return" });
    QVERIFY(second->waitForFinished(15000));
    QCOMPARE(second->exitStatus(), QProcess::NormalExit);
    QCOMPARE(second->exitCode(), 255);

    QCOMPARE(FileProbe::readAll(configPath()), configBefore);
    QCOMPARE(QFileInfo(configPath()).lastModified(), modifiedBefore);
    QCOMPARE(readLog().count("[INFO] Quillon start..."), 2);
    QCOMPARE(first->state(), QProcess::Running);

    clickCloseButton(firstWindow);
    QVERIFY(first->waitForFinished(15000));
    QCOMPARE(first->exitCode(), 0);
}

void tst_Program::killedInstanceLeavesNoMarkerBehind()
{
    QProcess* crashed = startProgram();
    QTRY_VERIFY_WITH_TIMEOUT(!visibleWindow(crashed->processId(), "MainWindow").isEmpty(), 15000);
    crashed->kill();
    QVERIFY(crashed->waitForFinished(10000));
    // Killed, it saved nothing.
    QVERIFY(!QFileInfo::exists(configPath()));

    QProcess* next = startProgram();
    QString window;
    QTRY_VERIFY_WITH_TIMEOUT(!(window = visibleWindow(next->processId(), "MainWindow")).isEmpty(), 15000);
    QVERIFY(visibleWindow(next->processId(), "Tip").isEmpty());
    clickCloseButton(window);
    QVERIFY(next->waitForFinished(15000));
    QCOMPARE(next->exitCode(), 0);
}

void tst_Program::unusableConfiguration_data()
{
    QTest::addColumn<bool>("present");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QByteArray>("expectedLogLine");

    const QByteArray unreadable("[Error]: Failed to open JSON file for reading.");
    const QByteArray invalid("[Error] Invalid JSON format.");
    QTest::newRow("missing") << false << QByteArray() << unreadable;
    QTest::newRow("empty object") << true << QByteArray("{}") << QByteArray();
    QTest::newRow("cut short") << true << QByteArray("{\n    \"page_Device1\": {\n        \"Status\": 1") << invalid;
    QTest::newRow("empty file") << true << QByteArray() << invalid;
    QTest::newRow("array root") << true << QByteArray("[1, 2]") << invalid;
    QTest::newRow("wrong types") << true
                                 << QByteArray("{\"page_Device1\": {\"Status\": \"1\", \"TcpPort\": 3000, "
                                               "\"TcpClientIP\": \"127.0.0.1\", \"status\": 1}}")
                                 << QByteArray();
}

void tst_Program::unusableConfiguration()
{
    QFETCH(bool, present);
    QFETCH(QByteArray, content);
    QFETCH(QByteArray, expectedLogLine);

    if (present) {
        QFile file(configPath());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    QProcess* program = startProgram();
    QString window;
    QTRY_VERIFY_WITH_TIMEOUT(!(window = visibleWindow(program->processId(), "MainWindow")).isEmpty(), 15000);
    const QByteArray log = readLog();
    const QList<QByteArray> errors { "[Error]: Failed to open JSON file for reading.", "[Error] Invalid JSON format." };
    for (const QByteArray& error : errors) {
        QCOMPARE(log.contains(error), error == expectedLogLine);
    }

    clickCloseButton(window);
    QVERIFY(program->waitForFinished(15000));
    QCOMPARE(program->exitCode(), 0);

    // The pages came up empty and closed, and are stored so.
    const QJsonObject root = QJsonDocument::fromJson(FileProbe::readAll(configPath())).object();
    QCOMPARE(root.keys(), (QStringList { "page_Device1", "page_Device2" }));
    const QJsonObject first = root.value("page_Device1").toObject();
    QCOMPARE(first.value("Status").toInt(-1), 0);
    QCOMPARE(first.value("TcpPort").toString(QStringLiteral("?")), QString());
    QCOMPARE(root.value("page_Device2").toObject(), deviceObject(0, "", "", "", "", ""));
}

void tst_Program::configurationThatCannotBeWrittenStillEndsTheProgram()
{
    QVERIFY(QDir().mkdir(configPath()));

    QProcess* program = startProgram();
    QString window;
    QTRY_VERIFY_WITH_TIMEOUT(!(window = visibleWindow(program->processId(), "MainWindow")).isEmpty(), 15000);
    clickCloseButton(window);
    QVERIFY(program->waitForFinished(15000));
    QCOMPARE(program->exitStatus(), QProcess::NormalExit);
    QCOMPARE(program->exitCode(), 0);

    const QByteArray log = readLog();
    QVERIFY(log.contains("[Error]: Failed to open JSON file for writing."));
    QVERIFY(log.trimmed().endsWith("LOG FINALISED"));
    QVERIFY(QFileInfo(configPath()).isDir());
}

QTEST_GUILESS_MAIN(tst_Program)
#include "tst_program.moc"
