#include "LocalIPv4.h"

#include <QAbstractSocket>

namespace {

QHostAddress firstIPv4(const QList<QHostAddress>& addresses, bool allowLoopback)
{
    for (const QHostAddress& address : addresses) {
        if (address.protocol() == QAbstractSocket::IPv4Protocol && (allowLoopback || !address.isLoopback())) {
            return address;
        }
    }
    return {};
}

} // namespace

QHostAddress chooseLocalIPv4(const QList<QHostAddress>& hostAddresses, const QList<QHostAddress>& interfaceAddresses)
{
    const QHostAddress hostAddress = firstIPv4(hostAddresses, true);
    if (hostAddress.isNull() || !hostAddress.isLoopback()) {
        return hostAddress;
    }
    const QHostAddress interfaceAddress = firstIPv4(interfaceAddresses, false);
    return interfaceAddress.isNull() ? hostAddress : interfaceAddress;
}
