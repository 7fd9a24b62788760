#include "FileProbe.h"
#include "MainWindow.h"
#include "TCPSettingWidget.h"
#include "TestProgramDir.h"
#include "XdgAutostartStore.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QSettings>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QToolButton>
#include <QtTest>
#include <memory>

// The window with its real translations, tray menu and autostart entry. The program directory is
// the test binary's own (the build stages Language/, Conf/ and Skins/ beside it); the config home
// is a scratch directory of this test.
class tst_TrayLanguage final : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void languageAtStartComesFromTheIniBesideTheProgram_data();
    void languageAtStartComesFromTheIniBesideTheProgram();
    void roundTripEnglishChineseEnglish();
    void openDeviceStaysOpenThroughLanguageChanges();
    void trayMenuHoldsFourEntriesAndKeepsItsLanguage();
    void minimiseStateMachine();
    void minimiseOfAMaximisedWindowKeepsTheTaskBarEntry();
    void tickInTheFirstHalfSecondSendsTheWindowToTheTray();
    void autostartBoxFollowsAndWritesTheEntry();
    void quitFromTheTraySavesTheDevices();

private:
    void createWindow();
    TCPSettingWidget* page(const char* name) const;
    template <typename T>
    T* pageWidget(const char* pageName, const char* objectName) const;
    template <typename T>
    T* widget(const char* objectName) const;
    QAction* trayAction(const QString& text) const;
    QStringList comboItems(const QComboBox* box) const;
    static QString writtenLanguageIniPath();
    static QVariant writtenLanguage();

    QTemporaryDir m_configHome;
    std::unique_ptr<MainWindow> m_window;
};

void tst_TrayLanguage::initTestCase()
{
    QVERIFY(m_configHome.isValid());
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_configHome.path()));
    // The sheet's images are found relative to the working directory, as in the program.
    QVERIFY(QDir::setCurrent(QCoreApplication::applicationDirPath()));
    QVERIFY2(QFileInfo::exists(TestProgramDir::path("Language/chinese/quillon_zh.qm")),
             "the build stages the program data beside the test");
}

void tst_TrayLanguage::init()
{
    TestProgramDir::restore();
    QFile::remove(writtenLanguageIniPath());
    XdgAutostartStore().remove(QCoreApplication::applicationName());
}

void tst_TrayLanguage::cleanup()
{
    m_window.reset();
    TestProgramDir::restore();
}

void tst_TrayLanguage::createWindow()
{
    m_window = std::make_unique<MainWindow>(nullptr, false);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
}

TCPSettingWidget* tst_TrayLanguage::page(const char* name) const
{
    return m_window->findChild<TCPSettingWidget*>(QLatin1String(name));
}

template <typename T>
T* tst_TrayLanguage::pageWidget(const char* pageName, const char* objectName) const
{
    // Both pages come from one form, so a name is unique only below its page.
    return page(pageName)->findChild<T*>(QLatin1String(objectName));
}

template <typename T>
T* tst_TrayLanguage::widget(const char* objectName) const
{
    return m_window->findChild<T*>(QLatin1String(objectName));
}

QAction* tst_TrayLanguage::trayAction(const QString& text) const
{
    const QMenu* menu = m_window->findChild<QMenu*>();
    if (!menu)
        return nullptr;
    for (QAction* action : menu->actions()) {
        if (action->text() == text)
            return action;
    }
    return nullptr;
}

QStringList tst_TrayLanguage::comboItems(const QComboBox* box) const
{
    QStringList items;
    for (int i = 0; i < box->count(); ++i)
        items << box->itemText(i);
    return items;
}

QString tst_TrayLanguage::writtenLanguageIniPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QLatin1Char('/') + qAppName()
        + QStringLiteral("/language.ini");
}

QVariant tst_TrayLanguage::writtenLanguage()
{
    return QSettings(writtenLanguageIniPath(), QSettings::IniFormat).value(QStringLiteral("language/lang"));
}

void tst_TrayLanguage::languageAtStartComesFromTheIniBesideTheProgram_data()
{
    QTest::addColumn<QByteArray>("iniText");
    QTest::addColumn<bool>("chinese");
    QTest::newRow("0 is Chinese") << QByteArray("[language]\nlang=0\n") << true;
    QTest::newRow("1 is English") << QByteArray("[language]\nlang=1\n") << false;
    QTest::newRow("2 is English") << QByteArray("[language]\nlang=2\n") << false;
    QTest::newRow("negative is English") << QByteArray("[language]\nlang=-3\n") << false;
    QTest::newRow("no number is Chinese") << QByteArray("[language]\nlang=chinese\n") << true;
    QTest::newRow("no key is English") << QByteArray("[language]\nother=0\n") << false;
    QTest::newRow("empty file is English") << QByteArray() << false;
}

