#include "RecordingSink.h"

#include <chrono>

using Velko::Memory::TSharedPtr;
using Velko::Wirelet::CInetAddress;
using Velko::Wirelet::CMemoryPacket;
using Velko::Wirelet::ISession;
using Velko::Wirelet::ISessionClient;

// Counts one sink operation in flight for its whole length.
class RecordingSink::Call
{
public:
    explicit Call(RecordingSink& sink)
        : m_sink(sink)
    {
        if (m_sink.m_inFlight.fetch_add(1) != 0) {
            m_sink.m_overlapped.store(true);
        }
        if (m_sink.m_closed.load()) {
            ++m_sink.m_callsAfterClose;
        }
    }
    ~Call() { m_sink.m_inFlight.fetch_sub(1); }

private:
    RecordingSink& m_sink;
};

void RecordingSink::serve(Velko::Wirelet::ISessionServer* server, Admission admission)
{
    m_server = server;
    m_admission = admission;
}

void RecordingSink::shareLock(std::mutex* lock)
{
    m_sharedLock = lock;
}

void RecordingSink::slowReceive(int microseconds)
{
    m_receiveDelayUs = microseconds;
}

void RecordingSink::markClosed()
{
    m_closed = true;
    // One still running now was not waited for.
    if (m_inFlight.load() > 0) {
        ++m_callsAfterClose;
    }
}

void RecordingSink::onConnected(TSharedPtr<ISessionClient>& session)
{
    Call call(*this);
    record("connected", *session->getRemoteAddress(), session.get());
}

void RecordingSink::onDisconnected(TSharedPtr<ISessionClient>& session, std::int32_t)
{
    Call call(*this);
    record("disconnected", *session->getRemoteAddress(), session.get());
}

void RecordingSink::onReceive(TSharedPtr<ISessionClient>&, TSharedPtr<CMemoryPacket>& packet)
{
    Call call(*this);
    append(*packet);
}

void RecordingSink::onConnected(TSharedPtr<ISession>& session)
{
    Call call(*this);
    std::unique_lock<std::mutex> shared;
    if (m_sharedLock) {
        shared = std::unique_lock<std::mutex>(*m_sharedLock);
    }
    record("connected", *session->getRemoteAddress(), session.get());
    if (m_admission == Admission::FirstOnly) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_kept) {
            m_server->removeSession(session);
        } else {
            m_server->addSession(session);
            m_kept = session;
        }
    }
}

void RecordingSink::onDisconnected(TSharedPtr<ISession>& session, std::int32_t)
{
    Call call(*this);
    std::unique_lock<std::mutex> shared;
    if (m_sharedLock) {
        shared = std::unique_lock<std::mutex>(*m_sharedLock);
    }
    record("disconnected", *session->getRemoteAddress(), session.get());
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lastDisconnectThread = std::this_thread::get_id();
    if (m_kept == session) {
        m_kept.reset();
    }
}

void RecordingSink::onReceive(TSharedPtr<ISession>&, TSharedPtr<CMemoryPacket>& packet)
{
    Call call(*this);
    append(*packet);
}

void RecordingSink::onSessionNotify(void*) { }

QStringList RecordingSink::events() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_events;
}

int RecordingSink::count(const QString& kind) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    int n = 0;
    for (const QString& event : m_events) {
        n += event.startsWith(kind + " ") ? 1 : 0;
    }
    return n;
}

QByteArray RecordingSink::received() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_received;
}

const void* RecordingSink::lastSession() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastSession;
}

TSharedPtr<ISession> RecordingSink::keptSession() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_kept;
}

std::thread::id RecordingSink::lastDisconnectThread() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastDisconnectThread;
}

void RecordingSink::record(const QString& kind, CInetAddress& address, const void* session)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_events.append(QString("%1 %2:%3").arg(kind, QString::fromLatin1(address.getIP())).arg(address.getPort()));
    if (kind == "connected") {
        m_lastSession = session;
    }
}

void RecordingSink::append(CMemoryPacket& packet)
{
    if (const int delay = m_receiveDelayUs.load()) {
        std::this_thread::sleep_for(std::chrono::microseconds(delay));
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_received.append(reinterpret_cast<const char*>(packet.getBufferPtr()), static_cast<int>(packet.getDataSize()));
    ++m_receives;
}
