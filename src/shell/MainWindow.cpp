#include "MainWindow.h"

#include "AppIcon.h"
#include "DataLocations.h"
#include "Device.h"
#include "DeviceSet.h"
#include "LanguageSwitcher.h"
#include "Logger.h"
#include "TCPSettingWidget.h"
#include "ToolBar.h"
#include "TrayIcon.h"
#include "TrayPresence.h"
#include "XdgAutostartStore.h"
#include "ui_MainWindow.h"
#include "wirelet/Wirelet.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QListView>
#include <QMessageBox>
#include <QTextCursor>
#include <QTimer>

namespace {

QString configPath()
{
    return DataLocations::ofThisProgram().configFile();
}

} // namespace

MainWindow::MainWindow(QWidget* parent, bool externalStart)
    : MainWindowBase(parent)
    , ui(new Ui::MainWindowClass)
    , m_devices(new DeviceSet(configPath(), this))
    , m_toolBar(nullptr)
    , m_startFunctionTimer(nullptr)
    , m_externalStart(externalStart)
    , m_configLoaded(false)
    , m_trayState(0)
    , m_trayEnabled(false)
    , m_savedWindowFlags()
    , m_trayPresence(nullptr)
    , m_tray(nullptr)
    , m_language(nullptr)
{
    ui->setupUi(this);
    initWidgets();
    m_trayPresence = new TrayPresence(ui->checkBox_minimize, this);
    m_tray = new TrayIcon(this);
    m_language = new LanguageSwitcher(ui->languageBox, this);
    initConnections();
    initAutoStartBox();
    loadStyleSheet();
    m_language->loadStored();
    readConfig();
    m_tray->startSoon();

    m_startFunctionTimer = new QTimer(this);
    m_startFunctionTimer->setInterval(1000);
    connect(m_startFunctionTimer, SIGNAL(timeout()), this, SLOT(timeoutStartFunctionSlot()));
    m_startFunctionTimer->start();
}

MainWindow::~MainWindow()
{
    Velko::Wirelet::finalize();
    // The pages report their closing while they are destroyed, after the form is gone.
    for (TCPSettingWidget* page : pages()) {
        disconnect(page, nullptr, this, nullptr);
    }
    delete ui;
    // The devices close after their pages are gone, as when each page held its own.
    delete m_devices;
}

void MainWindow::initWidgets()
{
    m_toolBar = new ToolBar(this);
    m_toolBar->setHeight(48);
    ui->toolBarLayout->addWidget(m_toolBar);

    ui->textEdit->setReadOnly(true);
    ui->textEdit_log->setReadOnly(true);
    ui->textEdit->document()->setMaximumBlockCount(500);
    ui->textEdit_log->document()->setMaximumBlockCount(2000);

    for (Device* device : m_devices->devices()) {
        addPage(device);
    }
    fillDeviceBox();
    // Device1 is shown first, and stays.
    ui->btnRemoveDevice->setEnabled(false);
}

void MainWindow::addPage(Device* device)
{
    auto* page = new TCPSettingWidget(device, ui->stackedWidget);
    ui->stackedWidget->addWidget(page);
    connect(page, SIGNAL(sendShowData(QString)), this, SLOT(showCallbackData(QString)));
    connect(page, SIGNAL(sendShowLogData(QString)), this, SLOT(sendShowLogData(QString)));
}

void MainWindow::fillDeviceBox()
{
    ui->comboBox_Device->clear();
    for (const Device* device : m_devices->devices()) {
        ui->comboBox_Device->addItem(deviceTitle(device));
    }
    ui->comboBox_Device->setView(new QListView());
    ui->btnAddDevice->setText(tr("Add device"));
    ui->btnRemoveDevice->setText(tr("Remove device"));
}

QString MainWindow::deviceTitle(const Device* device) const
{
    const int number = DeviceSet::numberOf(device->objectName());
    // The first two keep the texts they always had.
    if (number <= DeviceSet::kFixedDevices) {
        return number == 1 ? tr("Device1") : tr("Device2");
    }
    return tr("Device%1").arg(number);
}

QList<TCPSettingWidget*> MainWindow::pages() const
{
    QList<TCPSettingWidget*> shown;
    for (int index = 0; index < ui->stackedWidget->count(); ++index) {
        shown.append(static_cast<TCPSettingWidget*>(ui->stackedWidget->widget(index)));
    }
    return shown;
}

