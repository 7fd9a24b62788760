#include "Device.h"
#include "FakeCamera.h"
#include "FakeSystemTray.h"
#include "FileProbe.h"
#include "MainWindow.h"
#include "TCPSettingWidget.h"
#include "TestProgramDir.h"
#include "ToolBar.h"
#include "XdgAutostartStore.h"

// Mouse events enter through the window system's input path, so grabs and child lookup work as for a hand.
#define QTEST_QPA_MOUSE_HANDLING
#include <QtTest>
#include <QtWidgets>

Q_DECLARE_METATYPE(Qt::MouseButton)

// 400 by 300 at (300, 200): the last pixel column is x 399, the last row y 299. Minimum 200 by 150.
static const QRect kStart(300, 200, 400, 300);

// The windows on a private X server. The test binary's directory, where the build stages Language/,
// Conf/ and Skins/, stands in for the program's; the runner gives a scratch home.
class tst_MainWindow final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(QDir::setCurrent(QCoreApplication::applicationDirPath())); }
    void init() { QVERIFY(TestProgramDir::writeFile("Conf/language.ini", "[language]\nlang=1")); }
    void cleanup() { m_win.reset(); }

    // In the window: the press, the move, whether the window holds the mouse for a resize, the cursor at
    // the press, the geometry after the move. The title bar lies at 20, 20, 300 by 48.
    void edgesResize_data()
    {
        QTest::addColumn<Qt::MouseButton>("button");
        QTest::addColumn<QPoint>("press");
        QTest::addColumn<QPoint>("moveTo");
        QTest::addColumn<bool>("grabs");
        QTest::addColumn<Qt::CursorShape>("cursor");
        QTest::addColumn<QRect>("geometry");
        QTest::newRow("right band inner end, in") << Qt::LeftButton << QPoint(397, 150) << QPoint(297, 160) << true
                                                  << Qt::SizeHorCursor << QRect(300, 200, 297, 300);
        QTest::newRow("bottom band inner end") << Qt::LeftButton << QPoint(200, 297) << QPoint(220, 347) << true
                                               << Qt::SizeVerCursor << QRect(300, 200, 400, 347);
        QTest::newRow("top edge in") << Qt::LeftButton << QPoint(200, 1) << QPoint(200, 60) << true << Qt::SizeVerCursor
                                     << QRect(300, 260, 400, 240);
        QTest::newRow("top left") << Qt::LeftButton << QPoint(1, 1) << QPoint(-20, -10) << true << Qt::SizeFDiagCursor
                                  << QRect(280, 190, 420, 310);
        QTest::newRow("top right") << Qt::LeftButton << QPoint(399, 0) << QPoint(420, -20) << true
                                   << Qt::SizeBDiagCursor << QRect(300, 180, 420, 320);
        QTest::newRow("left edge to the minimum") << Qt::LeftButton << QPoint(0, 150) << QPoint(199, 150) << true
                                                  << Qt::SizeHorCursor << QRect(300, 200, 400, 300);
        QTest::newRow("right button only hovers") << Qt::RightButton << QPoint(399, 150) << QPoint(449, 150) << false
                                                  << Qt::SizeHorCursor << QRect(300, 200, 400, 300);
        QTest::newRow("title bar drags the window") << Qt::LeftButton << QPoint(60, 44) << QPoint(90, 54) << false
                                                    << Qt::ArrowCursor << QRect(330, 210, 400, 300);
    }

    void edgesResize()
    {
        QFETCH(Qt::MouseButton, button);
        QFETCH(QPoint, press);
        QFETCH(QPoint, moveTo);
        QFETCH(Qt::CursorShape, cursor);
        QFETCH(QRect, geometry);
        MainWindowBase window; // its title bar placed away from the edges, which stay the window's own
        (new ToolBar(&window))->setGeometry(20, 20, 300, 48);
        window.setMinimumSize(200, 150);
        window.setGeometry(kStart);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QTest::mousePress(&window, button, {}, press);
        QTEST(QWidget::mouseGrabber() == &window, "grabs");
        QCOMPARE(window.cursor().shape(), cursor);
        QTest::mouseMove(&window, moveTo);
        QTRY_COMPARE(window.geometry(), geometry);
        QTest::mouseRelease(&window, button, {}, moveTo);
        QCOMPARE(QWidget::mouseGrabber(), nullptr);
    }

    void panesTrayAndAutostart()
    {
        const QString name = QCoreApplication::applicationName(), me = QCoreApplication::applicationFilePath();
        XdgAutostartStore().setValue(name, "/old place/" + name); // left by a copy elsewhere
        QVERIFY(TestProgramDir::writeFile("Conf/language.ini", "[language]\nlang=0"));
        QVERIFY(openWindow());
        QCOMPARE(m_win->findChild<QComboBox*>("languageBox")->currentIndex(), 1); // Chinese, as stored
        auto* autostart = m_win->findChild<QCheckBox*>("checkBox_autoApp");
        QVERIFY(autostart->isChecked());
        QCOMPARE(XdgAutostartStore().value(name), me);
        autostart->setChecked(false);
        QVERIFY(!XdgAutostartStore().contains(name));

        page(2)->setSettings({ 0, 0, "3000", "192.168.0.5", "", "", "" });
        for (int i = 0; i < 2001; ++i)
            emit page(2)->sendShowLogData(i ? "连接" : "first"); // device 2, not on display
        const QString newest = QString("192.168.0.5:3000 : 连接\n").repeated(2000).chopped(1); // the newest 2000 lines
        auto* log = m_win->findChild<QTextEdit*>("textEdit_log");
        QCOMPARE(log->toPlainText(), newest);

        // The data pane shows the device on display, up to 20000 characters and the newest 500 lines.
        auto* data = m_win->findChild<QTextEdit*>("textEdit");
        emit page(2)->sendShowData("hidden");
        emit page(1)->sendShowData(QString(19998, 'x'));
        data->moveCursor(QTextCursor::Start); // a click in the pane: one text lands there, the rest at the end
        emit page(1)->sendShowData("y");
        emit page(1)->sendShowData("w");
        QCOMPARE(data->toPlainText(), "y" + QString(19998, 'x') + "w");
        emit page(1)->sendShowData("z");
        QCOMPARE(data->toPlainText(), QString());
        emit page(1)->sendShowData(QString("L\n").repeated(600));
        QCOMPARE(data->toPlainText(), QString("L\n").repeated(499));
        m_win->findChild<QComboBox*>("comboBox_Device")->setCurrentIndex(1);
        emit page(2)->sendShowData("b");
        QCOMPARE(data->toPlainText(), QString("b"));
        QTest::mousePress(m_win->findChild<QWidget*>("btnClearData"), Qt::LeftButton);
        QCOMPARE(data->toPlainText(), QString());

        // Sixteen devices; with more than two, a message names its device. Device1 and Device2 stay, an
        // open device stays and says why, a closed one goes once the user says yes.
        auto* remove = m_win->findChild<QPushButton*>("btnRemoveDevice");
        QVERIFY(!remove->isEnabled());
        for (int i = 3; i <= 16; ++i)
            QTest::mouseClick(m_win->findChild<QPushButton*>("btnAddDevice"), Qt::LeftButton);
        auto* box = m_win->findChild<QComboBox*>("comboBox_Device");
        QCOMPARE(box->currentText(), QString("设备16"));
        FakeCamera camera;
        page(16)->setSettings({ 1, 0, QString::number(camera.listen()), "127.0.0.1", ".", "[", "]" }); // nothing sent
        QTRY_VERIFY(log->toPlainText().contains(QRegularExpression("设备16 127.0.0.1:\\d+ : 本设备")));
        QTest::mouseClick(remove, Qt::LeftButton);
        QCOMPARE(log->document()->lastBlock().text(), QString("设备16 已打开：请先关闭再删除。"));
        QTest::mouseClick(page(16)->findChild<QToolButton*>("openTcpBtn"), Qt::LeftButton);
        QString asked, yes;
        QTimer::singleShot(0, [&asked, &yes] {
            auto* question = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            asked = question->text();
            yes = question->button(QMessageBox::Yes)->text();
            question->button(QMessageBox::Yes)->click();
        });
        QTest::mouseClick(remove, Qt::LeftButton);
        QCOMPARE(asked, QString("删除设备16及其设置？"));
        QCOMPARE(yes, QString("是(&Y)")); // Qt's own texts in Chinese too
        QCOMPARE(box->currentText(), QString("设备15"));
    }

    void minimisesToTheTrayOnlyWhenThereIsOne_data()
    {
        QTest::addColumn<QString>("tray");
        QTest::newRow("none: minimised in the task bar") << "none";
        QTest::newRow("there from the start") << "start";
        QTest::newRow("coming after the icon") << "late";
    }

    void minimisesToTheTrayOnlyWhenThereIsOne()
    {
        QFETCH(QString, tray);
        QScopedPointer<FakeSystemTray> panel(tray == "start" ? new FakeSystemTray : nullptr);
        QVERIFY(openWindow());
        QTRY_VERIFY(m_win->findChild<QMenu*>()); // the icon is up
        if (tray == "late")
            panel.reset(new FakeSystemTray);
        if (panel)
            QTRY_COMPARE(panel->dockRequests(), 1);
        auto* box = m_win->findChild<QCheckBox*>("checkBox_minimize");
        QTRY_COMPARE(box->toolTip().contains("no system tray"), !panel);
        box->setChecked(true);
        m_win->findChild<QMenu*>()->actions()[1]->trigger();
        QVERIFY(m_win->isMinimized());
        QCOMPARE(m_win->windowType(), panel ? Qt::Tool : Qt::Window); // in the tray, or in the task bar
        m_win->trayiconActivated(QSystemTrayIcon::Trigger);
        QVERIFY(!m_win->isMinimized());
        QCOMPARE(m_win->windowType(), Qt::Window);
        m_win->showMinimized();
        panel.reset(); // the panel quits: a window in its tray comes back
        QTRY_COMPARE(m_win->windowType(), Qt::Window);
        QCOMPARE(m_win->isMinimized(), tray == "none");
        box->setChecked(false);
        QVERIFY(!m_win->findChild<QMenu*>()->actions()[1]->isEnabled());
    }

    void pageTypesIntoTheFocusedWidget_data()
    {
        QTest::addColumn<bool>("keep");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<int>("typedFirst");
        QTest::newRow("byte by byte") << false << QString::fromLatin1("#\xC3\xA9t\xC3\xA9 \xE4\xB8\xAD$\xC3") << 5;
        QTest::newRow("characters, every frame kept") << true << QStringLiteral("#\u00E9t\u00E9 \u4E2D$") << 3;
    }

    // A page set to type: its camera's stream, cut inside characters, goes into the focused widget.
    void pageTypesIntoTheFocusedWidget()
    {
        QFETCH(bool, keep);
        QFETCH(QString, typed);
        QFETCH(int, typedFirst);
        QTemporaryDir frames;
        FakeCamera camera;
        TCPSettings typing { 1, 0, QString::number(camera.listen()), "127.0.0.1", frames.path(), "#", "$" };
        typing.keepEveryFrame = keep;
        typing.keyOutput = true;
        QLineEdit edit;
        edit.show();
        edit.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&edit));
        Device device;
        TCPSettingWidget page(&device);
        page.setSettings(typing);
        QTRY_COMPARE(camera.openCount(), 1);
        camera.send("#\xC3\xA9t\xC3");
        QTRY_COMPARE(edit.text(), typed.left(typedFirst));
        camera.send("\xA9 \xE4\xB8\xAD$\xC3");
        QTRY_COMPARE(edit.text(), typed);
        QCOMPARE(page.getSettings().status, 1); // open
        // A frame carried to the silence is written after it is typed.
        QTRY_COMPARE(FileProbe::textFiles(frames.path()).size(), 1);
    }

    // Last: the quit ends the application's event loops.
    void languageRoundTripKeepsTheDeviceOpenUntilQuit()
    {
        FakeCamera camera;
        QTemporaryDir frames;
        const quint16 port = FakeCamera::freePort();
        QJsonObject dev = TestProgramDir::clientDevice(1, port, frames.path());
        dev.insert("WaitForCamera", 1);
        const QByteArray devices = "{\"page_Device3\": {}, \"page_Device1\": " + QJsonDocument(dev).toJson() + "}";
        QVERIFY(TestProgramDir::writeFile("TCPconfig.json", devices));
        QVERIFY(openWindow());
        QVERIFY(QFile::remove("TCPconfig.json"));
        QCOMPARE(m_win->findChild<QComboBox*>("comboBox_Device")->itemText(2), QString("Device3"));
        // A language change while the device waits keeps the button that ends the wait, and the amber
        // lamp (hue 30-59) that says why.
        auto* lamp = page(1)->findChild<QLabel*>("label_TCP");
        const auto lampHue = [lamp] { return lamp->grab().toImage().pixelColor(10, 10).hsvHue() / 30; };
        m_win->findChild<QComboBox*>("languageBox")->setCurrentIndex(1);
        m_win->findChild<QComboBox*>("languageBox")->setCurrentIndex(0);
        QCOMPARE(page(1)->findChild<QToolButton*>("openTcpBtn")->text(), QString("Disconnect"));
        QCOMPARE(lampHue(), 1);
        QCOMPARE(lamp->toolTip(),
                 "Waiting for the camera at 127.0.0.1:" + QString::number(port)
                     + "; the device opens as soon as it answers.");
        // The camera comes up late: the device opens, and the sheet's lamp turns green (hue 120-149).
        QCOMPARE(camera.listen(port), port);
        QTRY_COMPARE_WITH_TIMEOUT(camera.openCount(), 1, 10000);
        QTRY_COMPARE(lampHue(), 4);
        QCOMPARE(lamp->toolTip(), QString());
        m_win->findChild<QComboBox*>("comboBox_Device")->setCurrentIndex(1);
        m_win->findChild<QComboBox*>("languageBox")->setCurrentIndex(1);
        const QStringList chinese { "取消",       "0",        "设备1",      "连接",     "TCP 客户端", "连接",
                                    "TCP 客户端", "断开连接", "TCP 客户端", "清除数据", "Tapwright" };
        QCOMPARE(texts(), chinese);
        camera.send("[after]");
        QTRY_COMPARE(m_win->findChild<QTextEdit*>("textEdit")->toPlainText(), QStringLiteral("[after]"));
        m_win->findChild<QComboBox*>("languageBox")->setCurrentIndex(0);
        const QStringList english { "Cancel",     "1",          "Device1",    "Connect",    "TCP Client", "Connect",
                                    "TCP Client", "Disconnect", "TCP Client", "Clear data", "Tapwright" };
        QCOMPARE(texts(), english);

        auto* bar = m_win->findChild<ToolBar*>();
        QTest::mouseDClick(bar, Qt::LeftButton, {}, { 100, 24 });
        QVERIFY(m_win->isMaximized());
        QVERIFY(bar->findChild<QToolButton*>("maxBtn")->property("maxNormal").toBool());
        QTest::mouseClick(bar->findChild<QToolButton*>("maxBtn"), Qt::LeftButton);
        QVERIFY(!m_win->isMaximized());
        QTRY_VERIFY(m_win->findChild<QMenu*>());
        m_win->findChild<QMenu*>()->actions().first()->trigger(); // the tray's "Maximize"
        QVERIFY(m_win->isMaximized());
        m_win->findChild<QMenu*>()->actions().last()->trigger();
        QVERIFY(QFile::remove("TCPconfig.json")); // saved at the quit
    }

private:
    // The whole window, as the program opens it.
    bool openWindow()
    {
        m_win.reset(new MainWindow(nullptr, false));
        m_win->show();
        return QTest::qWaitForWindowExposed(m_win.data());
    }
    TCPSettingWidget* page(int n) const { return m_win->findChild<TCPSettingWidget*>(QString("page_Device%1").arg(n)); }
    // What the language shows: Qt's own texts, the language recorded, the window's and every page's texts.
    QStringList texts() const
    {
        const QString ini = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + "/" + qAppName();
        QStringList all { QCoreApplication::translate("QPlatformTheme", "Cancel"),
                          QSettings(ini + "/language.ini", QSettings::IniFormat).value("language/lang").toString() };
        const QRegularExpression names("^(titleNameLab|btnClearData|comboBox_Device|openTcpBtn|comboBox_tcp)$");
        for (QObject* shown : m_win->findChildren<QObject*>(names))
            all << shown->property(shown->inherits("QComboBox") ? "currentText" : "text").toString();
        return all;
    }

    QScopedPointer<MainWindow> m_win;
};

QTEST_MAIN(tst_MainWindow)
#include "tst_mainwindow.moc"
