#pragma once

#include "IoObject.h"
#include "IoRuntime.h"
#include "SocketWriter.h"
#include "Wirelet.h"

#include <array>
#include <asio.hpp>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace Velko {
namespace Wirelet {

class TcpListener;

// One accepted connection. It is offered to onConnected, read once the sink has added it, and
// reported by onDisconnected when it ends, whoever ends it.
class TcpServerSession final : public ISession, public IoObject, public std::enable_shared_from_this<TcpServerSession>
{
public:
    static constexpr std::size_t kReadSize = 4096;

    TcpServerSession(std::shared_ptr<TcpListener> listener,
                     std::shared_ptr<IoRuntime> runtime,
                     Strand strand,
                     asio::ip::tcp::socket socket);

    TSharedPtr<CInetAddress> getRemoteAddress() override;
    int send(const void* data, std::uint32_t size) override;

    // On the session's strand, right after the accept.
    void start();
    void adopt();
    // Ends the connection on the session's strand; from any thread, without waiting.
    void requestRemoval();
    bool belongsTo(const TcpListener* listener) const { return m_listener.get() == listener; }

    void abandon() override;

private:
    void readNext();
    void endConnection(std::int32_t reason);
    void closeSocket();

    template <typename Call>
    void deliver(Call&& call);

    std::shared_ptr<TcpListener> m_listener;
    std::shared_ptr<IoRuntime> m_runtime;
    Strand m_strand;
    asio::ip::tcp::socket m_socket;
    SocketWriter m_writer;
    std::string m_remoteIp;
    std::uint16_t m_remotePort = 0;

    std::atomic<bool> m_adopted { false };
    std::atomic<bool> m_removing { false };
    std::atomic<bool> m_ended { false };
    std::array<std::uint8_t, kReadSize> m_readBuffer {};
};

} // namespace Wirelet
} // namespace Velko
