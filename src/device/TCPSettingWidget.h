#pragma once

#include "Device.h"
#include "TCPSettings.h"

#include <QString>
#include <QWidget>

namespace Ui {
class TCPSettingWidget;
}

// The page of one device: shows the settings of a device it does not own, and lets the operator open
// or close it.
class TCPSettingWidget : public QWidget
{
    Q_OBJECT

public:
    explicit TCPSettingWidget(Device* shown, QWidget* parent = nullptr);
    ~TCPSettingWidget() override;

    Device* shownDevice() const { return device; }
    // What the form shows, as it would be stored.
    TCPSettings getSettings() const;
    // Shows the stored settings, and opens a device stored open.
    void setSettings(TCPSettings s);
    // Gives the device what the form shows, for the set to store.
    void keepShown();
    void retranslate();

signals:
    void sendShowData(QString data);
    void sendShowLogData(QString data);

public slots:
    void on_btnSelectSaveFileDir_clicked();
    void on_openTcpBtn_clicked();
    void onTcpTypeComboBoxChanged(int index);

private:
    void fillTypeComboBox();
    void fillKeySpeedBox();
    // What the form shows now, for the checks and the open.
    Device::Fields fieldsShown() const;
    // At start, a stored client device whose camera does not answer yet waits for it.
    bool openOrClose(bool atStart = false);
    bool checkFields();
    // The lamp, and a tooltip that says why it is amber.
    void showLamp(int status);
    // The open button's text for the role, as the device is closed or not.
    void showButtonText(bool closed);
    void setControlsEnabled(bool enabled);
    // A field that depends on another choice takes input only with it, and its label follows it.
    void updateDependentFields();

    Ui::TCPSettingWidget* ui;
    Device* device;
};
