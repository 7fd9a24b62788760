#pragma once

#include "Wirelet.h"

#include <memory>

namespace Velko {
namespace Wirelet {

class TcpListener;

// What the program holds of a listening server. Releasing it closes the server.
class TcpServer final : public ISessionServer
{
public:
    explicit TcpServer(std::shared_ptr<TcpListener> listener);
    ~TcpServer() override;

    int open(const char* address, ISessionServerSink* sink) override;
    void close() override;
    void addSession(TSharedPtr<ISession>& session) override;
    void removeSession(TSharedPtr<ISession>& session) override;

private:
    std::shared_ptr<TcpListener> m_listener;
};

} // namespace Wirelet
} // namespace Velko
