#pragma once

#include "Wirelet.h"

#include <memory>

namespace Velko {
namespace Wirelet {

class TcpClientConnection;

// What the program holds of an outgoing connection. Releasing it closes the connection, so a
// sink is never called once nobody holds its session.
class TcpClientSession final : public ISessionClient
{
public:
    explicit TcpClientSession(std::shared_ptr<TcpClientConnection> connection);
    ~TcpClientSession() override;

    int connect(const char* address, bool autoReconnect, ISessionClientSink* sink) override;
    int connectWhenReachable(const char* address, ISessionClientSink* sink) override;
    int close() override;
    int send(const void* data, std::uint32_t size) override;
    TSharedPtr<CInetAddress> getRemoteAddress() override;

private:
    std::shared_ptr<TcpClientConnection> m_connection;
};

} // namespace Wirelet
} // namespace Velko
