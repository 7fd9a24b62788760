#include "TCPSettingWidget.h"

#include "Device.h"
#include "Endpoint.h"
#include "EndpointFactory.h"
#include "ui_TCPSettingWidget.h"

#include <QDebug>
#include <QDir>
#include <QFileDialog>
#include <QListView>
#include <QStyle>

namespace {

// The lamp's "status": closed and open as stored, and a device that waits for its camera.
constexpr int kLampClosed = 0;
constexpr int kLampOpen = 1;
constexpr int kLampWaiting = 2;

// The style sheet draws the lamp from "status"; a changed property needs a fresh polish to show.
void setLampStatus(QLabel* lamp, int status)
{
    lamp->setProperty("status", status);
    lamp->style()->unpolish(lamp);
    lamp->style()->polish(lamp);
}

} // namespace

TCPSettingWidget::TCPSettingWidget(Device* shown, QWidget* parent)
    : QWidget(parent)
    , ui(new Ui::TCPSettingWidget)
    , device(shown)
{
    ui->setupUi(this);
    setObjectName(device->objectName());

    fillTypeComboBox();
    fillKeySpeedBox();
    ui->comboBoxKeySpeed->setCurrentIndex(TCPSettings::kDefaultKeySpeed);
    setLampStatus(ui->label_TCP, kLampClosed);
    updateDependentFields();

    connect(device, SIGNAL(message(QString)), this, SIGNAL(sendShowLogData(QString)));
    connect(device, SIGNAL(received(QString)), this, SIGNAL(sendShowData(QString)));
    connect(device, &Device::openedAfterWait, this, [this] { showLamp(kLampOpen); });
    connect(device, &Device::serverMoved, ui->lineEdit_IP, &QLineEdit::setText);
    connect(ui->comboBox_tcp, SIGNAL(currentIndexChanged(int)), this, SLOT(onTcpTypeComboBoxChanged(int)));
    connect(ui->checkBoxKeyOutput, &QCheckBox::toggled, this, &TCPSettingWidget::updateDependentFields);
}

TCPSettingWidget::~TCPSettingWidget()
{
    // The window that listens is already tearing down; the closing message must not reach it.
    disconnect(this, SIGNAL(sendShowData(QString)), nullptr, nullptr);
    disconnect(this, SIGNAL(sendShowLogData(QString)), nullptr, nullptr);
    delete ui;
}

TCPSettings TCPSettingWidget::getSettings() const
{
    TCPSettings current;
    // A device that waits for its camera is still one to open at the next start.
    current.status = ui->label_TCP->property("status").toInt() == kLampClosed ? 0 : 1;
    current.tcpType = ui->comboBox_tcp->currentIndex();
    current.tcpPort = ui->lineEdit_port->text();
    current.tcpClientIP = ui->lineEdit_IP->text();
    current.fileDir = ui->lineEdit_SaveFileNameDir->text();
    current.startChar = ui->lineEditStartChar->text();
    current.endChar = ui->lineEditEndChar->text();
    current.keepEveryFrame = ui->checkBoxKeepEveryFrame->isChecked();
    current.keyOutput = ui->checkBoxKeyOutput->isChecked();
    current.keySpeed = ui->comboBoxKeySpeed->currentIndex();
    current.allowedCamera = ui->lineEditAllowedCamera->text().trimmed();
    current.waitForCamera = ui->checkBoxWaitForCamera->isChecked();
    return current;
}

void TCPSettingWidget::keepShown()
{
    device->setSettings(getSettings());
}

void TCPSettingWidget::setSettings(TCPSettings s)
{
    device->setSettings(s);
    const TCPSettings& settings = device->settings();

    ui->lineEdit_port->setText(settings.tcpPort);
    ui->comboBox_tcp->setCurrentIndex(settings.tcpType);
    ui->lineEdit_SaveFileNameDir->setText(settings.fileDir);
    ui->lineEditStartChar->setText(settings.startChar);
    ui->lineEditEndChar->setText(settings.endChar);
    ui->checkBoxKeepEveryFrame->setChecked(settings.keepEveryFrame);
    ui->checkBoxKeyOutput->setChecked(settings.keyOutput);
    ui->comboBoxKeySpeed->setCurrentIndex(settings.keySpeed);
    ui->lineEditAllowedCamera->setText(settings.allowedCamera);
    ui->checkBoxWaitForCamera->setChecked(settings.waitForCamera);
    updateDependentFields();

    if (const EndpointFactory::Role* role = EndpointFactory::role(settings.tcpType)) {
        ui->lineEdit_IP->setText(device->openAddress());
        qDebug() << "IP  " << ui->lineEdit_IP->text();
        ui->openTcpBtn->setText(tr(role->openText));
    }

    if (settings.status == 1 && checkFields()) {
        openOrClose(true);
    }
}

