#include "FakeCamera.h"
#include "FileProbe.h"
#include "LocalIPv4.h"
#include "Logger.h"
#include "TCPSettingWidget.h"

#include <QApplication>
#include <QComboBox>
#include <QFileDialog>
#include <QHostInfo>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QNetworkInterface>
#include <QPushButton>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QTimer>
#include <QToolButton>
#include <QTranslator>
#include <QtTest>
#include <functional>

namespace {

constexpr int kWaitMs = 5000;
const char* const kFramePrefix = "The package barcode info is :";
const char* const kControlNames[] = { "comboBox_tcp",         "lineEdit_IP",       "lineEdit_port",
                                      "btnSelectSaveFileDir", "lineEditStartChar", "lineEditEndChar" };

template <typename T>
T* child(const QWidget& page, const char* name)
{
    return page.findChild<T*>(QString::fromLatin1(name));
}

QString buttonText(const TCPSettingWidget& page)
{
    return child<QToolButton>(page, "openTcpBtn")->text();
}

int lampStatus(const TCPSettingWidget& page)
{
    return child<QLabel>(page, "label_TCP")->property("status").toInt();
}

bool controlsEnabled(const TCPSettingWidget& page, bool enabled)
{
    for (const char* name : kControlNames) {
        if (child<QWidget>(page, name)->isEnabled() != enabled) {
            return false;
        }
    }
    return child<QToolButton>(page, "openTcpBtn")->isEnabled();
}

void pressOpenButton(TCPSettingWidget& page)
{
    QTest::mouseClick(child<QToolButton>(page, "openTcpBtn"), Qt::LeftButton);
}

QString portText(quint16 port)
{
    return QString::number(port);
}

TCPSettings deviceSettings(int tcpType, const QString& port, const QString& fileDir)
{
    TCPSettings settings;
    settings.tcpType = tcpType;
    settings.tcpPort = port;
    settings.tcpClientIP = QStringLiteral("127.0.0.1");
    settings.fileDir = fileDir;
    settings.startChar = QStringLiteral("#");
    settings.endChar = QStringLiteral("$");
    return settings;
}

// What the page should show for the server role, worked out here from the machine's own lists.
QString expectedServerAddress()
{
    QList<QHostAddress> interfaceAddresses;
    for (const QNetworkInterface& networkInterface : QNetworkInterface::allInterfaces()) {
        const auto flags = networkInterface.flags();
        if (flags.testFlag(QNetworkInterface::IsUp) && flags.testFlag(QNetworkInterface::IsRunning)
            && !flags.testFlag(QNetworkInterface::IsLoopBack)) {
            for (const QNetworkAddressEntry& entry : networkInterface.addressEntries()) {
                interfaceAddresses.append(entry.ip());
            }
        }
    }
    const QHostInfo host = QHostInfo::fromName(QHostInfo::localHostName());
    const QHostAddress chosen = chooseLocalIPv4(host.addresses(), interfaceAddresses);
    return chosen.isNull() ? QString() : chosen.toString();
}

QStringList messages(const QSignalSpy& spy)
{
    QStringList list;
    for (const QList<QVariant>& arguments : spy) {
        list.append(arguments.at(0).toString());
    }
    return list;
}

QList<QByteArray> frameFiles(const QStringList& frames)
{
    QList<QByteArray> contents;
    for (const QString& frame : frames) {
        contents.append(QByteArray(kFramePrefix) + frame.toUtf8());
    }
    return contents;
}

// Answers the directory chooser the way an operator would, once it shows up.
void answerDirectoryChooser(const std::function<void(QFileDialog*)>& answer, int attemptsLeft = 250)
{
    QTimer::singleShot(20, [answer, attemptsLeft]() {
        auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        if (dialog) {
            answer(dialog);
        } else if (attemptsLeft > 0) {
            answerDirectoryChooser(answer, attemptsLeft - 1);
        }
    });
}

} // namespace

// Stands where the window's data pane is: on the GUI thread, so received text reaches it queued.
class ShownTextRecorder final : public QObject
{
    Q_OBJECT

public slots:
    void record(const QString& text) { texts.append(text); }

public:
    QStringList texts;
};

