#include "MainWindow.h"

#include "AppIcon.h"
#include "DataLocations.h"
#include "DeviceConfig.h"
#include "Logger.h"
#include "TCPSettingWidget.h"
#include "ToolBar.h"
#include "XdgAutostartStore.h"
#include "ui_MainWindow.h"
#include "wirelet/Wirelet.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QListView>
#include <QMenu>
#include <QSettings>
#include <QStandardPaths>
#include <QTextCursor>
#include <QTimer>
#include <QTranslator>

namespace {

QString configPath()
{
    return DataLocations::ofThisProgram().configFile();
}

} // namespace

MainWindow::MainWindow(QWidget* parent, bool externalStart)
    : MainWindowBase(parent)
    , ui(new Ui::MainWindowClass)
    , m_toolBar(nullptr)
    , m_timer(nullptr)
    , m_startFunctionTimer(nullptr)
    , m_externalStart(externalStart)
    , m_configLoaded(false)
    , m_trayState(0)
    , m_trayEnabled(false)
    , m_maximizeAction(nullptr)
    , m_minimizeAction(nullptr)
    , m_reductionAction(nullptr)
    , m_quitAction(nullptr)
    , m_trayMenu(nullptr)
    , m_savedWindowFlags()
    , m_trayPresent(QSystemTrayIcon::isSystemTrayAvailable())
    , m_trayWatchTimer(nullptr)
{
    ui->setupUi(this);
    initWidgets();
    initConnections();
    initAutoStartBox();
    loadStyleSheet();
    loadLanguage();
    readConfig();

    m_timer = new QTimer(this);
    m_timer->setInterval(500);
    connect(m_timer, SIGNAL(timeout()), this, SLOT(timeoutSlot()));
    m_timer->start();

    m_startFunctionTimer = new QTimer(this);
    m_startFunctionTimer->setInterval(1000);
    connect(m_startFunctionTimer, SIGNAL(timeout()), this, SLOT(timeoutStartFunctionSlot()));
    m_startFunctionTimer->start();

    // A panel may bring its tray after the program (at logon) or take it away: the box's tooltip
    // follows, and a window in a tray that went comes back. Qt docks the icon in a new tray itself.
    m_trayWatchTimer = new QTimer(this);
    m_trayWatchTimer->setInterval(1000);
    connect(m_trayWatchTimer, SIGNAL(timeout()), this, SLOT(followTray()));
    m_trayWatchTimer->start();
}

MainWindow::~MainWindow()
{
    Velko::Wirelet::finalize();
    // The pages report their closing while they are destroyed, after the form is gone.
    for (TCPSettingWidget* page : findChildren<TCPSettingWidget*>()) {
        disconnect(page, nullptr, this, nullptr);
    }
    delete ui;
}

void MainWindow::initWidgets()
{
    m_toolBar = new ToolBar(this);
    m_toolBar->setHeight(48);
    ui->toolBarLayout->addWidget(m_toolBar);

    ui->languageBox->addItem(QStringLiteral("English"));
    ui->languageBox->addItem(QStringLiteral("中文"));
    ui->languageBox->setView(new QListView());

    ui->textEdit->setReadOnly(true);
    ui->textEdit_log->setReadOnly(true);
    ui->textEdit->document()->setMaximumBlockCount(500);
    ui->textEdit_log->document()->setMaximumBlockCount(2000);

    ui->comboBox_Device->addItem(tr("Device1"));
    ui->comboBox_Device->addItem(tr("Device2"));
    ui->comboBox_Device->setView(new QListView());
}

