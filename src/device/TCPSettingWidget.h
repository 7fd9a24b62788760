#pragma once

#include "TCPSettings.h"

#include <QString>
#include <QWidget>

namespace Ui {
class TCPSettingWidget;
}

class DataThread;
class NetTCPServer;
class NetTcpClient;

// The page of one device: shows its settings and opens or closes it, endpoint first, then worker.
class TCPSettingWidget : public QWidget
{
    Q_OBJECT

public:
    explicit TCPSettingWidget(QWidget* parent = nullptr);
    ~TCPSettingWidget() override;

    TCPSettings getSettings() const;
    void setSettings(TCPSettings s);
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
    bool openOrClose();
    void closeDevice();
    QString localIPAddress();
    void setControlsEnabled(bool enabled);
    void onDeviceData(const char* data, int len);
    static int deviceDataCallback(const char* data, int len, void* context);

    Ui::TCPSettingWidget* ui;
    NetTcpClient* tcpClient;
    NetTCPServer* tcpServer;
    DataThread* dataThread;
    TCPSettings settings;
};
