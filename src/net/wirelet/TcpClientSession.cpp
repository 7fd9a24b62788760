#include "TcpClientSession.h"

#include "TcpClientConnection.h"

#include <utility>

namespace Velko {
namespace Wirelet {

TcpClientSession::TcpClientSession(std::shared_ptr<TcpClientConnection> connection)
    : m_connection(std::move(connection))
{
}

TcpClientSession::~TcpClientSession()
{
    m_connection->close();
}

int TcpClientSession::connect(const char* address, bool autoReconnect, ISessionClientSink* sink)
{
    return m_connection->connect(address, autoReconnect, sink);
}

int TcpClientSession::connectWhenReachable(const char* address, ISessionClientSink* sink)
{
    return m_connection->connectWhenReachable(address, sink);
}

int TcpClientSession::close()
{
    return m_connection->close();
}

int TcpClientSession::send(const void* data, std::uint32_t size)
{
    return m_connection->send(data, size);
}

TSharedPtr<CInetAddress> TcpClientSession::getRemoteAddress()
{
    return m_connection->remoteAddress();
}

} // namespace Wirelet
} // namespace Velko
