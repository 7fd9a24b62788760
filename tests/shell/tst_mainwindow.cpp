#include "MainWindow.h"
#include "TCPSettingWidget.h"

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTextBlock>
#include <QTextEdit>
#include <QtTest>
#include <memory>

// The window as the test binary's own: it is never closed through closeEvent, so nothing is
// written beside the test binary; the settings it touches live in the runner's scratch home.
class tst_MainWindow final : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void dataOfTheDeviceNotOnDisplayIsDropped();
    void dataPaneCharacterLimit_data();
    void dataPaneCharacterLimit();
    void dataPaneKeepsTheNewestBlocks();
    void switchingDevicesClearsTheDataPane();
    void clearButtonActsOnPress();
    void messageLine_data();
    void messageLine();
    void messageLineTakesTheAddressShownAtThatMoment();
    void messagePaneKeepsTheNewestBlocks();
    void openDeviceFeedsBothPanes();
    void languageChangeShowsDeviceOneAndRecordsTheChoice();

private:
    TCPSettingWidget* page(const char* name) const;
    QTextEdit* dataPane() const;
    QTextEdit* messagePane() const;
    QComboBox* deviceBox() const;
    void createWindow();
    static QString languageIniPath();

    std::unique_ptr<MainWindow> m_window;
};

void tst_MainWindow::init()
{
    QFile::remove(languageIniPath());
}

void tst_MainWindow::cleanup()
{
    m_window.reset();
}

void tst_MainWindow::createWindow()
{
    m_window = std::make_unique<MainWindow>(nullptr, false);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
}

QString tst_MainWindow::languageIniPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + "/" + qAppName() + "/language.ini";
}

TCPSettingWidget* tst_MainWindow::page(const char* name) const
{
    return m_window->findChild<TCPSettingWidget*>(QLatin1String(name));
}

QTextEdit* tst_MainWindow::dataPane() const
{
    return m_window->findChild<QTextEdit*>(QStringLiteral("textEdit"));
}

QTextEdit* tst_MainWindow::messagePane() const
{
    return m_window->findChild<QTextEdit*>(QStringLiteral("textEdit_log"));
}

QComboBox* tst_MainWindow::deviceBox() const
{
    return m_window->findChild<QComboBox*>(QStringLiteral("comboBox_Device"));
}

void tst_MainWindow::dataOfTheDeviceNotOnDisplayIsDropped()
{
    createWindow();
    QCOMPARE(deviceBox()->currentIndex(), 0);

    emit page("page_Device2")->sendShowData(QStringLiteral("from two"));
    QCOMPARE(dataPane()->toPlainText(), QString());

    emit page("page_Device1")->sendShowData(QStringLiteral("from one"));
    QCOMPARE(dataPane()->toPlainText(), QStringLiteral("from one"));

    // Messages of the hidden device still reach the message pane.
    emit page("page_Device2")->sendShowLogData(QStringLiteral("two speaks"));
    QVERIFY(messagePane()->toPlainText().endsWith(QStringLiteral(" : two speaks")));
}

void tst_MainWindow::dataPaneCharacterLimit_data()
{
    QTest::addColumn<QList<int>>("chunks");
    QTest::addColumn<int>("expectedLength");

    QTest::newRow("exactly the limit stays") << QList<int> { 19999, 1 } << 20000;
    QTest::newRow("one over empties the pane") << QList<int> { 19999, 2 } << 0;
    QTest::newRow("a single chunk over goes at once") << QList<int> { 20001 } << 0;
    QTest::newRow("filling again after emptying") << QList<int> { 20001, 5 } << 5;
    QTest::newRow("empty data changes nothing") << QList<int> { 10, 0 } << 10;
}

void tst_MainWindow::dataPaneCharacterLimit()
{
    QFETCH(QList<int>, chunks);
    QFETCH(int, expectedLength);

    createWindow();
    for (int length : chunks) {
        emit page("page_Device1")->sendShowData(QString(length, QLatin1Char('x')));
    }
    QCOMPARE(dataPane()->toPlainText().length(), expectedLength);
    // Text without line breaks stays one block.
    QCOMPARE(dataPane()->document()->blockCount(), 1);
}

void tst_MainWindow::dataPaneKeepsTheNewestBlocks()
{
    createWindow();
    QString lines;
    for (int i = 0; i < 600; ++i) {
        lines += QStringLiteral("L%1\n").arg(i);
    }
    emit page("page_Device1")->sendShowData(lines);

    QCOMPARE(dataPane()->document()->blockCount(), 500);
    QVERIFY2(dataPane()->toPlainText().startsWith(QStringLiteral("L101\n")),
             qPrintable(dataPane()->toPlainText().left(20)));
    // The next text follows the newest line, not the cursor's old place.
    emit page("page_Device1")->sendShowData(QStringLiteral("tail"));
    QVERIFY(dataPane()->toPlainText().endsWith(QStringLiteral("L599\ntail")));
}

