#include "Device.h"
#include "DeviceSet.h"
#include "FakeCamera.h"
#include "FileProbe.h"
#include "LocalIPv4.h"
#include "Logger.h"
#include "NetTCPServer.h"
#include "TCPSettingWidget.h"
#include "TestProgramDir.h"
#include "Unshared.h"

#include <QtNetwork>
#include <QtTest>
#include <QtWidgets>

static std::atomic<std::int64_t> s_now { 0 }; // the servers' clock, in milliseconds

// Closed, a client locks what only a server uses and a server what only a client uses; with key
// output off, its speed is locked too. Open, every control is, but the save directory shown read-only.
static const QStringList kClientClosed {
    "comboBoxKeySpeed", "labelAllowedCamera", "labelKeySpeed", "lineEditAllowedCamera"
};
static const QStringList kServerClosed { "checkBoxWaitForCamera", "comboBoxKeySpeed", "labelKeySpeed" };
static const QStringList kOpen { "btnSelectSaveFileDir",  "checkBoxKeepEveryFrame", "checkBoxKeyOutput",
                                 "checkBoxWaitForCamera", "comboBoxKeySpeed",       "comboBox_tcp",
                                 "labelAllowedCamera",    "labelKeySpeed",          "lineEditAllowedCamera",
                                 "lineEditEndChar",       "lineEditStartChar",      "lineEdit_IP",
                                 "lineEdit_port" };

Q_DECLARE_METATYPE(TCPSettings)
Q_DECLARE_METATYPE(QHostAddress)

// The address the server role should offer, from the lists the page consults.
static QString serverAddress()
{
    const QList<QHostAddress> host = QHostInfo::fromName(QHostInfo::localHostName()).addresses();
    return chooseLocalIPv4(host, QNetworkInterface::allAddresses()).toString();
}