void tst_TrayLanguage::languageAtStartComesFromTheIniBesideTheProgram()
{
    QFETCH(QByteArray, iniText);
    QFETCH(bool, chinese);
    QVERIFY(TestProgramDir::writeFile(QStringLiteral("Conf/language.ini"), iniText));

    createWindow();

    auto* languageBox = widget<QComboBox>("languageBox");
    QCOMPARE(languageBox->currentIndex(), chinese ? 1 : 0);
    QCOMPARE(comboItems(languageBox), (QStringList { QStringLiteral("English"), QStringLiteral("中文") }));
    QCOMPARE(widget<QPushButton>("btnClearData")->text(),
             chinese ? QStringLiteral("清除数据") : QStringLiteral("Clear data"));
    QCOMPARE(widget<QLabel>("titleNameLab")->text(), QStringLiteral("Tapwright"));
    // Written at every start, with the value in force; the file beside the program is left alone.
    QCOMPARE(writtenLanguage().toInt(), chinese ? 0 : 1);
    QCOMPARE(FileProbe::readAll(TestProgramDir::path("Conf/language.ini")), iniText);
}

void tst_TrayLanguage::roundTripEnglishChineseEnglish()
{
    createWindow();
    auto* languageBox = widget<QComboBox>("languageBox");
    QCOMPARE(languageBox->currentIndex(), 0);
    QCOMPARE(widget<QPushButton>("btnClearData")->text(), QStringLiteral("Clear data"));
    QCOMPARE(pageWidget<QToolButton>("page_Device1", "openTcpBtn")->text(), QStringLiteral("Connect"));
    QCOMPARE(comboItems(widget<QComboBox>("comboBox_Device")),
             (QStringList { QStringLiteral("Device1"), QStringLiteral("Device2") }));

    languageBox->setCurrentIndex(1);

    QCOMPARE(widget<QPushButton>("btnClearData")->text(), QStringLiteral("清除数据"));
    QCOMPARE(widget<QCheckBox>("checkBox_autoApp")->text(), QStringLiteral("开机自启动"));
    QCOMPARE(widget<QCheckBox>("checkBox_minimize")->text(), QStringLiteral("最小化到托盘"));
    QCOMPARE(widget<QLabel>("versionLab")->text(), QStringLiteral("版本：V1.00.003"));
    QCOMPARE(widget<QLabel>("titleNameLab")->text(), QStringLiteral("Tapwright"));
    QCOMPARE(comboItems(widget<QComboBox>("comboBox_Device")),
             (QStringList { QStringLiteral("设备1"), QStringLiteral("设备2") }));
    for (const char* name : { "page_Device1", "page_Device2" }) {
        QCOMPARE(pageWidget<QToolButton>(name, "openTcpBtn")->text(), QStringLiteral("连接"));
        QCOMPARE(pageWidget<QLabel>(name, "label_IP")->text(), QStringLiteral("IP 地址"));
        QCOMPARE(pageWidget<QLabel>(name, "label_port")->text(), QStringLiteral("端口号"));
        QCOMPARE(pageWidget<QPushButton>(name, "btnSelectSaveFileDir")->text(), QStringLiteral("选择文件保存目录"));
        QCOMPARE(comboItems(pageWidget<QComboBox>(name, "comboBox_tcp")),
                 (QStringList { QStringLiteral("TCP 客户端"), QStringLiteral("TCP 服务器") }));
    }
    QCOMPARE(comboItems(languageBox), (QStringList { QStringLiteral("English"), QStringLiteral("中文") }));
    // Qt's own texts follow, from the catalogue beside the program.
    QCOMPARE(QCoreApplication::translate("QPlatformTheme", "Cancel"), QStringLiteral("取消"));
    QCOMPARE(QCoreApplication::translate("QObject", "Tip"), QStringLiteral("提示"));
    QCOMPARE(writtenLanguage().toInt(), 0);

    languageBox->setCurrentIndex(0);

    QCOMPARE(widget<QPushButton>("btnClearData")->text(), QStringLiteral("Clear data"));
    QCOMPARE(widget<QCheckBox>("checkBox_minimize")->text(), QStringLiteral("Minimal enable"));
    QCOMPARE(pageWidget<QToolButton>("page_Device2", "openTcpBtn")->text(), QStringLiteral("Connect"));
    QCOMPARE(comboItems(pageWidget<QComboBox>("page_Device1", "comboBox_tcp")),
             (QStringList { QStringLiteral("TCP Client"), QStringLiteral("TCP Server") }));
    QCOMPARE(comboItems(widget<QComboBox>("comboBox_Device")),
             (QStringList { QStringLiteral("Device1"), QStringLiteral("Device2") }));
    QCOMPARE(QCoreApplication::translate("QPlatformTheme", "Cancel"), QStringLiteral("Cancel"));
    QCOMPARE(QCoreApplication::translate("QObject", "Tip"), QStringLiteral("Tip"));
    QCOMPARE(writtenLanguage().toInt(), 1);
    // The start language is still what the file beside the program says.
    QCOMPARE(FileProbe::readAll(TestProgramDir::path("Conf/language.ini")), QByteArray("[language]\nlang=1\n"));
}

