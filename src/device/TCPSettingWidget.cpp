#include "TCPSettingWidget.h"

#include "DataThread.h"
#include "LocalIPv4.h"
#include "Logger.h"
#include "NetTCPServer.h"
#include "NetTcpClient.h"
#include "ui_TCPSettingWidget.h"

#include <QDebug>
#include <QDir>
#include <QFileDialog>
#include <QHostInfo>
#include <QListView>
#include <QNetworkInterface>
#include <QStyle>

namespace {

const char* const kEnterAddress = QT_TRANSLATE_NOOP("TCPSettingWidget", "Enter an IP address or port number!");
const char* const kEnterStartEnd = QT_TRANSLATE_NOOP("TCPSettingWidget", "Enter a start char or end char!");
const char* const kSelectDirectory
    = QT_TRANSLATE_NOOP("TCPSettingWidget", "You did not select any file save directory.");

// The style sheet draws the lamp from "status"; a changed property needs a fresh polish to show.
void setLampStatus(QLabel* lamp, int status)
{
    lamp->setProperty("status", status);
    lamp->style()->unpolish(lamp);
    lamp->style()->polish(lamp);
}

QList<QHostAddress> activeInterfaceAddresses()
{
    QList<QHostAddress> addresses;
    const QNetworkInterface::InterfaceFlags wanted = QNetworkInterface::IsUp | QNetworkInterface::IsRunning;
    for (const QNetworkInterface& networkInterface : QNetworkInterface::allInterfaces()) {
        const QNetworkInterface::InterfaceFlags flags = networkInterface.flags();
        if ((flags & wanted) != wanted || flags.testFlag(QNetworkInterface::IsLoopBack)) {
            continue;
        }
        for (const QNetworkAddressEntry& entry : networkInterface.addressEntries()) {
            addresses.append(entry.ip());
        }
    }
    return addresses;
}

} // namespace

TCPSettingWidget::TCPSettingWidget(QWidget* parent)
    : QWidget(parent)
    , ui(new Ui::TCPSettingWidget)
{
    ui->setupUi(this);

    fillTypeComboBox();
    setLampStatus(ui->label_TCP, 0);

    tcpServer = new NetTCPServer(this);
    tcpClient = new NetTcpClient(this);
    tcpServer->setDataCallback(deviceDataCallback, this);
    tcpClient->setDataCallback(deviceDataCallback, this);

    dataThread = new DataThread(this);

    connect(tcpClient, SIGNAL(sendMsgSig(QString)), this, SIGNAL(sendShowLogData(QString)));
    connect(tcpServer, SIGNAL(sendMsgSig(QString)), this, SIGNAL(sendShowLogData(QString)));
    connect(ui->comboBox_tcp, SIGNAL(currentIndexChanged(int)), this, SLOT(onTcpTypeComboBoxChanged(int)));
}

TCPSettingWidget::~TCPSettingWidget()
{
    // The window that listens is already tearing down; the closing message must not reach it.
    disconnect(this, SIGNAL(sendShowData(QString)), nullptr, nullptr);
    disconnect(this, SIGNAL(sendShowLogData(QString)), nullptr, nullptr);

    closeDevice();
    delete tcpServer;
    delete tcpClient;
    delete ui;
}

TCPSettings TCPSettingWidget::getSettings() const
{
    TCPSettings current;
    current.status = ui->label_TCP->property("status").toInt();
    current.tcpType = ui->comboBox_tcp->currentIndex();
    current.tcpPort = ui->lineEdit_port->text();
    current.tcpClientIP = ui->lineEdit_IP->text();
    current.fileDir = ui->lineEdit_SaveFileNameDir->text();
    current.startChar = ui->lineEditStartChar->text();
    current.endChar = ui->lineEditEndChar->text();
    return current;
}

void TCPSettingWidget::setSettings(TCPSettings s)
{
    settings.tcpType = s.tcpType;
    settings.tcpClientIP = s.tcpClientIP;
    settings.tcpPort = s.tcpPort;
    settings.fileDir = s.fileDir;
    settings.startChar = s.startChar;
    settings.endChar = s.endChar;
    settings.status = s.status;

    ui->lineEdit_port->setText(settings.tcpPort);
    ui->comboBox_tcp->setCurrentIndex(settings.tcpType);
    ui->lineEdit_SaveFileNameDir->setText(settings.fileDir);
    ui->lineEditStartChar->setText(settings.startChar);
    ui->lineEditEndChar->setText(settings.endChar);

    if (settings.tcpType == 0) {
        ui->lineEdit_IP->setText(settings.tcpClientIP);
        qDebug() << "TcpClientIP  " << settings.tcpClientIP << ui->lineEdit_IP->text();
        ui->openTcpBtn->setText(tr("Connect"));
    } else if (settings.tcpType == 1) {
        const QString serverIP = localIPAddress();
        ui->lineEdit_IP->setText(serverIP);
        qDebug() << "serverIP  " << serverIP;
        ui->openTcpBtn->setText(tr("Open"));
    }

    if (settings.status == 1) {
        on_openTcpBtn_clicked();
    }
}

void TCPSettingWidget::retranslate()
{
    ui->retranslateUi(this);

    const bool server = settings.tcpType != 0;
    if (ui->label_TCP->property("status").toInt() == 0) {
        ui->openTcpBtn->setText(server ? tr("Open") : tr("Connect"));
    } else {
        ui->openTcpBtn->setText(server ? tr("Close") : tr("Disconnect"));
    }

    disconnect(ui->comboBox_tcp, SIGNAL(currentIndexChanged(int)), this, SLOT(onTcpTypeComboBoxChanged(int)));
    ui->comboBox_tcp->clear();
    fillTypeComboBox();
    ui->comboBox_tcp->setCurrentIndex(settings.tcpType);
    connect(ui->comboBox_tcp, SIGNAL(currentIndexChanged(int)), this, SLOT(onTcpTypeComboBoxChanged(int)));
}

