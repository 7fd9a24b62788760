#pragma once

#include "IoObject.h"
#include "IoRuntime.h"
#include "SinkGate.h"
#include "SocketWriter.h"
#include "Wirelet.h"

#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <vector>

namespace Velko {
namespace Wirelet {

class TcpServerSession;

// The listening socket behind one ISessionServer and the connections it accepted. All sink
// operations of its sessions pass through one gate, which close() shuts.
class TcpListener final : public IoObject, public std::enable_shared_from_this<TcpListener>
{
public:
    // Accepting again at once after a failure such as a full descriptor table would only spin.
    static constexpr std::chrono::milliseconds kAcceptPause { 100 };

    explicit TcpListener(std::shared_ptr<IoRuntime> runtime);

    int open(const char* address, ISessionServerSink* sink);
    void close();
    void addSession(TSharedPtr<ISession>& session);
    void removeSession(TSharedPtr<ISession>& session);

    void abandon() override;

    SinkGate& gate() { return m_gate; }
    ISessionServerSink* sink() const { return m_sink; }
    bool isClosed() const { return m_closed.load(); }
    // The session has ended and no longer needs closing.
    void forget(const TcpServerSession* session);

private:
    void acceptNext();
    std::shared_ptr<TcpServerSession> ownSession(const TSharedPtr<ISession>& session) const;

    std::shared_ptr<IoRuntime> m_runtime;
    Strand m_strand;
    asio::ip::tcp::acceptor m_acceptor;
    asio::steady_timer m_pauseTimer;
    SinkGate m_gate;
    // Set by open() before the first accept, then only read.
    ISessionServerSink* m_sink = nullptr;
    std::atomic<bool> m_opened { false };
    std::atomic<bool> m_closed { false };

    std::mutex m_sessionsMutex;
    std::vector<std::shared_ptr<TcpServerSession>> m_sessions;
};

} // namespace Wirelet
} // namespace Velko