void TCPSettingWidget::retranslate()
{
    ui->retranslateUi(this);

    const TCPSettings& settings = device->settings();
    const int lamp = ui->label_TCP->property("status").toInt();
    showButtonText(lamp == kLampClosed);
    showLamp(lamp);

    disconnect(ui->comboBox_tcp, SIGNAL(currentIndexChanged(int)), this, SLOT(onTcpTypeComboBoxChanged(int)));
    ui->comboBox_tcp->clear();
    fillTypeComboBox();
    ui->comboBox_tcp->setCurrentIndex(settings.tcpType);
    connect(ui->comboBox_tcp, SIGNAL(currentIndexChanged(int)), this, SLOT(onTcpTypeComboBoxChanged(int)));

    const int keySpeed = ui->comboBoxKeySpeed->currentIndex();
    ui->comboBoxKeySpeed->clear();
    fillKeySpeedBox();
    ui->comboBoxKeySpeed->setCurrentIndex(keySpeed);
}

void TCPSettingWidget::on_btnSelectSaveFileDir_clicked()
{
    TCPSettings& settings = device->settings();
    settings.fileDir = QFileDialog::getExistingDirectory(
        nullptr, tr("Select Save File Directory"), QDir::homePath(), QFileDialog::ShowDirsOnly);
    ui->lineEdit_SaveFileNameDir->setText(settings.fileDir);
    qDebug() << "FileDir is : " << settings.fileDir;
}

void TCPSettingWidget::on_openTcpBtn_clicked()
{
    if (checkFields()) {
        openOrClose();
    }
}

bool TCPSettingWidget::checkFields()
{
    const char* problem = device->checkFields(fieldsShown());
    if (problem) {
        emit sendShowLogData(tr(problem));
        qDebug() << problem;
    }
    return problem == nullptr;
}

void TCPSettingWidget::onTcpTypeComboBoxChanged(int index)
{
    // -1 means the box shows no item (a stored type it does not offer): there is no role to follow.
    if (index < 0) {
        return;
    }
    device->setRole(index);
    updateDependentFields();
    ui->lineEdit_IP->setText(device->openAddress());
    showButtonText(true);
}

void TCPSettingWidget::fillTypeComboBox()
{
    for (int role = 0; role < EndpointFactory::count(); ++role) {
        ui->comboBox_tcp->addItem(tr(EndpointFactory::role(role)->name), QVariant());
    }
    ui->comboBox_tcp->setView(new QListView());
}

void TCPSettingWidget::showButtonText(bool closed)
{
    // A stored role the box does not offer has no button text.
    if (const EndpointFactory::Role* role = EndpointFactory::role(device->settings().tcpType)) {
        ui->openTcpBtn->setText(tr(closed ? role->openText : role->closeText));
    }
}

void TCPSettingWidget::fillKeySpeedBox()
{
    // By index: the five typing speeds of the worker, slowest first.
    ui->comboBoxKeySpeed->addItems({ tr("Slowest"), tr("Slow"), tr("Normal"), tr("Fast"), tr("Fastest") });
    ui->comboBoxKeySpeed->setView(new QListView());
}

Device::Fields TCPSettingWidget::fieldsShown() const
{
    return Device::storedFields(getSettings(), ui->lineEdit_IP->text());
}

bool TCPSettingWidget::openOrClose(bool atStart)
{
    if (ui->label_TCP->property("status").toInt() == kLampClosed) {
        const Device::Fields fields = fieldsShown();
        const bool opened = atStart ? device->openAtStart(fields) : device->open(fields);
        if (opened) {
            showButtonText(false);
            showLamp(device->isWaiting() ? kLampWaiting : kLampOpen);
            setControlsEnabled(false);
        }
        return opened;
    }

    qDebug() << "IP " << ui->lineEdit_IP->text();
    device->close();
    showButtonText(true);
    showLamp(kLampClosed);
    setControlsEnabled(true);
    return true;
}

void TCPSettingWidget::showLamp(int status)
{
    setLampStatus(ui->label_TCP, status);
    ui->label_TCP->setToolTip(status == kLampWaiting
                                  ? tr("Waiting for the camera at %1:%2; the device opens as soon as it answers.")
                                        .arg(ui->lineEdit_IP->text(), ui->lineEdit_port->text())
                                  : QString());
}

void TCPSettingWidget::setControlsEnabled(bool enabled)
{
    ui->comboBox_tcp->setEnabled(enabled);
    ui->lineEdit_IP->setEnabled(enabled);
    ui->lineEdit_port->setEnabled(enabled);
    ui->btnSelectSaveFileDir->setEnabled(enabled);
    ui->lineEditStartChar->setEnabled(enabled);
    ui->lineEditEndChar->setEnabled(enabled);
    ui->checkBoxKeepEveryFrame->setEnabled(enabled);
    ui->checkBoxKeyOutput->setEnabled(enabled);
    updateDependentFields();
}

void TCPSettingWidget::updateDependentFields()
{
    // The role box takes input exactly while the device is closed.
    const bool editable = ui->comboBox_tcp->isEnabledTo(this);
    const Endpoint* endpoint = device->endpoint();
    const bool speed = editable && ui->checkBoxKeyOutput->isChecked();
    const bool allowedCamera = editable && endpoint && endpoint->takesCameras();
    ui->comboBoxKeySpeed->setEnabled(speed);
    ui->labelKeySpeed->setEnabled(speed);
    ui->lineEditAllowedCamera->setEnabled(allowedCamera);
    ui->labelAllowedCamera->setEnabled(allowedCamera);
    ui->checkBoxWaitForCamera->setEnabled(editable && endpoint && endpoint->waitsForCamera());
}
