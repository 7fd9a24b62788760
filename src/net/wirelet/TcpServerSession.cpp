#include "TcpServerSession.h"

#include "SocketOptions.h"
#include "TcpListener.h"

#include <utility>

namespace Velko {
namespace Wirelet {

TcpServerSession::TcpServerSession(std::shared_ptr<TcpListener> listener,
                                   std::shared_ptr<IoRuntime> runtime,
                                   Strand strand,
                                   asio::ip::tcp::socket socket)
    : m_listener(std::move(listener))
    , m_runtime(std::move(runtime))
    , m_strand(std::move(strand))
    , m_socket(std::move(socket))
    , m_writer(m_strand, m_socket)
{
    asio::error_code error;
    const asio::ip::tcp::endpoint remote = m_socket.remote_endpoint(error);
    if (!error) {
        m_remoteIp = remote.address().to_string();
        m_remotePort = remote.port();
    }
}

template <typename Call>
void TcpServerSession::deliver(Call&& call)
{
    TSharedPtr<ISession> session = shared_from_this();
    ISessionServerSink* sink = m_listener->sink();
    m_listener->gate().pass([&] { call(*sink, session); });
}

TSharedPtr<CInetAddress> TcpServerSession::getRemoteAddress()
{
    return std::make_shared<CInetAddress>(m_remoteIp, m_remotePort);
}

int TcpServerSession::send(const void* data, std::uint32_t size)
{
    if (m_ended.load() || m_runtime->isStopped()) {
        return -1;
    }
    return m_writer.send(shared_from_this(), *m_runtime, data, size);
}

void TcpServerSession::start()
{
    if (m_listener->isClosed()) {
        endConnection(0);
        return;
    }
    enableKeepAlive(m_socket);
    m_writer.restart();
    deliver([](ISessionServerSink& sink, TSharedPtr<ISession>& session) { sink.onConnected(session); });
    if (!m_adopted.load() || m_removing.load()) {
        endConnection(0);
        return;
    }
    readNext();
}

void TcpServerSession::adopt()
{
    m_adopted.store(true);
}

void TcpServerSession::requestRemoval()
{
    if (m_runtime->isStopped()) {
        return;
    }
    m_removing.store(true);
    auto self = shared_from_this();
    asio::post(m_strand, [self] { self->endConnection(0); });
}

void TcpServerSession::abandon()
{
    m_ended.store(true);
    closeSocket();
    m_writer.stop();
    m_listener->forget(this);
}

void TcpServerSession::readNext()
{
    auto self = shared_from_this();
    m_socket.async_read_some(asio::buffer(m_readBuffer),
                             asio::bind_executor(m_strand, [self](const asio::error_code& error, std::size_t size) {
                                 if (self->m_ended.load()) {
                                     return;
                                 }
                                 if (error) {
                                     self->endConnection(error.value());
                                     return;
                                 }
                                 auto packet = std::make_shared<CMemoryPacket>(self->m_readBuffer.data(),
                                                                               static_cast<std::uint32_t>(size));
                                 self->deliver([&packet](ISessionServerSink& sink, TSharedPtr<ISession>& session) {
                                     sink.onReceive(session, packet);
                                 });
                                 self->readNext();
                             }));
}

void TcpServerSession::endConnection(std::int32_t reason)
{
    if (m_ended.exchange(true)) {
        return;
    }
    closeSocket();
    m_writer.stop();
    m_listener->forget(this);
    deliver(
        [reason](ISessionServerSink& sink, TSharedPtr<ISession>& session) { sink.onDisconnected(session, reason); });
}

void TcpServerSession::closeSocket()
{
    asio::error_code ignored;
    m_socket.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
    m_socket.close(ignored);
}

} // namespace Wirelet
} // namespace Velko