class tst_tcpsettingwidget final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void newPageShowsFormState();
    void clientRoleOpensWritesFramesAndCloses();
    void serverRoleListensOnEditedAddress();
    void zeroByteChunkShowsNoText();
    void failedCheckLeavesPageUnchanged_data();
    void failedCheckLeavesPageUnchanged();
    void failedOpenLogsStoredAddress_data();
    void failedOpenLogsStoredAddress();
    void roleChangeRewritesAddressKeepsPort();
    void setSettingsWithStatusOneOpens();
    void setSettingsWithStatusOneAndNoDirectoryStaysClosed();
    void setSettingsWithUnknownTypeLeavesAddressAndButton();
    void retranslateKeepsDeviceOpen_data();
    void retranslateKeepsDeviceOpen();
    void directoryChooserStoresChoice();
    void directoryChooserCancelledEmptiesDirectory();
    void destructionSendsNothingToListeners_data();
    void destructionSendsNothingToListeners();

private:
    // Brings the page to its open state against a camera on loopback, in either role.
    void openAgainstCamera(TCPSettingWidget& page, FakeCamera& camera, int tcpType, const QString& fileDir);

    QTemporaryDir m_logDir;
    QString m_logPath;
};

void tst_tcpsettingwidget::initTestCase()
{
    // Qt's own widget dialog, so the test can answer it.
    QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
    QVERIFY(m_logDir.isValid());
    m_logPath = m_logDir.filePath("device.log");
    QVERIFY(Logger::open(m_logPath.toStdString()));
}

void tst_tcpsettingwidget::openAgainstCamera(TCPSettingWidget& page,
                                             FakeCamera& camera,
                                             int tcpType,
                                             const QString& fileDir)
{
    if (tcpType == 0) {
        page.setSettings(deviceSettings(0, portText(camera.listen()), fileDir));
        pressOpenButton(page);
        QTRY_COMPARE_WITH_TIMEOUT(camera.openCount(), 1, kWaitMs);
        QCOMPARE(buttonText(page), QStringLiteral("Disconnect"));
    } else {
        const quint16 port = FakeCamera::freePort();
        page.setSettings(deviceSettings(1, portText(port), fileDir));
        // The machine's address is never dialled from a test: listen on loopback as an operator may set it.
        child<QLineEdit>(page, "lineEdit_IP")->setText("127.0.0.1");
        pressOpenButton(page);
        QCOMPARE(buttonText(page), QStringLiteral("Close"));
        QVERIFY(camera.connectToServer(port));
    }
    QCOMPARE(lampStatus(page), 1);
}

void tst_tcpsettingwidget::newPageShowsFormState()
{
    TCPSettingWidget page(nullptr);

    QCOMPARE(page.objectName(), QStringLiteral("TCPSettingWidget"));
    QCOMPARE(page.windowTitle(), QStringLiteral("Form"));
    QCOMPARE(buttonText(page), QStringLiteral("Open"));
    QCOMPARE(lampStatus(page), 0);
    QVERIFY(child<QLineEdit>(page, "lineEdit_SaveFileNameDir")->isReadOnly());
    auto* combo = child<QComboBox>(page, "comboBox_tcp");
    QCOMPARE(combo->count(), 2);
    QCOMPARE(combo->itemText(0), QStringLiteral("TCP Client"));
    QCOMPARE(combo->itemText(1), QStringLiteral("TCP Server"));
    QCOMPARE(combo->currentIndex(), 0);
    QVERIFY(qobject_cast<QListView*>(combo->view()));
    QVERIFY(controlsEnabled(page, true));

    const TCPSettings stored = page.getSettings();
    QCOMPARE(stored.status, 0);
    QCOMPARE(stored.tcpType, 0);
    QVERIFY(stored.tcpClientIP.isEmpty());
    QVERIFY(stored.fileDir.isEmpty());
}

