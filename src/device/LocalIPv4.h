#pragma once

#include <QHostAddress>
#include <QList>

// The address a server device should listen on: the first IPv4 of the host name's addresses, except
// that a loopback one (Debian maps the host name to 127.0.1.1) gives way to the first IPv4 of an
// active network interface, so cameras on the network can reach it. A null address when the host
// name has no IPv4 at all.
QHostAddress chooseLocalIPv4(const QList<QHostAddress>& hostAddresses, const QList<QHostAddress>& interfaceAddresses);