void tst_MainWindow::switchingDevicesClearsTheDataPane()
{
    createWindow();
    auto* stack = m_window->findChild<QStackedWidget*>(QStringLiteral("stackedWidget"));
    emit page("page_Device1")->sendShowData(QStringLiteral("one"));
    emit page("page_Device2")->sendShowData(QStringLiteral("two before"));
    emit page("page_Device1")->sendShowLogData(QStringLiteral("kept"));
    const QString messages = messagePane()->toPlainText();

    deviceBox()->setCurrentIndex(1);
    QCOMPARE(stack->currentWidget(), page("page_Device2"));
    QCOMPARE(dataPane()->toPlainText(), QString());
    QCOMPARE(messagePane()->toPlainText(), messages);

    emit page("page_Device1")->sendShowData(QStringLiteral("one later"));
    emit page("page_Device2")->sendShowData(QStringLiteral("two"));
    QCOMPARE(dataPane()->toPlainText(), QStringLiteral("two"));

    deviceBox()->setCurrentIndex(0);
    QCOMPARE(stack->currentWidget(), page("page_Device1"));
    QCOMPARE(dataPane()->toPlainText(), QString());
}

void tst_MainWindow::clearButtonActsOnPress()
{
    createWindow();
    emit page("page_Device1")->sendShowData(QStringLiteral("data"));
    emit page("page_Device1")->sendShowLogData(QStringLiteral("message"));
    const QString messages = messagePane()->toPlainText();
    QVERIFY(!messages.isEmpty());

    auto* button = m_window->findChild<QPushButton*>(QStringLiteral("btnClearData"));
    QTest::mousePress(button, Qt::LeftButton);
    QCOMPARE(dataPane()->toPlainText(), QString());
    QCOMPARE(messagePane()->toPlainText(), messages);
    QTest::mouseRelease(button, Qt::LeftButton);
}

void tst_MainWindow::messageLine_data()
{
    QTest::addColumn<QString>("ip");
    QTest::addColumn<QString>("port");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    QTest::newRow("address, port and text") << "192.168.0.5"
                                            << "3000"
                                            << "abc"
                                            << "192.168.0.5:3000 : abc";
    QTest::newRow("empty text keeps the address part") << "10.0.0.7"
                                                       << "502"
                                                       << ""
                                                       << "10.0.0.7:502 : ";
    QTest::newRow("empty fields") << ""
                                  << ""
                                  << "no address"
                                  << ": : no address";
    QTest::newRow("text in Chinese") << "127.0.0.1"
                                     << "9000"
                                     << "连接成功"
                                     << "127.0.0.1:9000 : 连接成功";
}

void tst_MainWindow::messageLine()
{
    QFETCH(QString, ip);
    QFETCH(QString, port);
    QFETCH(QString, text);
    QFETCH(QString, expected);

    createWindow();
    TCPSettingWidget* second = page("page_Device2");
    second->findChild<QLineEdit*>(QStringLiteral("lineEdit_IP"))->setText(ip);
    second->findChild<QLineEdit*>(QStringLiteral("lineEdit_port"))->setText(port);

    const int blocksBefore = messagePane()->toPlainText().isEmpty() ? 0 : messagePane()->document()->blockCount();
    emit second->sendShowLogData(text);
    QCOMPARE(messagePane()->document()->blockCount(), blocksBefore + 1);
    QCOMPARE(messagePane()->document()->lastBlock().text(), expected);
}

void tst_MainWindow::messageLineTakesTheAddressShownAtThatMoment()
{
    createWindow();
    TCPSettingWidget* first = page("page_Device1");
    auto* ipField = first->findChild<QLineEdit*>(QStringLiteral("lineEdit_IP"));
    auto* portField = first->findChild<QLineEdit*>(QStringLiteral("lineEdit_port"));
    ipField->setText(QStringLiteral("10.1.1.1"));
    portField->setText(QStringLiteral("1"));
    emit first->sendShowLogData(QStringLiteral("a"));
    ipField->setText(QStringLiteral("10.2.2.2"));
    portField->setText(QStringLiteral("2"));
    emit first->sendShowLogData(QStringLiteral("b"));

    const QStringList lines = messagePane()->toPlainText().split(QLatin1Char('\n'));
    QVERIFY(lines.size() >= 2);
    QCOMPARE(lines.mid(lines.size() - 2), (QStringList { "10.1.1.1:1 : a", "10.2.2.2:2 : b" }));
}