void tst_tcpsettingwidget::clientRoleOpensWritesFramesAndCloses()
{
    QTemporaryDir frames;
    QVERIFY(frames.isValid());
    TCPSettingWidget page(nullptr);
    page.show();
    ShownTextRecorder shown;
    QObject::connect(&page, SIGNAL(sendShowData(QString)), &shown, SLOT(record(QString)));
    QSignalSpy logged(&page, SIGNAL(sendShowLogData(QString)));
    FakeCamera camera;

    page.setSettings(deviceSettings(0, portText(camera.listen()), frames.path()));
    QCOMPARE(buttonText(page), QStringLiteral("Connect"));
    QCOMPARE(child<QLineEdit>(page, "lineEdit_IP")->text(), QStringLiteral("127.0.0.1"));

    pressOpenButton(page);
    QTRY_COMPARE_WITH_TIMEOUT(camera.openCount(), 1, kWaitMs);
    QCOMPARE(buttonText(page), QStringLiteral("Disconnect"));
    QCOMPARE(lampStatus(page), 1);
    QVERIFY(controlsEnabled(page, false));
    QCOMPARE(page.getSettings().status, 1);
    QVERIFY(messages(logged).contains("Link to server successfully!"));

    camera.send("noise#ABC$");
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFileContents(frames.path()), frameFiles({ "ABC" }), kWaitMs);
    camera.send("#line\r\ntwo$");
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFileContents(frames.path()), frameFiles({ "ABC", "linetwo" }), kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(shown.texts.join(QString()), QStringLiteral("noise#ABC$#line\r\ntwo$"), kWaitMs);

    pressOpenButton(page);
    QCOMPARE(buttonText(page), QStringLiteral("Connect"));
    QCOMPARE(lampStatus(page), 0);
    QVERIFY(controlsEnabled(page, true));
    QCOMPARE(page.getSettings().status, 0);
    QTRY_COMPARE_WITH_TIMEOUT(camera.endedByPeerCount(), 1, kWaitMs);
}

void tst_tcpsettingwidget::serverRoleListensOnEditedAddress()
{
    QTemporaryDir frames;
    QVERIFY(frames.isValid());
    TCPSettingWidget page(nullptr);
    page.show();
    ShownTextRecorder shown;
    QObject::connect(&page, SIGNAL(sendShowData(QString)), &shown, SLOT(record(QString)));
    const quint16 port = FakeCamera::freePort();

    TCPSettings settings = deviceSettings(1, portText(port), frames.path());
    settings.tcpClientIP = QStringLiteral("stored listen address");
    page.setSettings(settings);
    auto* ipField = child<QLineEdit>(page, "lineEdit_IP");
    QCOMPARE(ipField->text(), expectedServerAddress());
    QCOMPARE(buttonText(page), QStringLiteral("Open"));

    ipField->setText("127.0.0.1");
    pressOpenButton(page);
    QCOMPARE(buttonText(page), QStringLiteral("Close"));
    QCOMPARE(lampStatus(page), 1);
    QVERIFY(controlsEnabled(page, false));
    QCOMPARE(page.getSettings().tcpClientIP, QStringLiteral("127.0.0.1"));

    FakeCamera camera;
    QVERIFY(camera.connectToServer(port));
    camera.send("#S1$");
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFileContents(frames.path()), frameFiles({ "S1" }), kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(shown.texts.join(QString()), QStringLiteral("#S1$"), kWaitMs);

    pressOpenButton(page);
    QCOMPARE(buttonText(page), QStringLiteral("Open"));
    QCOMPARE(lampStatus(page), 0);
    QVERIFY(controlsEnabled(page, true));
    QTRY_COMPARE_WITH_TIMEOUT(camera.endedByPeerCount(), 1, kWaitMs);
}

void tst_tcpsettingwidget::zeroByteChunkShowsNoText()
{
    QTemporaryDir frames;
    QVERIFY(frames.isValid());
    TCPSettingWidget page(nullptr);
    page.show();
    ShownTextRecorder shown;
    QObject::connect(&page, SIGNAL(sendShowData(QString)), &shown, SLOT(record(QString)));
    FakeCamera camera;
    openAgainstCamera(page, camera, 0, frames.path());
    if (QTest::currentTestFailed()) {
        return;
    }

    camera.send(QByteArray("\0#hidden$", 9));
    QTRY_VERIFY_WITH_TIMEOUT(!shown.texts.isEmpty(), kWaitMs);
    QCOMPARE(shown.texts.first(), QString());
}

