#include "TcpListener.h"

#include "InetAddressText.h"
#include "TcpServerSession.h"

#include <algorithm>
#include <future>
#include <utility>

namespace Velko {
namespace Wirelet {

namespace {

// How long close() waits for the listening socket to be gone, so the port is free again.
constexpr std::chrono::seconds kCloseLimit { 3 };

} // namespace

TcpListener::TcpListener(std::shared_ptr<IoRuntime> runtime)
    : m_runtime(std::move(runtime))
    , m_strand(asio::make_strand(m_runtime->context()))
    , m_acceptor(m_strand)
    , m_pauseTimer(m_strand)
{
}

int TcpListener::open(const char* address, ISessionServerSink* sink)
{
    asio::ip::tcp::endpoint endpoint;
    if (!sink || !parseInetAddress(address, endpoint) || m_runtime->isStopped() || m_closed.load()) {
        return -1;
    }
    if (m_opened.exchange(true)) {
        return -1;
    }
    // Nothing runs on the acceptor before the first accept is posted, so it is set up right here.
    asio::error_code error;
    m_acceptor.open(endpoint.protocol(), error);
    if (!error) {
        m_acceptor.set_option(asio::socket_base::reuse_address(true), error);
    }
    if (!error) {
        m_acceptor.bind(endpoint, error);
    }
    if (!error) {
        m_acceptor.listen(asio::socket_base::max_listen_connections, error);
    }
    if (error) {
        asio::error_code ignored;
        m_acceptor.close(ignored);
        return -1;
    }
    m_sink = sink;
    auto self = shared_from_this();
    asio::post(m_strand, [self] { self->acceptNext(); });
    return 0;
}

void TcpListener::close()
{
    if (m_runtime->isStopped()) {
        m_closed.store(true);
        m_gate.close();
        return;
    }
    if (m_closed.exchange(true)) {
        return;
    }
    m_gate.close();

    auto done = std::make_shared<std::promise<void>>();
    std::future<void> closed = done->get_future();
    auto self = shared_from_this();
    asio::post(m_strand, [self, done] {
        asio::error_code ignored;
        self->m_acceptor.close(ignored);
        self->m_pauseTimer.cancel();
        std::vector<std::shared_ptr<TcpServerSession>> sessions;
        {
            std::lock_guard<std::mutex> lock(self->m_sessionsMutex);
            sessions = self->m_sessions;
        }
        for (const auto& session : sessions) {
            session->requestRemoval();
        }
        done->set_value();
    });
    if (!IoRuntime::isLibraryThread()) {
        closed.wait_for(kCloseLimit);
    }
}

void TcpListener::addSession(TSharedPtr<ISession>& session)
{
    if (auto own = ownSession(session)) {
        own->adopt();
    }
}

void TcpListener::removeSession(TSharedPtr<ISession>& session)
{
    if (auto own = ownSession(session)) {
        own->requestRemoval();
    }
}

void TcpListener::abandon()
{
    m_closed.store(true);
    m_gate.close();
    asio::error_code ignored;
    m_acceptor.close(ignored);
    m_pauseTimer.cancel();
}

void TcpListener::forget(const TcpServerSession* session)
{
    std::lock_guard<std::mutex> lock(m_sessionsMutex);
    m_sessions.erase(
        std::remove_if(m_sessions.begin(),
                       m_sessions.end(),
                       [session](const std::shared_ptr<TcpServerSession>& entry) { return entry.get() == session; }),
        m_sessions.end());
}

void TcpListener::acceptNext()
{
    if (m_closed.load()) {
        return;
    }
    Strand sessionStrand = asio::make_strand(m_runtime->context());
    auto self = shared_from_this();
    m_acceptor.async_accept(
        sessionStrand,
        asio::bind_executor(m_strand,
                            [self, sessionStrand](const asio::error_code& error,
                                                  asio::basic_stream_socket<asio::ip::tcp, Strand> peer) {
                                if (self->m_closed.load()) {
                                    return;
                                }
                                if (error) {
                                    self->m_pauseTimer.expires_after(kAcceptPause);
                                    self->m_pauseTimer.async_wait(
                                        asio::bind_executor(self->m_strand, [self](const asio::error_code& paused) {
                                            if (!paused) {
                                                self->acceptNext();
                                            }
                                        }));
                                    return;
                                }
                                auto session = std::make_shared<TcpServerSession>(
                                    self, self->m_runtime, sessionStrand, asio::ip::tcp::socket(std::move(peer)));
                                self->m_runtime->track(session);
                                {
                                    std::lock_guard<std::mutex> lock(self->m_sessionsMutex);
                                    self->m_sessions.push_back(session);
                                }
                                asio::post(sessionStrand, [session] { session->start(); });
                                self->acceptNext();
                            }));
}

std::shared_ptr<TcpServerSession> TcpListener::ownSession(const TSharedPtr<ISession>& session) const
{
    auto own = std::dynamic_pointer_cast<TcpServerSession>(session);
    if (!own || !own->belongsTo(this)) {
        return nullptr;
    }
    return own;
}

} // namespace Wirelet
} // namespace Velko