void tst_TrayLanguage::openDeviceStaysOpenThroughLanguageChanges()
{
    QTcpServer camera;
    QVERIFY(camera.listen(QHostAddress::LocalHost));
    QTemporaryDir frames;
    QVERIFY(frames.isValid());
    QVERIFY(TestProgramDir::writeDeviceConfig(
        { { QStringLiteral("page_Device1"), TestProgramDir::clientDevice(1, camera.serverPort(), frames.path()) } }));

    createWindow();
    QTRY_VERIFY_WITH_TIMEOUT(camera.hasPendingConnections(), 5000);
    std::unique_ptr<QTcpSocket> link(camera.nextPendingConnection());
    auto* button = pageWidget<QToolButton>("page_Device1", "openTcpBtn");
    auto* lamp = pageWidget<QLabel>("page_Device1", "label_TCP");
    QCOMPARE(button->text(), QStringLiteral("Disconnect"));
    QCOMPARE(lamp->property("status").toInt(), 1);

    // Device 2 on display, then a change of language: device 1 comes back, the panes keep their roles.
    auto* deviceBox = widget<QComboBox>("comboBox_Device");
    deviceBox->setCurrentIndex(1);
    QCOMPARE(widget<QStackedWidget>("stackedWidget")->currentIndex(), 1);
    auto* messagePane = widget<QTextEdit>("textEdit_log");
    QTRY_VERIFY_WITH_TIMEOUT(messagePane->toPlainText().contains(QStringLiteral("Link to server successfully!")), 5000);
    const QString messagesBefore = messagePane->toPlainText();

    widget<QComboBox>("languageBox")->setCurrentIndex(1);

    QCOMPARE(deviceBox->currentIndex(), 0);
    QCOMPARE(widget<QStackedWidget>("stackedWidget")->currentIndex(), 0);
    QVERIFY(widget<QTextEdit>("textEdit")->toPlainText().isEmpty());
    QVERIFY(messagePane->toPlainText().startsWith(messagesBefore));
    QCOMPARE(button->text(), QStringLiteral("断开连接"));
    QCOMPARE(lamp->property("status").toInt(), 1);
    QVERIFY(!pageWidget<QComboBox>("page_Device1", "comboBox_tcp")->isEnabled());
    QCOMPARE(pageWidget<QComboBox>("page_Device1", "comboBox_tcp")->currentText(), QStringLiteral("TCP 客户端"));

    // Still receiving: the stream reaches the data pane and the frame reaches its file.
    link->write("[after the change]");
    QVERIFY(link->waitForBytesWritten(5000));
    QTRY_COMPARE_WITH_TIMEOUT(FileProbe::textFiles(frames.path()).size(), 1, 5000);
    QVERIFY(FileProbe::textFileContents(frames.path()).value(0).contains("after the change"));
    QTRY_VERIFY_WITH_TIMEOUT(widget<QTextEdit>("textEdit")->toPlainText().contains(QStringLiteral("after the change")),
                             5000);

    // The button closes in the new language, and the endpoint reports in it.
    QTest::mouseClick(button, Qt::LeftButton);
    QCOMPARE(button->text(), QStringLiteral("连接"));
    QCOMPARE(lamp->property("status").toInt(), 0);
    QVERIFY(messagePane->toPlainText().contains(QStringLiteral("已成功断开与服务器的连接！")));
    QTRY_COMPARE_WITH_TIMEOUT(link->state(), QAbstractSocket::UnconnectedState, 5000);

    widget<QComboBox>("languageBox")->setCurrentIndex(0);
    QCOMPARE(button->text(), QStringLiteral("Connect"));
}