void tst_tcpsettingwidget::failedCheckLeavesPageUnchanged_data()
{
    QTest::addColumn<QStringList>("clearedFields");
    QTest::addColumn<bool>("withDirectory");
    QTest::addColumn<QString>("message");

    const QString address = QStringLiteral("Enter an IP address or port number!");
    const QString startEnd = QStringLiteral("Enter a start char or end char!");
    const QString directory = QStringLiteral("You did not select any file save directory.");

    QTest::newRow("no IP") << QStringList { "lineEdit_IP" } << true << address;
    QTest::newRow("no port") << QStringList { "lineEdit_port" } << true << address;
    QTest::newRow("no start") << QStringList { "lineEditStartChar" } << true << startEnd;
    QTest::newRow("no end") << QStringList { "lineEditEndChar" } << true << startEnd;
    QTest::newRow("no directory") << QStringList() << false << directory;
    QTest::newRow("address checked first") << QStringList { "lineEdit_port", "lineEditEndChar" } << false << address;
    QTest::newRow("start and end before directory") << QStringList { "lineEditStartChar" } << false << startEnd;
}

void tst_tcpsettingwidget::failedCheckLeavesPageUnchanged()
{
    QFETCH(QStringList, clearedFields);
    QFETCH(bool, withDirectory);
    QFETCH(QString, message);

    QTemporaryDir frames;
    QVERIFY(frames.isValid());
    TCPSettingWidget page(nullptr);
    page.show();
    FakeCamera camera;
    page.setSettings(deviceSettings(0, portText(camera.listen()), withDirectory ? frames.path() : QString()));
    for (const QString& name : clearedFields) {
        child<QLineEdit>(page, name.toLatin1().constData())->clear();
    }
    QSignalSpy logged(&page, SIGNAL(sendShowLogData(QString)));

    QTest::ignoreMessage(QtDebugMsg, message.toUtf8().constData());
    pressOpenButton(page);

    QCOMPARE(messages(logged), QStringList { message });
    QCOMPARE(buttonText(page), QStringLiteral("Connect"));
    QCOMPARE(lampStatus(page), 0);
    QVERIFY(controlsEnabled(page, true));
    QVERIFY(FileProbe::textFiles(frames.path()).isEmpty());
}

void tst_tcpsettingwidget::failedOpenLogsStoredAddress_data()
{
    QTest::addColumn<int>("tcpType");
    QTest::addColumn<QString>("storedIp");
    QTest::addColumn<QString>("editedIp");
    QTest::addColumn<QString>("role");
    QTest::addColumn<QStringList>("endpointMessages");

    const QStringList clientMessages { "Failed to connect to the server.", "Disconnected server successfully!" };
    const QStringList serverMessages { "Failed to open the server!", "Shut down the server successfully!" };

    QTest::newRow("client refused, port edited") << 0 << "127.0.0.1" << QString() << "client" << clientMessages;
    QTest::newRow("client, IP edited to no address") << 0 << "127.0.0.1"
                                                     << "camera seven"
                                                     << "client" << clientMessages;
    QTest::newRow("server, port taken") << 1 << "192.0.2.10"
                                        << "127.0.0.1"
                                        << "server" << serverMessages;
}

void tst_tcpsettingwidget::failedOpenLogsStoredAddress()
{
    QFETCH(int, tcpType);
    QFETCH(QString, storedIp);
    QFETCH(QString, editedIp);
    QFETCH(QString, role);
    QFETCH(QStringList, endpointMessages);

    QTemporaryDir frames;
    QVERIFY(frames.isValid());
    TCPSettingWidget page(nullptr);
    page.show();

    // The server role meets a port that another listener holds; the client role a port nobody serves.
    FakeCamera occupant;
    const quint16 occupiedPort = occupant.listen();
    QVERIFY(occupiedPort != 0);
    const QString storedPort = portText(FakeCamera::freePort());
    TCPSettings settings = deviceSettings(tcpType, storedPort, frames.path());
    settings.tcpClientIP = storedIp;
    page.setSettings(settings);
    const QString closedText = buttonText(page);

    QString editedPort = portText(occupiedPort);
    while (tcpType == 0 && (editedPort == storedPort || editedPort == portText(occupiedPort))) {
        editedPort = portText(FakeCamera::freePort());
    }
    child<QLineEdit>(page, "lineEdit_port")->setText(editedPort);
    if (!editedIp.isEmpty()) {
        child<QLineEdit>(page, "lineEdit_IP")->setText(editedIp);
    }
    QSignalSpy logged(&page, SIGNAL(sendShowLogData(QString)));

    pressOpenButton(page);

    QCOMPARE(messages(logged), endpointMessages);
    QCOMPARE(buttonText(page), closedText);
    QCOMPARE(lampStatus(page), 0);
    QVERIFY(controlsEnabled(page, true));
    const QByteArray expectedLine
        = QStringLiteral("[INFO] open TCP %1 failed, ip: %2, port: %3.").arg(role, storedIp, storedPort).toUtf8();
    const QByteArray log = FileProbe::readAll(m_logPath);
    QVERIFY2(log.contains(expectedLine), log.right(400).constData());
    QVERIFY(!log.contains(QByteArray("port: " + editedPort.toUtf8() + ".")));
}

