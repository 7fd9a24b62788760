#include "Device.h"

#include "DataThread.h"
#include "Endpoint.h"
#include "EndpointFactory.h"
#include "LocalIPv4.h"
#include "Logger.h"
#include "XTestKeyInjector.h"

#include <QDebug>
#include <QHostAddress>
#include <QHostInfo>
#include <QNetworkInterface>
#include <QTimer>

namespace {

const char* const kEnterAddress = QT_TRANSLATE_NOOP("TCPSettingWidget", "Enter an IP address or port number!");
const char* const kEnterStartEnd = QT_TRANSLATE_NOOP("TCPSettingWidget", "Enter a start char or end char!");
const char* const kSelectDirectory
    = QT_TRANSLATE_NOOP("TCPSettingWidget", "You did not select any file save directory.");
const char* const kEnterAllowedCamera
    = QT_TRANSLATE_NOOP("TCPSettingWidget", "Enter the allowed camera as an IP address, or leave it empty!");

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

// Polling the interfaces is a netlink dump: cheap enough to do every second while it matters.
constexpr int kAddressWatchMs = 1000;

} // namespace

Device::Device(QObject* parent)
    : QObject(parent)
    , m_dataThread(new DataThread(this))
    , m_addressWatch(new QTimer(this))
{
    followRole(m_settings.tcpType);
    m_addressWatch->setInterval(kAddressWatchMs);
    connect(m_addressWatch, &QTimer::timeout, this, &Device::moveToNetworkAddress);
    connect(m_dataThread, &DataThread::writingNotice, this, &Device::message, Qt::QueuedConnection);
    m_dataThread->setKeyInjectorFactory([] { return std::make_unique<XTestKeyInjector>(); });
}

Device::~Device()
{
    // Whoever listens is already tearing down; the closing message must not reach it.
    disconnect(this, nullptr, nullptr, nullptr);
    close();
    delete m_endpoint;
}

void Device::setSettings(const TCPSettings& settings)
{
    m_settings = settings;
    followRole(settings.tcpType);
}

void Device::setRole(int role)
{
    m_settings.tcpType = role;
    followRole(role);
}

void Device::followRole(int role)
{
    if (role == m_role) {
        return;
    }
    delete m_endpoint;
    m_role = role;
    m_endpoint = EndpointFactory::make(role, this);
    if (!m_endpoint) {
        return;
    }
    m_endpoint->setDataCallback(deviceDataCallback, this);
    connect(m_endpoint, &Endpoint::sendMsgSig, this, &Device::message);
    connect(m_endpoint, &Endpoint::cameraConnected, this, [this] {
        if (m_waiting) {
            m_waiting = false;
            emit openedAfterWait();
        }
    });
}

QString Device::openAddress() const
{
    if (!m_endpoint) {
        return QString();
    }
    return m_endpoint->listensOnMachineAddress() ? localIPAddress() : m_settings.tcpClientIP;
}

const char* Device::checkFields(const Fields& fields) const
{
    if (fields.ip.isEmpty() || fields.port.isEmpty()) {
        return kEnterAddress;
    }
    if (fields.startChar.isEmpty() || fields.endChar.isEmpty()) {
        return kEnterStartEnd;
    }
    if (m_settings.fileDir.isEmpty()) {
        return kSelectDirectory;
    }
    // Only a role that takes cameras has an allowed camera; whoever checks has set the role first.
    if (m_endpoint && m_endpoint->takesCameras() && !fields.allowedCamera.isEmpty()
        && QHostAddress(fields.allowedCamera).isNull()) {
        return kEnterAllowedCamera;
    }
    return nullptr;
}

Device::Fields Device::storedFields(const TCPSettings& settings, const QString& ip)
{
    return { settings.tcpType,       ip,
             settings.tcpPort,       settings.startChar,
             settings.endChar,       settings.keepEveryFrame,
             settings.keyOutput,     settings.keySpeed,
             settings.allowedCamera, settings.waitForCamera };
}

