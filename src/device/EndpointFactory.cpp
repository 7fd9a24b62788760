#include "EndpointFactory.h"

#include "NetTCPServer.h"
#include "NetTcpClient.h"

#include <QtGlobal>
#include <iterator>

namespace {

template <typename Kind>
Endpoint* makeKind(QObject* parent)
{
    return new Kind(parent);
}

const EndpointFactory::Role kRoles[] = {
    { QT_TRANSLATE_NOOP("TCPSettingWidget", "TCP Client"),
      QT_TRANSLATE_NOOP("TCPSettingWidget", "Connect"),
      QT_TRANSLATE_NOOP("TCPSettingWidget", "Disconnect"),
      "[INFO] open TCP client failed, ip: %1, port: %2.",
      makeKind<NetTcpClient> },
    { QT_TRANSLATE_NOOP("TCPSettingWidget", "TCP Server"),
      QT_TRANSLATE_NOOP("TCPSettingWidget", "Open"),
      QT_TRANSLATE_NOOP("TCPSettingWidget", "Close"),
      "[INFO] open TCP server failed, ip: %1, port: %2.",
      makeKind<NetTCPServer> },
};

} // namespace

int EndpointFactory::count()
{
    return static_cast<int>(std::size(kRoles));
}

const EndpointFactory::Role* EndpointFactory::role(int index)
{
    return index >= 0 && index < count() ? &kRoles[index] : nullptr;
}

Endpoint* EndpointFactory::make(int role, QObject* parent)
{
    const Role* known = EndpointFactory::role(role);
    return known ? known->make(parent) : nullptr;
}