void tst_tcpsettingwidget::roleChangeRewritesAddressKeepsPort()
{
    TCPSettingWidget page(nullptr);
    TCPSettings settings = deviceSettings(0, QStringLiteral("4001"), QStringLiteral("/frames"));
    settings.tcpClientIP = QStringLiteral("127.0.0.1");
    page.setSettings(settings);
    auto* ipField = child<QLineEdit>(page, "lineEdit_IP");
    auto* combo = child<QComboBox>(page, "comboBox_tcp");
    ipField->setText("typed by hand");

    combo->setCurrentIndex(1);
    QCOMPARE(ipField->text(), expectedServerAddress());
    QCOMPARE(buttonText(page), QStringLiteral("Open"));
    QCOMPARE(child<QLineEdit>(page, "lineEdit_port")->text(), QStringLiteral("4001"));
    QCOMPARE(page.getSettings().tcpType, 1);

    combo->setCurrentIndex(0);
    QCOMPARE(ipField->text(), QStringLiteral("127.0.0.1"));
    QCOMPARE(buttonText(page), QStringLiteral("Connect"));
    QCOMPARE(child<QLineEdit>(page, "lineEdit_port")->text(), QStringLiteral("4001"));
}

void tst_tcpsettingwidget::setSettingsWithStatusOneOpens()
{
    QTemporaryDir frames;
    QVERIFY(frames.isValid());
    TCPSettingWidget page(nullptr);
    FakeCamera camera;
    TCPSettings settings = deviceSettings(0, portText(camera.listen()), frames.path());
    settings.status = 1;

    page.setSettings(settings);

    QTRY_COMPARE_WITH_TIMEOUT(camera.openCount(), 1, kWaitMs);
    QCOMPARE(buttonText(page), QStringLiteral("Disconnect"));
    QCOMPARE(lampStatus(page), 1);
    QVERIFY(controlsEnabled(page, false));
    QCOMPARE(page.getSettings().status, 1);
    camera.send("#boot$");
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFileContents(frames.path()), frameFiles({ "boot" }), kWaitMs);
}

void tst_tcpsettingwidget::setSettingsWithStatusOneAndNoDirectoryStaysClosed()
{
    TCPSettingWidget page(nullptr);
    QSignalSpy logged(&page, SIGNAL(sendShowLogData(QString)));
    FakeCamera camera;
    TCPSettings settings = deviceSettings(0, portText(camera.listen()), QString());
    settings.status = 1;

    page.setSettings(settings);

    QCOMPARE(messages(logged), QStringList { "You did not select any file save directory." });
    QCOMPARE(buttonText(page), QStringLiteral("Connect"));
    QCOMPARE(page.getSettings().status, 0);
    QVERIFY(controlsEnabled(page, true));
}