void MainWindow::initConnections()
{
    connect(ui->checkBox_minimize, SIGNAL(stateChanged(int)), this, SLOT(onTrayEnableChanged(int)));
    connect(ui->checkBox_autoApp, SIGNAL(stateChanged(int)), this, SLOT(onAppAutoStartChanged(int)));
    connect(ui->comboBox_Device, SIGNAL(currentIndexChanged(int)), this, SLOT(onDeviceComboBoxChanged(int)));
    connect(ui->btnClearData, SIGNAL(pressed()), this, SLOT(onClearData()));
    connect(ui->languageBox, SIGNAL(currentIndexChanged(int)), this, SLOT(onLanguageBoxChanged(int)));
    for (TCPSettingWidget* page : findChildren<TCPSettingWidget*>()) {
        connect(page, SIGNAL(sendShowData(QString)), this, SLOT(showCallbackData(QString)));
        connect(page, SIGNAL(sendShowLogData(QString)), this, SLOT(sendShowLogData(QString)));
    }
}

void MainWindow::readConfig()
{
    QMap<QString, TCPSettings> devices;
    if (DeviceConfig::read(configPath(), devices) != DeviceConfig::ReadResult::Read) {
        return;
    }
    const QList<TCPSettingWidget*> pages = findChildren<TCPSettingWidget*>();
    for (auto device = devices.cbegin(); device != devices.cend(); ++device) {
        for (TCPSettingWidget* page : pages) {
            if (page->objectName() == device.key()) {
                page->setSettings(device.value());
            }
        }
    }
    m_configLoaded = true;
}

void MainWindow::writeConfig()
{
    QList<QPair<QString, TCPSettings>> devices;
    for (TCPSettingWidget* page : findChildren<TCPSettingWidget*>()) {
        devices.append({ page->objectName(), page->getSettings() });
    }
    DeviceConfig::write(configPath(), devices);
}

void MainWindow::onLanguageBoxChanged(int index)
{
    applyLanguage(index == 0 ? 1 : 0);
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
    if (m_trayIcon.isVisible()) {
        m_trayIcon.hide();
    }
    close();
}

void MainWindow::onTrayEnableChanged(int state)
{
    if (state == Qt::Checked || state == Qt::PartiallyChecked) {
        m_trayEnabled = true;
        m_trayState = 1;
        if (m_minimizeAction) {
            m_minimizeAction->setEnabled(true);
        }
        Logger::info("[INFO] Turn on the tray to enable.");
    } else {
        m_trayEnabled = false;
        m_trayState = -1;
        if (m_minimizeAction) {
            m_minimizeAction->setEnabled(false);
        }
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

void MainWindow::timeoutSlot()
{
    m_savedWindowFlags = windowFlags();
    m_timer->stop();
    initTrayIcon();
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
}

void MainWindow::sendShowLogData(QString data)
{
    auto* page = qobject_cast<TCPSettingWidget*>(sender());
    if (!page) {
        return;
    }
    const TCPSettings settings = page->getSettings();
    ui->textEdit_log->append(settings.tcpClientIP + QStringLiteral(":") + settings.tcpPort + QStringLiteral(" : ")
                             + data);
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    Q_UNUSED(event)
    writeConfig();
    m_trayIcon.hide();
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
            followTray();
            // Without a tray the window would be lost: it is minimised the ordinary way.
            if (m_trayEnabled && m_trayPresent) {
                m_trayIcon.show();
                setWindowFlags(Qt::Tool);
            }
        } else if (m_savedWindowFlags != Qt::WindowFlags()) {
            // Before the first timer tick there are no saved flags, and the frameless ones stay.
            setWindowFlags(m_savedWindowFlags);
        }
    }
    QWidget::changeEvent(event);
}

void MainWindow::followTray()
{
    const bool present = QSystemTrayIcon::isSystemTrayAvailable();
    if (present == m_trayPresent) {
        return;
    }
    m_trayPresent = present;
    if (!present && windowType() == Qt::Tool) {
        // The tray went away with the window in it.
        bringToFront();
    }
    updateTrayToolTip();
}

void MainWindow::updateTrayToolTip()
{
    ui->checkBox_minimize->setToolTip(
        m_trayPresent ? QString()
                      : tr("There is no system tray on this desktop, so minimising keeps the window in the "
                           "task bar."));
}