void MainWindow::initConnections()
{
    connect(ui->checkBox_minimize, SIGNAL(stateChanged(int)), this, SLOT(onTrayEnableChanged(int)));
    connect(ui->checkBox_autoApp, SIGNAL(stateChanged(int)), this, SLOT(onAppAutoStartChanged(int)));
    connect(ui->comboBox_Device, SIGNAL(currentIndexChanged(int)), this, SLOT(onDeviceComboBoxChanged(int)));
    connect(ui->btnClearData, SIGNAL(pressed()), this, SLOT(onClearData()));
    connect(ui->btnAddDevice, &QPushButton::clicked, this, &MainWindow::onAddDevice);
    connect(ui->btnRemoveDevice, &QPushButton::clicked, this, &MainWindow::onRemoveDevice);
    connect(m_language, &LanguageSwitcher::switched, this, &MainWindow::retranslate);
    connect(m_trayPresence, &TrayPresence::lost, this, &MainWindow::onTrayLost);
    connect(m_tray, &TrayIcon::started, this, &MainWindow::onTrayIconStarted);
    connect(m_tray, &TrayIcon::activated, this, &MainWindow::trayiconActivated);
    connect(m_tray, &TrayIcon::maximizeRequested, this, &MainWindow::setMaximized);
    connect(m_tray, &TrayIcon::minimizeRequested, this, &MainWindow::setMinimized);
    connect(m_tray, &TrayIcon::restoreRequested, this, &MainWindow::setReduction);
    connect(m_tray, &TrayIcon::quitRequested, this, &MainWindow::closeSlot);
}

void MainWindow::readConfig()
{
    if (m_devices->read() != DeviceConfig::ReadResult::Read) {
        return;
    }
    const QList<Device*>& devices = m_devices->devices();
    for (int index = ui->stackedWidget->count(); index < devices.size(); ++index) {
        addPage(devices.at(index));
    }
    if (ui->comboBox_Device->count() != devices.size()) {
        fillDeviceBox();
    }
    // Each page opens its device when stored open, and shows how the open went.
    for (TCPSettingWidget* page : pages()) {
        if (m_devices->isStored(page->shownDevice())) {
            page->setSettings(page->shownDevice()->settings());
        }
    }
    m_configLoaded = true;
}

void MainWindow::writeConfig()
{
    for (TCPSettingWidget* page : pages()) {
        page->keepShown();
    }
    m_devices->write();
}

void MainWindow::onLanguageBoxChanged(int index)
{
    m_language->choose(index);
}

void MainWindow::trayiconActivated(QSystemTrayIcon::ActivationReason reason)
{
    if (reason != QSystemTrayIcon::DoubleClick && reason != QSystemTrayIcon::Trigger) {
        return;
    }
    showNormal();
    raise();
    setWindowState(Qt::WindowActive);
}

void MainWindow::bringToFront()
{
    // A maximised window stays maximised.
    setWindowState(windowState() & ~Qt::WindowMinimized);
    show();
    raise();
    activateWindow();
}

void MainWindow::setMinimized()
{
    if (m_trayEnabled) {
        showMinimized();
    }
}

void MainWindow::setMaximized()
{
    showMaximized();
}

void MainWindow::setReduction()
{
    showNormal();
}

void MainWindow::closeSlot()
{
    if (m_tray->isVisible()) {
        m_tray->hide();
    }
    close();
}

void MainWindow::onTrayEnableChanged(int state)
{
    if (state == Qt::Checked || state == Qt::PartiallyChecked) {
        m_trayEnabled = true;
        m_trayState = 1;
        m_tray->setMinimizeEnabled(true);
        Logger::info("[INFO] Turn on the tray to enable.");
    } else {
        m_trayEnabled = false;
        m_trayState = -1;
        m_tray->setMinimizeEnabled(false);
        Logger::info("[INFO] Turn off the tray to enable.");
    }
}

void MainWindow::onAppAutoStartChanged(int state)
{
    setAutoStart(state == Qt::Checked || state == Qt::PartiallyChecked);
}

void MainWindow::onClearData()
{
    ui->textEdit->clear();
}

void MainWindow::onTrayIconStarted()
{
    m_savedWindowFlags = windowFlags();
    ui->checkBox_minimize->setChecked(m_trayState == 1);
    if (!m_configLoaded) {
        return;
    }
    if (m_externalStart) {
        m_externalStart = false;
    } else {
        setMinimized();
    }
}

void MainWindow::timeoutStartFunctionSlot()
{
    if (!m_configLoaded) {
        m_startFunctionTimer->stop();
        return;
    }
    const Qt::WindowStates state = windowState();
    if (state == Qt::WindowNoState || state == Qt::WindowMinimized) {
        m_startFunctionTimer->stop();
    }
}

void MainWindow::aboutToCloseSlot()
{
    ui->textEdit_log->append(tr("aboutToCloseSlot()"));
}

void MainWindow::readChannelFinishedSlot()
{
    ui->textEdit_log->append(tr("readChannelFinishedSlot()"));
}

void MainWindow::printTip(QString tip)
{
    if (!tip.isEmpty()) {
        ui->textEdit_log->append(tip);
    }
}

void MainWindow::showCallbackData(QString data)
{
    if (sender() != ui->stackedWidget->currentWidget()) {
        return;
    }
    if (data.isEmpty()) {
        return;
    }
    ui->textEdit->insertPlainText(data);
    ui->textEdit->moveCursor(QTextCursor::End);
    if (ui->textEdit->toPlainText().length() > 20000) {
        ui->textEdit->clear();
    }
}