// The device page and the device behind it. The page's messages land in a pane, as in the window;
// those from the network threads arrive queued.
class tst_device final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(Logger::open(m_log.toStdString())); }
    void init()
    {
        m_page = new TCPSettingWidget(new Device);
        m_page->shownDevice()->setParent(m_page); // alone here: the page takes the set's place
        connect(m_page, SIGNAL(sendShowLogData(QString)), &m_pane, SLOT(append(QString)));
    }
    void cleanup() { delete m_page; }

    // What the host name resolves to and what the active interfaces hold give the one to listen on.
    void localIPv4Choice_data()
    {
        using Addresses = QList<QHostAddress>;
        QTest::addColumn<Addresses>("host");
        QTest::addColumn<Addresses>("interfaces");
        QTest::addColumn<QHostAddress>("chosen");
        const QHostAddress lan("192.168.1.5"), net("10.0.0.2"), debian("127.0.1.1"), link("fe80::2");
        QTest::newRow("127.0.1.1 gives way") << Addresses { QHostAddress("::1"), debian, lan }
                                             << Addresses { link, QHostAddress("127.0.0.1"), net } << net;
        QTest::newRow("the host name's own address kept") << Addresses { lan } << Addresses { net } << lan;
        QTest::newRow("loopback kept without interface IPv4") << Addresses { debian } << Addresses { link } << debian;
        QTest::newRow("only IPv6 for the host name")
            << Addresses { QHostAddress("::1"), QHostAddress("2001:db8::1") } << Addresses { net } << QHostAddress();
    }

    void localIPv4Choice()
    {
        QFETCH(QList<QHostAddress>, host);
        QFETCH(QList<QHostAddress>, interfaces);
        QTEST(chooseLocalIPv4(host, interfaces), "chosen");
    }

    // On a fresh page the role box rewrites the address; the client opens, then the server.
    void opensClosesAndKeepsItsStateThroughLanguages()
    {
        QTemporaryDir frames;
        FakeCamera camera, client;
        const quint16 port = camera.listen(), serverPort = FakeCamera::freePort();
        m_page->setSettings({ 0, 0, QString::number(port), "127.0.0.1", frames.path(), "#", "$" });
        auto* role = m_page->findChild<QComboBox*>("comboBox_tcp");
        auto* ip = m_page->findChild<QLineEdit*>("lineEdit_IP");
        ip->setText("typed by hand");
        role->setCurrentIndex(1);
        QCOMPARE(ip->text(), serverAddress());
        QCOMPARE(state(), QStringLiteral("Open 0 TCP Server"));
        QCOMPARE(locked(), kServerClosed);
        role->setCurrentIndex(0);
        QCOMPARE(ip->text(), QStringLiteral("127.0.0.1"));
        QCOMPARE(state(), QStringLiteral("Connect 0 TCP Client"));
        press();
        QTRY_COMPARE(camera.openCount(), 1);
        QVERIFY(m_chinese.load(DEVICE_TEST_TRANSLATION) && QCoreApplication::installTranslator(&m_chinese));
        m_page->retranslate();
        QCOMPARE(state(), QStringLiteral("断开 1 TCP客户端"));
        QCOMPARE(locked(), kOpen);
        camera.send("#AB$#C");
        QTRY_COMPARE(FileProbe::textFileContents(frames.path()).join(), QByteArray("The package barcode info is :AB"));
        press();
        QCOMPARE(state(), QStringLiteral("连接 0 TCP客户端"));
        QCOMPARE(locked(), kClientClosed);
        QTRY_COMPARE(camera.endedByPeerCount(), 1);
        QCoreApplication::removeTranslator(&m_chinese);
        m_page->retranslate();

        role->setCurrentIndex(1);
        ip->setText("127.0.0.1"); // loopback only, as an operator may set it
        press();                  // the camera still holds the stored port
        QCOMPARE(state(), QStringLiteral("Open 0 TCP Server"));
        QVERIFY(FileProbe::readAll(m_log).contains("server failed, ip: 127.0.0.1, port: " + QByteArray::number(port)));
        m_page->findChild<QLineEdit*>("lineEdit_port")->setText(QString::number(serverPort));
        press();
        QVERIFY(client.connectToServer(serverPort));
        m_page->retranslate();
        QCOMPARE(state(), QStringLiteral("Close 1 TCP Server"));
        QCOMPARE(locked(), kOpen);
        client.send("#S$");
        QTRY_COMPARE(FileProbe::textFiles(frames.path()).size(), 2);
        const QString messages = m_pane.toPlainText();
        delete std::exchange(m_page, nullptr); // the window that listens is tearing down too
        QCOMPARE(m_pane.toPlainText(), messages);
        QTRY_COMPARE(client.endedByPeerCount(), 1);
    }

    // A server with an allowed camera turns every other address away and says so; with every frame
    // kept, the camera back from the address it serves takes the place of its dead connection (by
    // default it is turned away, as in tst_net). One that types without it says once at open that
    // any camera can type.
    void serverTakesOnlyTheAllowedCamera()
    {
        QTemporaryDir frames;
        FakeCamera stranger, allowed, back;
        const quint16 port = FakeCamera::freePort();
        m_page->setSettings({ 0, 1, QString::number(port), "", frames.path(), "#", "$", true }); // every frame kept
        QCOMPARE(m_page->findChild<QLineEdit*>("lineEdit_IP")->text(), serverAddress());
        m_page->findChild<QLineEdit*>("lineEdit_IP")->setText("127.0.0.1");
        auto* allowedCamera = m_page->findChild<QLineEdit*>("lineEditAllowedCamera");
        allowedCamera->setText("camera 2");
        press();
        QCOMPARE(m_pane.document()->lastBlock().text(),
                 "Enter the allowed camera as an IP address, or leave it empty!");
        QCOMPARE(state(), QStringLiteral("Open 0 TCP Server"));
        allowedCamera->setText(" 127.0.0.2");
        press();
        // Said at once for an address, then at most once a minute with the attempts counted.
        NetTCPServer::setClock([] { return s_now.load(); });
        const int knocks[][2] { { 1, 0 }, { 1, 59999 }, { 3, 59999 }, { 1, 60000 } }; // 127.0.0.x at ms
        QList<quint16> ports;
        for (const auto& [x, at] : knocks) {
            s_now = at;
            QVERIFY(stranger.connectToServer(port, QString("127.0.0.%1").arg(x)));
            ports << stranger.localPort();
            QTRY_COMPARE(stranger.endedByPeerCount(), ports.size());
        }
        const QString away = "The camera %1:%2 is not the allowed camera 127.0.0.2; it was turned away.";
        const QString counted = "The camera 127.0.0.1 is not the allowed camera 127.0.0.2; 2 of its connections were "
                                "turned away since the last message.";
        const QStringList said { away.arg("127.0.0.1").arg(ports[0]), away.arg("127.0.0.3").arg(ports[2]), counted };
        QTRY_COMPARE(m_pane.toPlainText().split('\n').filter("allowed camera 127.0.0.2"), said);
        QVERIFY(allowed.connectToServer(port, "127.0.0.2"));
        allowed.send("#A$");
        QTRY_COMPARE(FileProbe::textFileContents(frames.path()).join(), QByteArray("The package barcode info is :A"));
        // Every frame kept, the allowed camera back while its old connection hangs takes its place.
        QVERIFY(back.connectToServer(port, "127.0.0.2"));
        back.send("#B$");
        QTRY_COMPARE(allowed.endedByPeerCount(), 1);
        QTRY_COMPARE(FileProbe::textFiles(frames.path()).size(), 2);
        QTRY_COMPARE(m_pane.toPlainText().count("camera 127.0.0.2 connected again; its earlier connection was closed."),
                     1);
        press();

        allowedCamera->clear();
        m_page->findChild<QCheckBox*>("checkBoxKeyOutput")->setChecked(true);
        press();
        QVERIFY(stranger.connectToServer(port));
        QTRY_VERIFY(m_pane.toPlainText().contains("Camera 127.0.0.1"));
        QVERIFY(back.connectToServer(port, "127.0.0.3")); // another address, with every frame kept too
        QTRY_COMPARE(back.endedByPeerCount(), 2);
        QCOMPARE(m_pane.toPlainText().count("disconnected"), 0);
        QCOMPARE(m_pane.toPlainText().count("Any camera that connects to this server can type"), 1);
        QCOMPARE(state(), QStringLiteral("Close 1 TCP Server"));
        QCOMPARE(locked(), kOpen); // key output on: its speed locked too
    }

    // Stored open before the network is up, a server listens on loopback and says so, then moves to
    // the network address once that is up and can be listened on; one the operator chose stays.
    // Runs again in a network namespace of its own, where the test adds the network.
    void serverMovesToTheNetworkAddress()
    {
        if (!Unshared::inside())
            return Unshared::rerun({ "-n" }, "ip link set lo up");
        QTemporaryDir frames;
        const QString port = QString::number(FakeCamera::freePort()), up = "ip link set tw1 up && ip link set tw0 up";
        Device chosen;
        chosen.settings().fileDir = frames.path();
        QVERIFY(chosen.open({ 1, "127.0.0.2", QString::number(FakeCamera::freePort()), "#", "$" }));
        m_page->setSettings({ 1, 1, port, "", frames.path(), "#", "$" });
        auto* ip = m_page->findChild<QLineEdit*>("lineEdit_IP");
        const QString none = "This machine has no network address yet; the server listens on %1:%2 and moves";
        QVERIFY(m_pane.toPlainText().contains(none.arg(ip->text(), port)) && QHostAddress(ip->text()).isLoopback());
        if (QProcess::execute("ip", { "link", "add", "name", "tw0", "type", "veth", "peer", "name", "tw1" }) != 0)
            QSKIP("This machine cannot add a veth link in a network namespace.");
        QCOMPARE(QProcess::execute("ip", { "addr", "add", "10.200.0.1/24", "dev", "tw0" }), 0);
        QTcpServer holder; // takes the port on the new address until the server has said it cannot
        QVERIFY(holder.listen(QHostAddress("10.200.0.1"), port.toUShort()));
        QCOMPARE(QProcess::execute("sh", { "-c", up }), 0);
        const QString cannot = "The network address 10.200.0.1 is up, but the server cannot listen on 10.200.0.1:%1";
        QTRY_VERIFY(m_pane.toPlainText().contains(cannot.arg(port)));
        FakeCamera early; // served where the server was until the move, then let go
        QVERIFY(early.connectToServer(port.toUShort()));
        early.send("#E$");
        QTRY_COMPARE(FileProbe::textFiles(frames.path()).size(), 1);
        holder.close();
        QTRY_COMPARE(ip->text(), QStringLiteral("10.200.0.1"));
        QTRY_COMPARE(early.endedByPeerCount(), 1);
        QVERIFY(m_pane.toPlainText().endsWith("the server now listens on 10.200.0.1:" + port + "."));
        QVERIFY(
            FileProbe::readAll(m_log).contains("moved to the network address, ip: 10.200.0.1, port: " + port.toUtf8()));
        FakeCamera camera;
        QVERIFY(camera.connectToServer(port.toUShort(), "10.200.0.1", "10.200.0.1"));
        camera.send("#N$");
        QTRY_COMPARE(FileProbe::textFileContents(frames.path()).join('|'),
                     QByteArray("The package barcode info is :E|The package barcode info is :N"));
        press();
        press(); // reopened on the network address: nothing to wait for
        QCOMPARE(m_pane.toPlainText().count("no network address yet"), 1);
        QCOMPARE(m_pane.toPlainText().count("cannot listen"), 1);
        QCOMPARE(state(), QStringLiteral("Close 1 TCP Server"));
        QCOMPARE(chosen.address(), QStringLiteral("127.0.0.2"));
    }

    // Stored open, the page checks at once.
    void missingFieldStopsTheOpen_data()
    {
        QTest::addColumn<TCPSettings>("stored");
        QTest::addColumn<QString>("message");
        const QString address = "Enter an IP address or port number!", marks = "Enter a start char or end char!";
        QTest::newRow("no IP") << TCPSettings { 1, 0, "1", "", "d", "#", "$" } << address;
        QTest::newRow("no end") << TCPSettings { 1, 0, "1", "127.0.0.1", "d", "#", "" } << marks;
        QTest::newRow("no directory") << TCPSettings { 1, 0, "1", "127.0.0.1", "", "#", "$" }
                                      << "You did not select any file save directory.";
        QTest::newRow("address first") << TCPSettings { 1, 0, "", "127.0.0.1", "", "#", "" } << address;
    }

    void missingFieldStopsTheOpen()
    {
        QFETCH(TCPSettings, stored);
        m_page->setSettings(stored);
        QTEST(m_pane.document()->lastBlock().text(), "message");
        QCOMPARE(state(), QStringLiteral("Connect 0 TCP Client"));
        QCOMPARE(locked(), kClientClosed);
    }

    // A client whose camera is not up yet says so once, waits for it and opens when it comes; with
    // every frame kept, the queue the camera flushes the moment it is connected loses nothing.
    void keptFramesSentOnConnectArrive()
    {
        QTemporaryDir frames;
        auto device = std::make_unique<Device>();
        device->settings().fileDir = frames.path();
        connect(device.get(), &Device::message, &m_pane, &QTextEdit::append);
        QSignalSpy opened(device.get(), &Device::openedAfterWait);
        m_pane.clear();
        FakeCamera camera;
        QByteArray queue;
        for (int i = 0; i < 3000; ++i)
            queue += "[" + QByteArray::number(i) + "]";
        camera.greetWith(queue);
        const quint16 port = FakeCamera::freePort();
        QVERIFY(device->waitForCamera({ 0, "127.0.0.1", QString::number(port), "[", "]", true }));
        QVERIFY(device->isWaiting());
        QCOMPARE(camera.listen(port), port);
        QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFiles(frames.path()).size(), 3000, 10000);
        const QList<QByteArray> contents = FileProbe::textFileContents(frames.path());
        QCOMPARE(contents.first(), QByteArray("The package barcode info is :0"));
        QCOMPARE(contents.last(), QByteArray("The package barcode info is :2999"));
        QTRY_COMPARE(opened.count(), 1);
        QVERIFY(!device->isWaiting());
        QVERIFY(device->isOpen());
        QCOMPARE(m_pane.toPlainText().count("does not answer yet"), 1);
        const QString said = m_pane.toPlainText();
        device.reset(); // closed on the way, without a word to a window that may be going too
        QTRY_COMPARE(camera.endedByPeerCount(), 1);
        QCOMPARE(m_pane.toPlainText(), said);
    }

    // The set reads TCPconfig.json and writes it back byte for byte as the window always did: every
    // device it gives, nothing else.
    void deviceSetRoundTrip_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QByteArray>("written");
        const QByteArray today
            = "{\n    \"page_Device1\": {\n        \"EndChar\": \"]\",\n        \"FileDir\": \"/frames\",\n"
              "        \"StartChar\": \"[\",\n        \"Status\": 1,\n        \"TcpClientIP\": \"127.0.0.1\",\n"
              "        \"TcpPort\": \"5000\",\n        \"TcpType\": 0\n    },\n    \"page_Device2\": {\n"
              "        \"AllowedCamera\": \"10.0.0.7\",\n        \"EndChar\": \"$\",\n        \"FileDir\": \"/kept\",\n"
              "        \"KeepEveryFrame\": 1,\n        \"KeyOutput\": 1,\n        \"KeySpeed\": 4,\n"
              "        \"StartChar\": \"#\",\n        \"Status\": 0,\n        \"TcpClientIP\": \"\",\n"
              "        \"TcpPort\": \"6000\",\n        \"TcpType\": 1,\n        \"WaitForCamera\": 1\n    }\n}\n";
        QTest::newRow("the two pages of today") << today << today;
        QTest::newRow("other members left out") << "{\"stray\": {}, \"page_Device01\": {}, " + today.mid(1) << today;
    }

    void deviceSetRoundTrip()
    {
        QFETCH(QByteArray, stored);
        const QString path = QDir::temp().filePath("TCPconfig.json"); // the runner's scratch directory
        QVERIFY(TestProgramDir::writeFile(path, stored));
        DeviceSet set(path);
        QCOMPARE(set.read(), DeviceConfig::ReadResult::Read);
        QVERIFY(set.write());
        QTEST(FileProbe::readAll(path), "written");
    }

private:
    void press() { QTest::mouseClick(m_page->findChild<QToolButton*>("openTcpBtn"), Qt::LeftButton); }
    // What the page shows: the button's text, the stored status and the role.
    QString state() const
    {
        const QString button = m_page->findChild<QToolButton*>("openTcpBtn")->text();
        const QString role = m_page->findChild<QComboBox*>("comboBox_tcp")->currentText();
        return QString("%1 %2 %3").arg(button).arg(m_page->getSettings().status).arg(role);
    }
    // The page's controls that take no input, by name, with the labels that follow them.
    QStringList locked() const
    {
        QStringList names;
        for (QWidget* control : m_page->findChildren<QWidget*>(
                 QRegularExpression("^(lineEdit|btnSelect|comboBox|checkBox|label(KeySpeed|AllowedCamera))")))
            if (!control->isEnabled())
                names << control->objectName();
        names.sort();
        return names;
    }

    const QString m_log = QDir::temp().filePath("device.log"); // the runner's scratch directory
    QTranslator m_chinese;
    QTextEdit m_pane;
    TCPSettingWidget* m_page = nullptr;
};

QTEST_MAIN(tst_device)
#include "tst_device.moc"
