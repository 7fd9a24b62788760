#include "SocketOptions.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace Velko {
namespace Wirelet {

void enableKeepAlive(asio::ip::tcp::socket& socket)
{
    asio::error_code ignored;
    socket.set_option(asio::socket_base::keep_alive(true), ignored);
    const int handle = socket.native_handle();
    const int idle = kKeepAliveIdleSeconds;
    const int interval = kKeepAliveIntervalSeconds;
    const int probes = kKeepAliveProbes;
    setsockopt(handle, IPPROTO_TCP, TCP_KEEPIDLE, &idle, sizeof idle);
    setsockopt(handle, IPPROTO_TCP, TCP_KEEPINTVL, &interval, sizeof interval);
    setsockopt(handle, IPPROTO_TCP, TCP_KEEPCNT, &probes, sizeof probes);
}

} // namespace Wirelet
} // namespace Velko