void MainWindow::onDeviceComboBoxChanged(int index)
{
    ui->stackedWidget->setCurrentIndex(index);
    ui->textEdit->clear();
    const TCPSettingWidget* page = pages().value(index);
    ui->btnRemoveDevice->setEnabled(page && DeviceSet::numberOf(page->objectName()) > DeviceSet::kFixedDevices);
}

void MainWindow::onAddDevice()
{
    Device* device = m_devices->add();
    addPage(device);
    ui->comboBox_Device->addItem(deviceTitle(device));
    ui->comboBox_Device->setCurrentIndex(ui->comboBox_Device->count() - 1);
}

void MainWindow::onRemoveDevice()
{
    const int index = ui->comboBox_Device->currentIndex();
    TCPSettingWidget* page = pages().value(index);
    if (!page) {
        return;
    }
    Device* device = page->shownDevice();
    const QString title = deviceTitle(device);
    if (device->isOpen()) {
        ui->textEdit_log->append(tr("%1 is open: close it before removing it.").arg(title));
        return;
    }
    if (QMessageBox::question(this, tr("Remove device"), tr("Remove %1 and its settings?").arg(title))
        != QMessageBox::Yes) {
        return;
    }
    // The set has the last word; the page goes only with its device.
    if (!m_devices->remove(device)) {
        return;
    }
    delete page;
    ui->comboBox_Device->removeItem(index);
    // The box need not report a change when the next device takes the removed one's place.
    onDeviceComboBoxChanged(ui->comboBox_Device->currentIndex());
}

void MainWindow::sendShowLogData(QString data)
{
    auto* page = qobject_cast<TCPSettingWidget*>(sender());
    if (!page) {
        return;
    }
    const TCPSettings settings = page->getSettings();
    QString line = settings.tcpClientIP + QStringLiteral(":") + settings.tcpPort + QStringLiteral(" : ") + data;
    // With more than the two devices of old, the line says whose it is.
    if (m_devices->devices().size() > DeviceSet::kFixedDevices) {
        line.prepend(deviceTitle(page->shownDevice()) + QLatin1Char(' '));
    }
    ui->textEdit_log->append(line);
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    Q_UNUSED(event)
    writeConfig();
    m_tray->hide();
    QCoreApplication::quit();
}

void MainWindow::showEvent(QShowEvent* event)
{
    if (m_trayEnabled) {
        setAttribute(Qt::WA_Mapped, true);
    }
    QWidget::showEvent(event);
}

void MainWindow::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::WindowStateChange) {
        qDebug() << "windowState = " << windowState();
        if (windowState() == Qt::WindowMinimized) {
            m_trayPresence->check();
            // Without a tray the window would be lost: it is minimised the ordinary way.
            if (m_trayEnabled && m_trayPresence->present()) {
                m_tray->show();
                setWindowFlags(Qt::Tool);
            }
        } else if (m_savedWindowFlags != Qt::WindowFlags()) {
            // Before the first timer tick there are no saved flags, and the frameless ones stay.
            setWindowFlags(m_savedWindowFlags);
        }
    }
    QWidget::changeEvent(event);
}

void MainWindow::onTrayLost()
{
    if (windowType() == Qt::Tool) {
        // The tray went away with the window in it.
        bringToFront();
    }
}

void MainWindow::initAutoStartBox()
{
    ui->checkBox_autoApp->setChecked(isAutoStartEnabled());
}

bool MainWindow::isAutoStartEnabled()
{
    const XdgAutostartStore runKey;
    return runKey.contains(QCoreApplication::applicationName());
}

void MainWindow::setAutoStart(bool enable)
{
    const QString programPath = QDir::toNativeSeparators(QCoreApplication::applicationFilePath());
    XdgAutostartStore runKey;
    // The name it is read under, so that a renamed program file still finds its own entry.
    const QString name = QCoreApplication::applicationName();
    const QString present = runKey.value(name);
    if (!enable) {
        runKey.remove(name);
    } else if (present != programPath) {
        runKey.setValue(name, programPath);
    }
}

void MainWindow::loadStyleSheet()
{
    const QString dir = QCoreApplication::applicationDirPath() + QStringLiteral("/Skins/Default/");
    if (!QDir(dir).exists()) {
        return;
    }
    QFile file(dir + QStringLiteral("TapwrightStyle.qss"));
    file.open(QIODevice::ReadOnly);
    const QByteArray bytes = file.readAll();
    // The sheet is read as a zero-terminated text: a zero byte ends it.
    m_styleSheet = QString::fromUtf8(bytes.constData());
    file.flush();
    file.close();
    qApp->setStyleSheet(m_styleSheet);
}

void MainWindow::retranslate()
{
    ui->retranslateUi(this);
    m_toolBar->retranslate();
    m_toolBar->setTitle(tr("Tapwright"));
    // The form names the window "MainWindow"; the task bar and window switchers show this title.
    setWindowTitle(tr("Tapwright"));
    m_trayPresence->retranslate();

    fillDeviceBox();

    for (TCPSettingWidget* page : pages()) {
        page->retranslate();
    }
}