void tst_tcpsettingwidget::setSettingsWithUnknownTypeLeavesAddressAndButton()
{
    TCPSettingWidget page(nullptr);
    page.setSettings(deviceSettings(0, QStringLiteral("4001"), QStringLiteral("/frames")));
    QCOMPARE(buttonText(page), QStringLiteral("Connect"));

    TCPSettings unknown = deviceSettings(2, QStringLiteral("4002"), QStringLiteral("/other"));
    unknown.tcpClientIP = QStringLiteral("127.0.0.9");
    page.setSettings(unknown);

    QCOMPARE(child<QLineEdit>(page, "lineEdit_IP")->text(), QStringLiteral("127.0.0.1"));
    QCOMPARE(buttonText(page), QStringLiteral("Connect"));
    QCOMPARE(child<QLineEdit>(page, "lineEdit_port")->text(), QStringLiteral("4002"));
    QCOMPARE(child<QLineEdit>(page, "lineEdit_SaveFileNameDir")->text(), QStringLiteral("/other"));
}

void tst_tcpsettingwidget::retranslateKeepsDeviceOpen_data()
{
    QTest::addColumn<int>("tcpType");
    QTest::addColumn<bool>("chinese");
    QTest::addColumn<QString>("openText");
    QTest::addColumn<QString>("closedText");
    QTest::addColumn<QString>("roleText");

    QTest::newRow("client, English") << 0 << false << "Disconnect"
                                     << "Connect"
                                     << "TCP Client";
    QTest::newRow("server, English") << 1 << false << "Close"
                                     << "Open"
                                     << "TCP Server";
    QTest::newRow("client, Chinese") << 0 << true << "断开"
                                     << "连接"
                                     << "TCP客户端";
    QTest::newRow("server, Chinese") << 1 << true << "关闭"
                                     << "打开"
                                     << "TCP服务端";
}

void tst_tcpsettingwidget::retranslateKeepsDeviceOpen()
{
    QFETCH(int, tcpType);
    QFETCH(bool, chinese);
    QFETCH(QString, openText);
    QFETCH(QString, closedText);
    QFETCH(QString, roleText);

    QTemporaryDir frames;
    QVERIFY(frames.isValid());
    TCPSettingWidget page(nullptr);
    page.show();
    FakeCamera camera;
    openAgainstCamera(page, camera, tcpType, frames.path());
    if (QTest::currentTestFailed()) {
        return;
    }
    const QString addressBefore = child<QLineEdit>(page, "lineEdit_IP")->text();

    QTranslator translator;
    if (chinese) {
        QVERIFY(translator.load(QStringLiteral(DEVICE_TEST_TRANSLATION)));
        QVERIFY(QCoreApplication::installTranslator(&translator));
    }
    const auto removeTranslator = qScopeGuard([&translator]() { QCoreApplication::removeTranslator(&translator); });
    page.retranslate();

    QCOMPARE(buttonText(page), openText);
    QCOMPARE(lampStatus(page), 1);
    auto* combo = child<QComboBox>(page, "comboBox_tcp");
    QCOMPARE(combo->currentIndex(), tcpType);
    QCOMPARE(combo->currentText(), roleText);
    QCOMPARE(child<QLineEdit>(page, "lineEdit_IP")->text(), addressBefore);
    QVERIFY(controlsEnabled(page, false));

    camera.send("#still open$");
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFileContents(frames.path()), frameFiles({ "still open" }), kWaitMs);

    pressOpenButton(page);
    QCOMPARE(buttonText(page), closedText);
    QCOMPARE(lampStatus(page), 0);
    QVERIFY(controlsEnabled(page, true));
    QTRY_COMPARE_WITH_TIMEOUT(camera.endedByPeerCount(), 1, kWaitMs);
}

void tst_tcpsettingwidget::directoryChooserStoresChoice()
{
    QTemporaryDir chosen;
    QVERIFY(chosen.isValid());
    TCPSettingWidget page(nullptr);
    page.show();
    QString caption;
    QString startDirectory;
    answerDirectoryChooser([&](QFileDialog* dialog) {
        caption = dialog->windowTitle();
        startDirectory = dialog->directory().absolutePath();
        dialog->setDirectory(chosen.path());
        QMetaObject::invokeMethod(dialog, "accept");
    });

    QTest::mouseClick(child<QPushButton>(page, "btnSelectSaveFileDir"), Qt::LeftButton);

    QCOMPARE(caption, QStringLiteral("Select Save File Directory"));
    QCOMPARE(startDirectory, QDir::homePath());
    QCOMPARE(child<QLineEdit>(page, "lineEdit_SaveFileNameDir")->text(), chosen.path());
    QCOMPARE(page.getSettings().fileDir, chosen.path());

    // The choice is what the third check reads: with it, a press gets past the checks.
    FakeCamera camera;
    child<QLineEdit>(page, "lineEdit_IP")->setText("127.0.0.1");
    child<QLineEdit>(page, "lineEdit_port")->setText(portText(camera.listen()));
    child<QLineEdit>(page, "lineEditStartChar")->setText("#");
    child<QLineEdit>(page, "lineEditEndChar")->setText("$");
    pressOpenButton(page);
    QTRY_COMPARE_WITH_TIMEOUT(camera.openCount(), 1, kWaitMs);
    camera.send("#picked$");
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFileContents(chosen.path()), frameFiles({ "picked" }), kWaitMs);
}