void tst_TrayLanguage::trayMenuHoldsFourEntriesAndKeepsItsLanguage()
{
    createWindow();
    QTRY_VERIFY_WITH_TIMEOUT(m_window->findChild<QMenu*>(), 3000);
    // The test's private X server has no tray: all that follows runs without one, as on a bare desktop.
    QVERIFY(!QSystemTrayIcon::isSystemTrayAvailable());

    const QMenu* menu = m_window->findChild<QMenu*>();
    QStringList texts;
    for (const QAction* action : menu->actions())
        texts << (action->isSeparator() ? QStringLiteral("|") : action->text());
    QCOMPARE(texts,
             (QStringList { QStringLiteral("Maximize (&B)"),
                            QStringLiteral("Minimize (&I)"),
                            QStringLiteral("Reduction (&R)"),
                            QStringLiteral("|"),
                            QStringLiteral("Quit (&Q)") }));
    QVERIFY(!trayAction(QStringLiteral("Minimize (&I)"))->isEnabled());
    QVERIFY(trayAction(QStringLiteral("Maximize (&B)"))->isEnabled());
    QVERIFY(trayAction(QStringLiteral("Reduction (&R)"))->isEnabled());
    QVERIFY(trayAction(QStringLiteral("Quit (&Q)"))->isEnabled());

    // Menu texts are set once, at start; a later change of language leaves them.
    widget<QComboBox>("languageBox")->setCurrentIndex(1);
    QVERIFY(trayAction(QStringLiteral("Quit (&Q)")));
    m_window.reset();

    QVERIFY(TestProgramDir::writeLanguageIni("0"));
    createWindow();
    QTRY_VERIFY_WITH_TIMEOUT(trayAction(QStringLiteral("退出(&Q)")), 3000);
    QVERIFY(trayAction(QStringLiteral("最大化(&B)")));
    QVERIFY(!trayAction(QStringLiteral("最小化(&I)"))->isEnabled());
    QVERIFY(trayAction(QStringLiteral("还原(&R)")));
}

void tst_TrayLanguage::minimiseStateMachine()
{
    createWindow();
    QTRY_VERIFY_WITH_TIMEOUT(trayAction(QStringLiteral("Minimize (&I)")), 3000);
    const Qt::WindowFlags normalFlags = m_window->windowFlags();
    QVERIFY(normalFlags & Qt::FramelessWindowHint);
    auto* minimise = trayAction(QStringLiteral("Minimize (&I)"));
    auto* box = widget<QCheckBox>("checkBox_minimize");

    // Box off: the menu entry is off and the slot does nothing; an ordinary minimise keeps the flags.
    QVERIFY(!box->isChecked());
    m_window->setMinimized();
    QVERIFY(!(m_window->windowState() & Qt::WindowMinimized));
    m_window->showMinimized();
    QVERIFY(m_window->windowState() & Qt::WindowMinimized);
    QCOMPARE(m_window->windowFlags(), normalFlags);
    trayAction(QStringLiteral("Reduction (&R)"))->trigger();
    QVERIFY(!(m_window->windowState() & Qt::WindowMinimized));
    QVERIFY(m_window->isVisible());

    // Box on: minimising takes the window off the task bar.
    box->setChecked(true);
    QVERIFY(minimise->isEnabled());
    minimise->trigger();
    QCOMPARE(m_window->windowState(), Qt::WindowMinimized);
    QCOMPARE(m_window->windowType(), Qt::Tool);
    QVERIFY(!(m_window->windowFlags() & Qt::FramelessWindowHint));

    // Right and middle clicks on the icon leave it there; a click brings it back as it was.
    m_window->trayiconActivated(QSystemTrayIcon::Context);
    m_window->trayiconActivated(QSystemTrayIcon::MiddleClick);
    QCOMPARE(m_window->windowType(), Qt::Tool);
    m_window->trayiconActivated(QSystemTrayIcon::Trigger);
    QCOMPARE(m_window->windowFlags(), normalFlags);
    QVERIFY(m_window->isVisible());
    QVERIFY(!(m_window->windowState() & Qt::WindowMinimized));
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));

    // Back to the tray, then out by a double click and by "Maximize".
    m_window->setMinimized();
    QCOMPARE(m_window->windowType(), Qt::Tool);
    m_window->trayiconActivated(QSystemTrayIcon::DoubleClick);
    QCOMPARE(m_window->windowFlags(), normalFlags);
    m_window->setMinimized();
    trayAction(QStringLiteral("Maximize (&B)"))->trigger();
    QCOMPARE(m_window->windowFlags(), normalFlags);
    QVERIFY(m_window->windowState() & Qt::WindowMaximized);
    QVERIFY(m_window->isVisible());

    // Box off again: the entry goes off and the tray is out of play.
    m_window->showNormal();
    box->setChecked(false);
    QVERIFY(!minimise->isEnabled());
    m_window->showMinimized();
    QCOMPARE(m_window->windowFlags(), normalFlags);
}

