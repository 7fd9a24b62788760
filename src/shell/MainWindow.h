#pragma once

#include "MainWindowBase.h"

#include <QString>
#include <QSystemTrayIcon>

class Device;
class DeviceSet;
class LanguageSwitcher;
class QTimer;
class TCPSettingWidget;
class ToolBar;
class TrayIcon;
class TrayPresence;

namespace Ui {
class MainWindowClass;
}

// The program's one window: title bar, a page for each device of the set, the data and message
// panes, and auto start; it wires in the tray and the language. It routes what the pages report into
// the panes and keeps the order of loading, saving and shutting down around them.
class MainWindow : public MainWindowBase
{
    Q_OBJECT

public:
    MainWindow(QWidget* parent, bool externalStart);
    ~MainWindow() override;

signals:
    void sendShowData(QString data);

public slots:
    void onLanguageBoxChanged(int index);
    void trayiconActivated(QSystemTrayIcon::ActivationReason reason);
    void setMinimized();
    void setMaximized();
    void setReduction();
    void closeSlot();

private slots:
    void onTrayEnableChanged(int state);
    void onAppAutoStartChanged(int state);
    void onClearData();
    void onTrayIconStarted();
    void onTrayLost();
    void timeoutStartFunctionSlot();
    void aboutToCloseSlot();
    void readChannelFinishedSlot();
    void printTip(QString tip);
    void showCallbackData(QString data);
    void onDeviceComboBoxChanged(int index);
    void onAddDevice();
    // Asks first; a fixed or open device stays.
    void onRemoveDevice();
    void sendShowLogData(QString data);
    void retranslate();

protected:
    void closeEvent(QCloseEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    // Shows the window in front of the others, back from the tray or from being minimised.
    void bringToFront();

    void initWidgets();
    // A page for the device, at the end of the stack.
    void addPage(Device* device);
    // The device box, and the buttons beside it.
    void fillDeviceBox();
    // As the device box shows it: "Device1", "Device2", then "Device3" and on.
    QString deviceTitle(const Device* device) const;
    QList<TCPSettingWidget*> pages() const;
    void initConnections();
    void readConfig();
    void writeConfig();
    void initAutoStartBox();
    bool isAutoStartEnabled();
    void setAutoStart(bool enable);
    void loadStyleSheet();

    Ui::MainWindowClass* ui;
    DeviceSet* m_devices;
    ToolBar* m_toolBar;
    QString m_styleSheet;
    QTimer* m_startFunctionTimer;
    bool m_externalStart;
    bool m_configLoaded;
    int m_trayState;
    bool m_trayEnabled;
    Qt::WindowFlags m_savedWindowFlags;
    TrayPresence* m_trayPresence;
    TrayIcon* m_tray;
    LanguageSwitcher* m_language;
};