void tst_MainWindow::messagePaneKeepsTheNewestBlocks()
{
    createWindow();
    TCPSettingWidget* first = page("page_Device1");
    first->findChild<QLineEdit*>(QStringLiteral("lineEdit_IP"))->setText(QStringLiteral("h"));
    first->findChild<QLineEdit*>(QStringLiteral("lineEdit_port"))->setText(QStringLiteral("1"));
    messagePane()->clear();
    for (int i = 0; i < 2100; ++i) {
        emit first->sendShowLogData(QStringLiteral("m%1").arg(i));
    }
    QCOMPARE(messagePane()->document()->blockCount(), 2000);
    QCOMPARE(messagePane()->document()->firstBlock().text(), QStringLiteral("h:1 : m100"));
    QCOMPARE(messagePane()->document()->lastBlock().text(), QStringLiteral("h:1 : m2099"));
}

void tst_MainWindow::openDeviceFeedsBothPanes()
{
    QTcpServer camera;
    QVERIFY(camera.listen(QHostAddress(QStringLiteral("127.0.0.1")), 0));
    QTemporaryDir frames;
    QVERIFY(frames.isValid());

    createWindow();
    TCPSettings settings;
    settings.status = 1;
    settings.tcpType = 0;
    settings.tcpClientIP = QStringLiteral("127.0.0.1");
    settings.tcpPort = QString::number(camera.serverPort());
    settings.fileDir = frames.path();
    settings.startChar = QStringLiteral("[");
    settings.endChar = QStringLiteral("]");
    page("page_Device1")->setSettings(settings);

    QTRY_VERIFY_WITH_TIMEOUT(camera.hasPendingConnections(), 10000);
    std::unique_ptr<QTcpSocket> link(camera.nextPendingConnection());
    const QString address = QStringLiteral("127.0.0.1:%1 : ").arg(camera.serverPort());
    QTRY_VERIFY_WITH_TIMEOUT(messagePane()->toPlainText().contains(address), 10000);

    link->write("[frame-1]");
    QTRY_COMPARE_WITH_TIMEOUT(dataPane()->toPlainText(), QStringLiteral("[frame-1]"), 10000);
    QTRY_COMPARE_WITH_TIMEOUT(QDir(frames.path()).entryList({ "*.txt" }, QDir::Files).size(), 1, 10000);

    // With the other device on display the text goes to the file only.
    deviceBox()->setCurrentIndex(1);
    link->write("[frame-2]");
    QTRY_COMPARE_WITH_TIMEOUT(QDir(frames.path()).entryList({ "*.txt" }, QDir::Files).size(), 2, 10000);
    QCOMPARE(dataPane()->toPlainText(), QString());
}

void tst_MainWindow::languageChangeShowsDeviceOneAndRecordsTheChoice()
{
    createWindow();
    // Every start records the language, also when nothing changed.
    QCOMPARE(QSettings(languageIniPath(), QSettings::IniFormat).value("language/lang").toInt(), 1);

    auto* languageBox = m_window->findChild<QComboBox*>(QStringLiteral("languageBox"));
    QCOMPARE(languageBox->currentIndex(), 0);
    deviceBox()->setCurrentIndex(1);
    emit page("page_Device2")->sendShowData(QStringLiteral("two"));
    emit page("page_Device2")->sendShowLogData(QStringLiteral("message"));
    const QString messages = messagePane()->toPlainText();

    languageBox->setCurrentIndex(1);
    QCOMPARE(QSettings(languageIniPath(), QSettings::IniFormat).value("language/lang").toInt(), 0);
    QCOMPARE(deviceBox()->count(), 2);
    QCOMPARE(deviceBox()->currentIndex(), 0);
    QCOMPARE(m_window->findChild<QStackedWidget*>(QStringLiteral("stackedWidget"))->currentIndex(), 0);
    QCOMPARE(dataPane()->toPlainText(), QString());
    QCOMPARE(messagePane()->toPlainText(), messages);
    QCOMPARE(languageBox->itemText(0), QStringLiteral("English"));
    QCOMPARE(languageBox->itemText(1), QStringLiteral("中文"));

    languageBox->setCurrentIndex(0);
    QCOMPARE(QSettings(languageIniPath(), QSettings::IniFormat).value("language/lang").toInt(), 1);
}

QTEST_MAIN(tst_MainWindow)
#include "tst_mainwindow.moc"
