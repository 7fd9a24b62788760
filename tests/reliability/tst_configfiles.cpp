// TCPconfig.json as it may be found after a crash or a hand edit: truncated, wrong types, keys
// nobody knows. The real window reads it beside the program, comes up, and writes a clean one.
#include "CameraProcess.h"
#include "DevicePageDriver.h"
#include "FileProbe.h"
#include "Logger.h"
#include "MainWindow.h"
#include "TCPSettingWidget.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QTemporaryDir>
#include <QtTest>

using namespace DevicePageDriver;

namespace {

const QByteArray kGood = R"({
    "page_Device1": {"EndChar": "]", "FileDir": "%DIR%", "StartChar": "[", "Status": 1,
                     "TcpClientIP": "127.0.0.1", "TcpPort": "%PORT%", "TcpType": 0},
    "page_Device2": {"EndChar": "", "FileDir": "", "StartChar": "", "Status": 0,
                     "TcpClientIP": "", "TcpPort": "", "TcpType": 0}
})";

QString configPath()
{
    return QCoreApplication::applicationDirPath() + "/TCPconfig.json";
}

bool isOpen(TCPSettingWidget* page)
{
    return page->findChild<QLabel*>("label_TCP")->property("status").toInt() == 1;
}

} // namespace

class tst_ConfigFiles final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void startsFromAnyFile_data();
    void startsFromAnyFile();

private:
    // The logger opens once per process, so one log serves every case.
    QTemporaryDir m_logDir;
    QString m_logPath;
};

void tst_ConfigFiles::initTestCase()
{
    QVERIFY(m_logDir.isValid());
    m_logPath = m_logDir.filePath("window.log");
    QVERIFY(Logger::open(m_logPath.toStdString()));
}

void tst_ConfigFiles::cleanup()
{
    QFile::remove(configPath());
}

void tst_ConfigFiles::startsFromAnyFile_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("deviceOpens");
    QTest::addColumn<bool>("invalidJson");

    QTest::newRow("intact") << kGood << true << false;
    QTest::newRow("truncated") << kGood.left(kGood.size() / 2) << false << true;
    QTest::newRow("empty") << QByteArray() << false << true;
    QTest::newRow("binary") << QByteArray("\x00\xff\xfe{\"page_Device1\"", 18) << false << true;
    QTest::newRow("array root") << QByteArray("[{\"Status\": 1}]") << false << true;
    QTest::newRow("wrong types") << QByteArray(R"({"page_Device1": {"EndChar": 93, "FileDir": ["%DIR%"],
        "StartChar": null, "Status": "1", "TcpClientIP": false, "TcpPort": %PORT%, "TcpType": "0"},
        "page_Device2": 7})") << false
                                 << false;
    QTest::newRow("port as number") << QByteArray(kGood).replace("\"%PORT%\"", "%PORT%") << false << false;
    QTest::newRow("unknown keys") << QByteArray(R"({"comment": "by hand", "page_Device3": {"Status": 1},
        "page_Device1": {"EndChar": "]", "FileDir": "%DIR%", "StartChar": "[", "Status": 1, "Baud": 9600,
        "TcpClientIP": "127.0.0.1", "TcpPort": "%PORT%", "TcpType": 0, "status": 0}})")
                                  << true << false;
}

void tst_ConfigFiles::startsFromAnyFile()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, deviceOpens);
    QFETCH(bool, invalidJson);

    QTemporaryDir scratch;
    QVERIFY(scratch.isValid());
    const int logStart = FileProbe::readAll(m_logPath).size();
    CameraProcess camera({ "--listen", "127.0.0.1:0", "--reconnect", "--rate", "20", "--repeat", "0", "CFG{seq}" });
    QVERIFY(camera.start());
    const QString frameDir = scratch.filePath("frames");
    QVERIFY(QDir().mkpath(frameDir));
    {
        QFile file(configPath());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(
            content.replace("%DIR%", frameDir.toUtf8()).replace("%PORT%", QByteArray::number(camera.listeningPort())));
    }

    auto* window = new MainWindow(nullptr, false);
    const QList<TCPSettingWidget*> pages = window->findChildren<TCPSettingWidget*>();
    QCOMPARE(pages.size(), 2);
    TCPSettingWidget* first = pages[0]->objectName() == "page_Device1" ? pages[0] : pages[1];
    QCOMPARE(isOpen(first), deviceOpens);
    if (deviceOpens) {
        QTRY_VERIFY_WITH_TIMEOUT(frameNumbers(storedFrames(frameDir), "CFG").size() >= 3, kFrameTimeoutMs);
    }
    QCOMPARE(FileProbe::readAll(m_logPath).mid(logStart).contains("[Error] Invalid JSON format."), invalidJson);

    window->close();
    delete window;
    QVERIFY(camera.stop());

    // What the window leaves is a whole file: both pages, their seven members, nothing else.
    const QJsonDocument written = QJsonDocument::fromJson(FileProbe::readAll(configPath()));
    QVERIFY(written.isObject());
    QCOMPARE(written.object().keys(), QStringList({ "page_Device1", "page_Device2" }));
    const QStringList members { "EndChar", "FileDir", "StartChar", "Status", "TcpClientIP", "TcpPort", "TcpType" };
    for (const QString& key : written.object().keys()) {
        QCOMPARE(written.object().value(key).toObject().keys(), members);
    }
    QCOMPARE(written.object().value("page_Device1").toObject().value("Status").toInt(), deviceOpens ? 1 : 0);
}

QTEST_MAIN(tst_ConfigFiles)
#include "tst_configfiles.moc"