void TCPSettingWidget::on_btnSelectSaveFileDir_clicked()
{
    settings.fileDir = QFileDialog::getExistingDirectory(
        nullptr, tr("Select Save File Directory"), QDir::homePath(), QFileDialog::ShowDirsOnly);
    ui->lineEdit_SaveFileNameDir->setText(settings.fileDir);
    qDebug() << "FileDir is : " << settings.fileDir;
}

void TCPSettingWidget::on_openTcpBtn_clicked()
{
    const char* problem = nullptr;
    if (ui->lineEdit_IP->text().isEmpty() || ui->lineEdit_port->text().isEmpty()) {
        problem = kEnterAddress;
    } else if (ui->lineEditStartChar->text().isEmpty() || ui->lineEditEndChar->text().isEmpty()) {
        problem = kEnterStartEnd;
    } else if (settings.fileDir.isEmpty()) {
        problem = kSelectDirectory;
    }
    if (problem) {
        emit sendShowLogData(tr(problem));
        qDebug() << problem;
        return;
    }
    openOrClose();
}

void TCPSettingWidget::onTcpTypeComboBoxChanged(int index)
{
    // -1 means the box shows no item (a stored type it does not offer): there is no role to follow.
    if (index < 0) {
        return;
    }
    settings.tcpType = index;
    if (index != 0) {
        ui->lineEdit_IP->setText(localIPAddress());
        ui->openTcpBtn->setText(tr("Open"));
    } else {
        ui->lineEdit_IP->setText(settings.tcpClientIP);
        ui->openTcpBtn->setText(tr("Connect"));
    }
}

void TCPSettingWidget::fillTypeComboBox()
{
    ui->comboBox_tcp->addItem(tr("TCP Client"), QVariant());
    ui->comboBox_tcp->addItem(tr("TCP Server"), QVariant());
    ui->comboBox_tcp->setView(new QListView());
}

bool TCPSettingWidget::openOrClose()
{
    const QString buttonText = ui->openTcpBtn->text();
    const bool toOpen = buttonText == tr("Open") || buttonText == tr("Connect");
    const bool client = ui->comboBox_tcp->currentText() == tr("TCP Client");

    if (toOpen) {
        const QString ip = ui->lineEdit_IP->text();
        const QString port = ui->lineEdit_port->text();
        const int result = client ? tcpClient->open(ip, port) : tcpServer->open(ip, port);
        if (result != 0) {
            if (client) {
                tcpClient->close();
            } else {
                tcpServer->close();
            }
            const QString line = client ? QStringLiteral("[INFO] open TCP client failed, ip: %1, port: %2.")
                                        : QStringLiteral("[INFO] open TCP server failed, ip: %1, port: %2.");
            Logger::info(line.arg(settings.tcpClientIP, settings.tcpPort).toStdString());
            return false;
        }

        ui->openTcpBtn->setText(client ? tr("Disconnect") : tr("Close"));
        setLampStatus(ui->label_TCP, 1);
        setControlsEnabled(false);
        dataThread->setKeyOutput(false);
        dataThread->setStartEndChar(ui->lineEditStartChar->text(), ui->lineEditEndChar->text());
        dataThread->setFileDir(settings.fileDir);
        dataThread->startThread();
        return true;
    }

    qDebug() << "IP " << ui->lineEdit_IP->text();
    if (client) {
        tcpClient->close();
        ui->openTcpBtn->setText(tr("Connect"));
    } else {
        tcpServer->close();
        ui->openTcpBtn->setText(tr("Open"));
    }
    setLampStatus(ui->label_TCP, 0);
    setControlsEnabled(true);
    dataThread->stopThread();
    return true;
}

void TCPSettingWidget::closeDevice()
{
    if (settings.tcpType == 0) {
        tcpClient->close();
    } else {
        tcpServer->close();
    }
    dataThread->stopThread();
}

QString TCPSettingWidget::localIPAddress()
{
    const QString hostName = QHostInfo::localHostName();
    qDebug() << "localHostName: " << hostName;

    const QHostInfo hostInfo = QHostInfo::fromName(hostName);
    qDebug() << "IP Address : " << hostInfo.addresses();

    const QHostAddress chosen = chooseLocalIPv4(hostInfo.addresses(), activeInterfaceAddresses());
    if (chosen.isNull()) {
        return QString();
    }
    qDebug() << "**************" << chosen.toString();
    return chosen.toString();
}

void TCPSettingWidget::setControlsEnabled(bool enabled)
{
    ui->comboBox_tcp->setEnabled(enabled);
    ui->lineEdit_IP->setEnabled(enabled);
    ui->lineEdit_port->setEnabled(enabled);
    ui->btnSelectSaveFileDir->setEnabled(enabled);
    ui->lineEditStartChar->setEnabled(enabled);
    ui->lineEditEndChar->setEnabled(enabled);
}

void TCPSettingWidget::onDeviceData(const char* data, int len)
{
    emit sendShowData(QString::fromUtf8(data));
    dataThread->pushData(data, len);
}

int TCPSettingWidget::deviceDataCallback(const char* data, int len, void* context)
{
    static_cast<TCPSettingWidget*>(context)->onDeviceData(data, len);
    return 0;
}