void tst_TrayLanguage::minimiseOfAMaximisedWindowKeepsTheTaskBarEntry()
{
    createWindow();
    QTRY_VERIFY_WITH_TIMEOUT(trayAction(QStringLiteral("Minimize (&I)")), 3000);
    const Qt::WindowFlags normalFlags = m_window->windowFlags();
    widget<QCheckBox>("checkBox_minimize")->setChecked(true);

    m_window->showMaximized();
    m_window->setWindowState(m_window->windowState() | Qt::WindowMinimized);

    QCOMPARE(m_window->windowState(), Qt::WindowMinimized | Qt::WindowMaximized);
    QCOMPARE(m_window->windowFlags(), normalFlags);
}

void tst_TrayLanguage::tickInTheFirstHalfSecondSendsTheWindowToTheTray()
{
    // A configuration read at start lets the first timer minimise the window.
    QVERIFY(TestProgramDir::writeDeviceConfig(
        { { QStringLiteral("page_Device1"), TestProgramDir::clientDevice(0, 1, QString()) } }));
    // Ticked before any event is processed, so before the first timer can fire.
    m_window = std::make_unique<MainWindow>(nullptr, false);
    QVERIFY(!m_window->findChild<QMenu*>());
    widget<QCheckBox>("checkBox_minimize")->setChecked(true);
    m_window->show();

    QTRY_COMPARE_WITH_TIMEOUT(m_window->windowType(), Qt::Tool, 3000);
    QVERIFY(!(m_window->windowFlags() & Qt::FramelessWindowHint));
    QVERIFY(widget<QCheckBox>("checkBox_minimize")->isChecked());
    QVERIFY(trayAction(QStringLiteral("Minimize (&I)"))->isEnabled());
    QVERIFY(m_window->windowState() & Qt::WindowMinimized);
}

void tst_TrayLanguage::autostartBoxFollowsAndWritesTheEntry()
{
    const QString name = QCoreApplication::applicationName();
    const QString entry = XdgAutostartStore().entryPath(name);
    QVERIFY(entry.startsWith(m_configHome.path() + QStringLiteral("/autostart/")));

    // No entry: the box stays off and nothing is written.
    createWindow();
    auto* box = widget<QCheckBox>("checkBox_autoApp");
    QVERIFY(!box->isChecked());
    QVERIFY(!QFileInfo::exists(entry));

    box->setChecked(true);
    QCOMPARE(XdgAutostartStore().value(name), QCoreApplication::applicationFilePath());
    box->setChecked(false);
    QVERIFY(!QFileInfo::exists(entry));
    m_window.reset();

    // An entry left by a copy elsewhere ticks the box and is brought up to date.
    XdgAutostartStore().setValue(name, QStringLiteral("/old place/") + name);
    createWindow();
    QVERIFY(widget<QCheckBox>("checkBox_autoApp")->isChecked());
    QCOMPARE(XdgAutostartStore().value(name), QCoreApplication::applicationFilePath());
}

void tst_TrayLanguage::quitFromTheTraySavesTheDevices()
{
    QTemporaryDir frames;
    QVERIFY(frames.isValid());
    QVERIFY(TestProgramDir::writeDeviceConfig(
        { { QStringLiteral("page_Device2"), TestProgramDir::clientDevice(0, 4321, frames.path()) } }));
    createWindow();
    QTRY_VERIFY_WITH_TIMEOUT(trayAction(QStringLiteral("Quit (&Q)")), 3000);
    widget<QCheckBox>("checkBox_minimize")->setChecked(true);
    m_window->setMinimized();
    QCOMPARE(m_window->windowType(), Qt::Tool);
    QVERIFY(QFile::remove(TestProgramDir::path("TCPconfig.json")));

    // Last in this test: the close ends the application's event loops.
    trayAction(QStringLiteral("Quit (&Q)"))->trigger();

    const QJsonObject saved
        = QJsonDocument::fromJson(FileProbe::readAll(TestProgramDir::path("TCPconfig.json"))).object();
    QCOMPARE(saved.value(QStringLiteral("page_Device2")).toObject().value(QStringLiteral("TcpPort")).toString(),
             QStringLiteral("4321"));
    QCOMPARE(saved.value(QStringLiteral("page_Device2")).toObject().value(QStringLiteral("FileDir")).toString(),
             frames.path());
    QVERIFY(saved.contains(QStringLiteral("page_Device1")));
}

QTEST_MAIN(tst_TrayLanguage)
#include "tst_traylanguage.moc"
