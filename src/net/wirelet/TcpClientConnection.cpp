#include "TcpClientConnection.h"

#include "InetAddressText.h"
#include "SocketOptions.h"

#include <utility>

namespace Velko {
namespace Wirelet {

TcpClientConnection::TcpClientConnection(std::shared_ptr<IoRuntime> runtime)
    : m_runtime(std::move(runtime))
    , m_strand(asio::make_strand(m_runtime->context()))
    , m_socket(m_strand)
    , m_deadline(m_strand)
    , m_retryTimer(m_strand)
    , m_writer(m_strand, m_socket)
{
}

template <typename Call>
void TcpClientConnection::deliver(Call&& call)
{
    // Shares ownership with this connection, not with the program's handle: a sink call must never
    // be what keeps the handle alive, or its release would close nothing on the program's thread.
    TSharedPtr<ISessionClient> session(shared_from_this(), m_session);
    m_gate.pass([&] { call(*m_sink, session); });
}

void TcpClientConnection::setSession(ISessionClient* session)
{
    m_session = session;
}

bool TcpClientConnection::prepare(const char* address, bool autoReconnect, ISessionClientSink* sink)
{
    asio::ip::tcp::endpoint target;
    if (!sink || !parseInetAddress(address, target) || m_runtime->isStopped() || m_closed.load()) {
        return false;
    }
    if (m_started.exchange(true)) {
        return false;
    }
    m_sink = sink;
    m_target = target;
    m_autoReconnect = autoReconnect;
    return true;
}

int TcpClientConnection::connect(const char* address, bool autoReconnect, ISessionClientSink* sink)
{
    if (!prepare(address, autoReconnect, sink)) {
        return -1;
    }
    auto first = std::make_shared<FirstAttempt>();
    std::future<void> settled = first->settled.get_future();
    auto self = shared_from_this();
    asio::post(m_strand, [self, first] {
        self->m_firstAttempt = first;
        self->beginAttempt();
    });
    settled.wait_for(kConnectLimit);

    // Whoever settles the first attempt decides it: a connection that comes after the caller has
    // given up is dropped on the strand.
    FirstOutcome outcome = FirstOutcome::Pending;
    if (first->outcome.compare_exchange_strong(outcome, FirstOutcome::Failed)) {
        return -1;
    }
    return outcome == FirstOutcome::Connected ? 0 : -1;
}

int TcpClientConnection::connectWhenReachable(const char* address, ISessionClientSink* sink)
{
    if (!prepare(address, true, sink)) {
        return -1;
    }
    // Without a first attempt to settle, a failed attempt is retried like a lost connection.
    asio::post(m_strand, [self = shared_from_this()] { self->beginAttempt(); });
    return 0;
}

int TcpClientConnection::close()
{
    if (m_runtime->isStopped()) {
        m_closed.store(true);
        m_gate.close();
        return 0;
    }
    if (m_closed.exchange(true)) {
        return -1;
    }
    m_gate.close();

    auto done = std::make_shared<std::promise<void>>();
    std::future<void> closed = done->get_future();
    auto self = shared_from_this();
    asio::post(m_strand, [self, done] {
        self->shutDownIo();
        done->set_value();
    });
    if (!IoRuntime::isLibraryThread()) {
        closed.wait_for(kConnectLimit);
    }
    return 0;
}

int TcpClientConnection::send(const void* data, std::uint32_t size)
{
    if (m_closed.load() || !m_connected.load() || m_runtime->isStopped()) {
        return -1;
    }
    return m_writer.send(shared_from_this(), *m_runtime, data, size);
}

TSharedPtr<CInetAddress> TcpClientConnection::remoteAddress() const
{
    if (!m_started.load()) {
        return std::make_shared<CInetAddress>(std::string(), 0);
    }
    return std::make_shared<CInetAddress>(m_target.address().to_string(), m_target.port());
}

void TcpClientConnection::abandon()
{
    m_closed.store(true);
    m_gate.close();
    shutDownIo();
}

void TcpClientConnection::beginAttempt()
{
    if (m_closed.load()) {
        settleFirstAttempt(FirstOutcome::Failed);
        return;
    }
    const unsigned attempt = ++m_attempt;
    auto self = shared_from_this();
    m_deadline.expires_after(kConnectLimit);
    m_deadline.async_wait(asio::bind_executor(m_strand, [self, attempt](const asio::error_code& error) {
        if (!error && attempt == self->m_attempt && !self->m_connected.load()) {
            self->closeSocket();
        }
    }));
    m_socket.async_connect(m_target, asio::bind_executor(m_strand, [self, attempt](const asio::error_code& error) {
                               self->attemptFinished(error, attempt);
                           }));
}

void TcpClientConnection::attemptFinished(const asio::error_code& error, unsigned attempt)
{
    if (attempt != m_attempt) {
        return;
    }
    m_deadline.cancel();
    if (m_closed.load()) {
        closeSocket();
        settleFirstAttempt(FirstOutcome::Failed);
        return;
    }
    if (error) {
        closeSocket();
        // A first attempt that fails is the caller's to report; only a lost connection is retried.
        if (m_firstAttempt) {
            settleFirstAttempt(FirstOutcome::Failed);
        } else {
            scheduleRetry();
        }
        return;
    }
    // Ready to send before connect() hears of it: its caller may send as soon as it returns.
    enableKeepAlive(m_socket);
    m_writer.restart();
    m_connected.store(true);
    if (!settleFirstAttempt(FirstOutcome::Connected)) {
        m_connected.store(false);
        m_writer.stop();
        closeSocket();
        return;
    }
    deliver([](ISessionClientSink& sink, TSharedPtr<ISessionClient>& session) { sink.onConnected(session); });
    readNext();
}

bool TcpClientConnection::settleFirstAttempt(FirstOutcome outcome)
{
    const std::shared_ptr<FirstAttempt> first = std::move(m_firstAttempt);
    if (!first) {
        return true;
    }
    FirstOutcome expected = FirstOutcome::Pending;
    const bool decided = first->outcome.compare_exchange_strong(expected, outcome);
    first->settled.set_value();
    return decided;
}

void TcpClientConnection::readNext()
{
    if (m_closed.load()) {
        return;
    }
    auto self = shared_from_this();
    m_socket.async_read_some(
        asio::buffer(m_readBuffer),
        asio::bind_executor(m_strand, [self](const asio::error_code& error, std::size_t size) {
            if (self->m_closed.load()) {
                return;
            }
            if (error) {
                self->connectionLost(error);
                return;
            }
            auto packet = std::make_shared<CMemoryPacket>(self->m_readBuffer.data(), static_cast<std::uint32_t>(size));
            self->deliver([&packet](ISessionClientSink& sink, TSharedPtr<ISessionClient>& session) {
                sink.onReceive(session, packet);
            });
            self->readNext();
        }));
}

void TcpClientConnection::connectionLost(const asio::error_code& error)
{
    m_connected.store(false);
    closeSocket();
    m_writer.stop();
    const std::int32_t reason = error.value();
    deliver([reason](ISessionClientSink& sink, TSharedPtr<ISessionClient>& session) {
        sink.onDisconnected(session, reason);
    });
    if (m_autoReconnect) {
        scheduleRetry();
    }
}

void TcpClientConnection::scheduleRetry()
{
    if (m_closed.load()) {
        return;
    }
    auto self = shared_from_this();
    m_retryTimer.expires_after(kRetryInterval);
    m_retryTimer.async_wait(asio::bind_executor(m_strand, [self](const asio::error_code& error) {
        if (!error) {
            self->beginAttempt();
        }
    }));
}

void TcpClientConnection::shutDownIo()
{
    m_connected.store(false);
    m_deadline.cancel();
    m_retryTimer.cancel();
    closeSocket();
    m_writer.stop();
    settleFirstAttempt(FirstOutcome::Failed);
}

void TcpClientConnection::closeSocket()
{
    asio::error_code ignored;
    m_socket.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
    m_socket.close(ignored);
}

} // namespace Wirelet
} // namespace Velko