void tst_tcpsettingwidget::directoryChooserCancelledEmptiesDirectory()
{
    QTemporaryDir frames;
    QVERIFY(frames.isValid());
    TCPSettingWidget page(nullptr);
    page.show();
    page.setSettings(deviceSettings(0, portText(FakeCamera::freePort()), frames.path()));
    QCOMPARE(child<QLineEdit>(page, "lineEdit_SaveFileNameDir")->text(), frames.path());
    bool answered = false;
    answerDirectoryChooser([&answered](QFileDialog* dialog) {
        answered = true;
        dialog->reject();
    });

    QTest::mouseClick(child<QPushButton>(page, "btnSelectSaveFileDir"), Qt::LeftButton);

    QVERIFY(answered);
    QVERIFY(child<QLineEdit>(page, "lineEdit_SaveFileNameDir")->text().isEmpty());
    QSignalSpy logged(&page, SIGNAL(sendShowLogData(QString)));
    QTest::ignoreMessage(QtDebugMsg, "You did not select any file save directory.");
    pressOpenButton(page);
    QCOMPARE(messages(logged), QStringList { "You did not select any file save directory." });
    QCOMPARE(buttonText(page), QStringLiteral("Connect"));
}

void tst_tcpsettingwidget::destructionSendsNothingToListeners_data()
{
    QTest::addColumn<int>("tcpType");
    QTest::addColumn<bool>("open");

    QTest::newRow("client open") << 0 << true;
    QTest::newRow("server open") << 1 << true;
    QTest::newRow("server closed") << 1 << false;
}

void tst_tcpsettingwidget::destructionSendsNothingToListeners()
{
    QFETCH(int, tcpType);
    QFETCH(bool, open);

    QTemporaryDir frames;
    QVERIFY(frames.isValid());
    // The panes of the window that owns the page; they stand for a window already half torn down.
    QTextEdit logPane;
    QTextEdit dataPane;
    auto* page = new TCPSettingWidget(nullptr);
    page->show();
    QObject::connect(page, SIGNAL(sendShowLogData(QString)), &logPane, SLOT(append(QString)));
    QObject::connect(page, SIGNAL(sendShowData(QString)), &dataPane, SLOT(append(QString)));
    FakeCamera camera;
    if (open) {
        openAgainstCamera(*page, camera, tcpType, frames.path());
        if (QTest::currentTestFailed()) {
            delete page;
            return;
        }
        camera.send("#last$");
        QTRY_VERIFY_WITH_TIMEOUT(dataPane.toPlainText().contains("#last$"), kWaitMs);
    } else {
        page->setSettings(deviceSettings(tcpType, QString(), frames.path()));
        pressOpenButton(*page);
    }
    QTRY_VERIFY_WITH_TIMEOUT(!logPane.toPlainText().isEmpty(), kWaitMs);
    const QString logBefore = logPane.toPlainText();
    const QString dataBefore = dataPane.toPlainText();

    delete page;
    QCoreApplication::processEvents();

    QCOMPARE(logPane.toPlainText(), logBefore);
    QCOMPARE(dataPane.toPlainText(), dataBefore);
    if (open) {
        QTRY_COMPARE_WITH_TIMEOUT(camera.endedByPeerCount(), 1, kWaitMs);
    }
}

QTEST_MAIN(tst_tcpsettingwidget)
#include "tst_tcpsettingwidget.moc"