bool Device::open(const Fields& fields)
{
    followRole(fields.role);
    if (!m_endpoint) {
        return false;
    }
    m_address = fields.ip;
    m_port = fields.port;
    m_endpoint->setAllowedCamera(fields.allowedCamera);
    m_endpoint->setReplaceSameCamera(fields.keepEveryFrame);
    // A camera may send the moment it is connected; a worker that keeps every frame is there first.
    if (fields.keepEveryFrame) {
        startWorker(fields);
    }
    if (m_endpoint->open(fields.ip, fields.port) != 0) {
        m_endpoint->close();
        stopWorker();
        const QString line = QString::fromLatin1(EndpointFactory::role(m_role)->openFailed);
        Logger::info(line.arg(m_settings.tcpClientIP, m_settings.tcpPort).toStdString());
        return false;
    }
    if (m_endpoint->takesCameras() && fields.keyOutput && fields.allowedCamera.isEmpty()) {
        emit message(tr("Any camera that connects to this server can type into the focused window. "
                        "Enter an allowed camera to accept only that one."));
    }
    // Loopback as the machine's own address means no network yet; one the operator typed is kept.
    if (m_endpoint->listensOnMachineAddress() && QHostAddress(fields.ip).isLoopback()
        && fields.ip == localIPAddress()) {
        emit message(tr("This machine has no network address yet; the server listens on %1:%2 and moves to "
                        "the network address as soon as there is one.")
                         .arg(fields.ip, fields.port));
        m_failedMove.clear();
        m_addressWatch->start();
    }
    if (!fields.keepEveryFrame) {
        startWorker(fields);
    }
    return true;
}

void Device::startWorker(const Fields& fields)
{
    m_open = true;
    m_dataThread->setKeyOutput(fields.keyOutput);
    m_dataThread->setOutputSpeed(fields.keySpeed);
    m_dataThread->setKeepEveryFrame(fields.keepEveryFrame);
    m_dataThread->setStartEndChar(fields.startChar, fields.endChar);
    m_dataThread->setFileDir(m_settings.fileDir);
    // Frames carry the name their device is known by.
    m_dataThread->setObjectName(objectName());
    m_dataThread->startThread();
}

void Device::stopWorker()
{
    m_open = false;
    m_dataThread->stopThread();
}

void Device::close()
{
    m_waiting = false;
    m_addressWatch->stop();
    if (m_endpoint) {
        m_endpoint->close();
    }
    stopWorker();
}

bool Device::openAtStart(const Fields& fields)
{
    return open(fields)
        || (fields.waitForCamera && m_endpoint && m_endpoint->waitsForCamera() && waitForCamera(fields));
}

bool Device::waitForCamera(const Fields& fields)
{
    followRole(fields.role);
    if (!m_endpoint) {
        return false;
    }
    m_address = fields.ip;
    if (fields.keepEveryFrame) {
        startWorker(fields);
    }
    if (m_endpoint->openWhenReachable(fields.ip, fields.port) != 0) {
        m_endpoint->close();
        stopWorker();
        return false;
    }
    emit message(tr("The camera at %1:%2 does not answer yet; the device keeps trying and opens when it does.")
                     .arg(fields.ip, fields.port));
    m_waiting = true;
    if (!fields.keepEveryFrame) {
        startWorker(fields);
    }
    return true;
}

QString Device::localIPAddress()
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

void Device::moveToNetworkAddress()
{
    // The host name gave loopback; the chooser then takes an active interface's IPv4, if any.
    const QHostAddress network = chooseLocalIPv4({ QHostAddress(m_address) }, activeInterfaceAddresses());
    if (network.isLoopback()) {
        return;
    }
    const QString ip = network.toString();
    if (m_endpoint->moveTo(ip, m_port) != 0) {
        if (ip != m_failedMove) {
            m_failedMove = ip;
            emit message(tr("The network address %1 is up, but the server cannot listen on %1:%2; it keeps "
                            "listening on %3:%2 and tries again.")
                             .arg(ip, m_port, m_address));
        }
        return;
    }
    m_addressWatch->stop();
    m_address = ip;
    Logger::info(QStringLiteral("[INFO] TCP server moved to the network address, ip: %1, port: %2.")
                     .arg(ip, m_port)
                     .toStdString());
    emit message(tr("The network address %1 is up; the server now listens on %1:%2.").arg(ip, m_port));
    emit serverMoved(ip);
}

void Device::onDeviceData(const char* data, int len)
{
    // The worker first: the file should not wait for the display.
    m_dataThread->pushData(data, len);
    emit received(QString::fromUtf8(data));
}

int Device::deviceDataCallback(const char* data, int len, void* context)
{
    static_cast<Device*>(context)->onDeviceData(data, len);
    return 0;
}