void MainWindow::initTrayIcon()
{
    m_trayIcon.setIcon(AppIcon::icon());
    m_trayIcon.setToolTip(tr("Serial port Tapwright"));
    m_trayIcon.show();
    connect(&m_trayIcon,
            SIGNAL(activated(QSystemTrayIcon::ActivationReason)),
            this,
            SLOT(trayiconActivated(QSystemTrayIcon::ActivationReason)));

    m_minimizeAction = new QAction(tr("Minimize (&I)"), this);
    connect(m_minimizeAction, SIGNAL(triggered()), this, SLOT(setMinimized()));
    m_maximizeAction = new QAction(tr("Maximize (&B)"), this);
    connect(m_maximizeAction, SIGNAL(triggered()), this, SLOT(setMaximized()));
    m_reductionAction = new QAction(tr("Reduction (&R)"), this);
    connect(m_reductionAction, SIGNAL(triggered()), this, SLOT(setReduction()));
    m_quitAction = new QAction(tr("Quit (&Q)"), this);
    connect(m_quitAction, SIGNAL(triggered()), this, SLOT(closeSlot()));

    ui->checkBox_minimize->setChecked(m_trayState == 1);

    m_trayMenu = new QMenu(this);
    m_trayMenu->addAction(m_maximizeAction);
    m_trayMenu->addAction(m_minimizeAction);
    m_trayMenu->addAction(m_reductionAction);
    m_trayMenu->addSeparator();
    m_trayMenu->addAction(m_quitAction);
    m_trayIcon.setContextMenu(m_trayMenu);

    if (!m_trayEnabled) {
        m_minimizeAction->setEnabled(false);
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

void MainWindow::loadLanguage()
{
    const QSettings settings(DataLocations::ofThisProgram().languageFile(), QSettings::IniFormat);
    const int stored = settings.value(QStringLiteral("language/lang"), QStringLiteral("2")).toInt();
    applyLanguage(stored == 0 ? 0 : 1);
}

void MainWindow::applyLanguage(int lang)
{
    // One pair for the whole process, kept until it ends.
    static QTranslator* programTranslator = nullptr;
    static QTranslator* qtTranslator = nullptr;
    if (!programTranslator) {
        programTranslator = new QTranslator();
        qtTranslator = new QTranslator();
    }

    const QString languageDir = QCoreApplication::applicationDirPath() + QStringLiteral("/Language");
    if (lang == 0) {
        programTranslator->load(
            languageDir + QStringLiteral("/chinese/quillon_zh.qm"), QString(), QString(), QString());
        QCoreApplication::installTranslator(programTranslator);
        qtTranslator->load(languageDir + QStringLiteral("/chinese/qt_zh_CN.qm"), QString(), QString(), QString());
        QCoreApplication::installTranslator(qtTranslator);
        ui->languageBox->setCurrentIndex(1);
    } else {
        qtTranslator->load(languageDir + QStringLiteral("/english/qt_uk.qm"), QString(), QString(), QString());
        QCoreApplication::removeTranslator(programTranslator);
        QCoreApplication::installTranslator(qtTranslator);
        ui->languageBox->setCurrentIndex(0);
    }
    retranslate();
    saveLanguage(lang);
}

void MainWindow::saveLanguage(int lang)
{
    QSettings settings(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QLatin1Char('/')
                           + QCoreApplication::applicationName() + QStringLiteral("/language.ini"),
                       QSettings::IniFormat);
    settings.setValue(QStringLiteral("language/lang"), lang);
}

void MainWindow::retranslate()
{
    ui->retranslateUi(this);
    m_toolBar->retranslate();
    m_toolBar->setTitle(tr("Tapwright"));
    // The form names the window "MainWindow"; the task bar and window switchers show this title.
    setWindowTitle(tr("Tapwright"));
    updateTrayToolTip();

    ui->comboBox_Device->clear();
    ui->comboBox_Device->addItem(tr("Device1"));
    ui->comboBox_Device->addItem(tr("Device2"));
    ui->comboBox_Device->setView(new QListView());

    for (TCPSettingWidget* page : findChildren<TCPSettingWidget*>()) {
        page->retranslate();
    }
}
