#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// TCP sessions with callback delivery: what the endpoints call and what they may rely on.
// Calls with an int result give 0 on success.
namespace Velko {
namespace Memory {

template <typename T>
using TSharedPtr = std::shared_ptr<T>;

} // namespace Memory

namespace Wirelet {

using Velko::Memory::TSharedPtr;

// Starts the library's threads; true when ready. Calling it again while running changes nothing.
bool initialize();

// Ends every session and joins the library's threads. Closing or releasing a session afterwards
// is harmless and returns at once; initialize() starts afresh.
void finalize();

// One chunk of received bytes, valid for the call that hands it over.
class CMemoryPacket
{
public:
    CMemoryPacket(const void* data, std::uint32_t size)
        : m_bytes(static_cast<const std::uint8_t*>(data), static_cast<const std::uint8_t*>(data) + size)
    {
    }

    std::uint32_t getDataSize() const { return static_cast<std::uint32_t>(m_bytes.size()); }
    const std::uint8_t* getBufferPtr() const { return m_bytes.data(); }

private:
    std::vector<std::uint8_t> m_bytes;
};

class CInetAddress
{
public:
    CInetAddress(std::string ip, std::uint16_t port)
        : m_ip(std::move(ip))
        , m_port(port)
    {
    }

    const char* getIP() const { return m_ip.c_str(); }
    std::uint16_t getPort() const { return m_port; }

private:
    std::string m_ip;
    std::uint16_t m_port;
};

class ISessionClientSink;
class ISessionServerSink;

// A connection accepted by a server.
class ISession
{
public:
    virtual ~ISession() = default;
    // Known from the accept on, also once the connection has ended.
    virtual TSharedPtr<CInetAddress> getRemoteAddress() = 0;
    // Returns once every byte is written; non-zero when the connection could not take them.
    virtual int send(const void* data, std::uint32_t size) = 0;
};

class ISessionClient
{
public:
    virtual ~ISessionClient() = default;
    // address is "ip:port". Blocks until connected, refused or 3 s have passed. With autoReconnect
    // a connection that ends is tried again every second until close(), each new one reported by
    // onConnected on this same session. The sink must outlive close() or the release of the session.
    virtual int connect(const char* address, bool autoReconnect, ISessionClientSink* sink) = 0;
    // As connect with autoReconnect, but returns at once: a peer that does not answer yet is tried
    // every second until it does or close() is called. Non-zero only for an address that does not
    // parse or a session already connecting.
    virtual int connectWhenReachable(const char* address, ISessionClientSink* sink) = 0;
    // Ends the connection and the retrying; no sink operation starts after it returns.
    virtual int close() = 0;
    virtual int send(const void* data, std::uint32_t size) = 0;
    // The address given to connect().
    virtual TSharedPtr<CInetAddress> getRemoteAddress() = 0;
};

class ISessionServer
{
public:
    virtual ~ISessionServer() = default;
    // Binds "ip:port" (port 0 picks a free one) and listens. Each accepted connection is offered
    // to onConnected.
    virtual int open(const char* address, ISessionServerSink* sink) = 0;
    // Stops listening and ends every connection; no sink operation starts after it returns.
    virtual void close() = 0;
    // Keeps an offered session: reading starts when onConnected returns. A session that
    // onConnected does not add is let go.
    virtual void addSession(TSharedPtr<ISession>& session) = 0;
    // Ends the session's connection on the library's threads; never waits for a sink operation and
    // never runs one on the caller's thread.
    virtual void removeSession(TSharedPtr<ISession>& session) = 0;
};

// Sink operations of one session never overlap and come on the library's threads. The session
// handed to a client sink is valid for the call.
class ISessionClientSink
{
public:
    virtual ~ISessionClientSink() = default;
    virtual void onConnected(TSharedPtr<ISessionClient>& session) = 0;
    virtual void onDisconnected(TSharedPtr<ISessionClient>& session, std::int32_t reason) = 0;
    virtual void onReceive(TSharedPtr<ISessionClient>& session, TSharedPtr<CMemoryPacket>& packet) = 0;
    virtual void onSessionNotify(void* argument) = 0;
};

class ISessionServerSink
{
public:
    virtual ~ISessionServerSink() = default;
    virtual void onConnected(TSharedPtr<ISession>& session) = 0;
    virtual void onDisconnected(TSharedPtr<ISession>& session, std::int32_t reason) = 0;
    virtual void onReceive(TSharedPtr<ISession>& session, TSharedPtr<CMemoryPacket>& packet) = 0;
    virtual void onSessionNotify(void* argument) = 0;
};

class CSessionFactory
{
public:
    static CSessionFactory& instance();

    // Non-zero when the library is not initialized. The flag is reserved and passed as false.
    int createTcpClient(bool reserved, TSharedPtr<ISessionClient>& out);
    int createTcpServer(bool reserved, TSharedPtr<ISessionServer>& out);

private:
    CSessionFactory() = default;
};

} // namespace Wirelet
} // namespace Velko
