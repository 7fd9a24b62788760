#pragma once

#include "IoObject.h"
#include "IoRuntime.h"
#include "SinkGate.h"
#include "SocketWriter.h"
#include "Wirelet.h"

#include <array>
#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <memory>

namespace Velko {
namespace Wirelet {

// The outgoing connection behind one ISessionClient: connects, reads, reconnects. Its handlers
// keep it alive; the session handle that the program holds closes it when released.
class TcpClientConnection final : public IoObject, public std::enable_shared_from_this<TcpClientConnection>
{
public:
    static constexpr std::chrono::seconds kConnectLimit { 3 };
    static constexpr std::chrono::seconds kRetryInterval { 1 };
    static constexpr std::size_t kReadSize = 4096;

    explicit TcpClientConnection(std::shared_ptr<IoRuntime> runtime);

    // The session handed to the sink. Its destructor closes this connection, which waits for a
    // sink call in flight, so the session outlives every call that names it.
    void setSession(ISessionClient* session);

    int connect(const char* address, bool autoReconnect, ISessionClientSink* sink);
    int connectWhenReachable(const char* address, ISessionClientSink* sink);
    int close();
    int send(const void* data, std::uint32_t size);
    TSharedPtr<CInetAddress> remoteAddress() const;

    void abandon() override;

private:
    enum class FirstOutcome
    {
        Pending,
        Connected,
        Failed
    };
    struct FirstAttempt
    {
        std::atomic<FirstOutcome> outcome { FirstOutcome::Pending };
        std::promise<void> settled;
    };

    bool prepare(const char* address, bool autoReconnect, ISessionClientSink* sink);
    void beginAttempt();
    void attemptFinished(const asio::error_code& error, unsigned attempt);
    bool settleFirstAttempt(FirstOutcome outcome);
    void readNext();
    void connectionLost(const asio::error_code& error);
    void scheduleRetry();
    void shutDownIo();
    void closeSocket();

    template <typename Call>
    void deliver(Call&& call);

    std::shared_ptr<IoRuntime> m_runtime;
    Strand m_strand;
    asio::ip::tcp::socket m_socket;
    asio::steady_timer m_deadline;
    asio::steady_timer m_retryTimer;
    SocketWriter m_writer;
    SinkGate m_gate;
    ISessionClient* m_session = nullptr;

    // Set by connect() before any handler runs, then only read.
    ISessionClientSink* m_sink = nullptr;
    asio::ip::tcp::endpoint m_target;
    bool m_autoReconnect = false;

    std::atomic<bool> m_started { false };
    std::atomic<bool> m_closed { false };
    std::atomic<bool> m_connected { false };

    // Strand only.
    std::shared_ptr<FirstAttempt> m_firstAttempt;
    unsigned m_attempt = 0;
    std::array<std::uint8_t, kReadSize> m_readBuffer {};
};

} // namespace Wirelet
} // namespace Velko
