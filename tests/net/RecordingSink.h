#pragma once

#include "Wirelet.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <atomic>
#include <mutex>
#include <thread>

// Records what the session library tells a sink, and catches what it must never do: two sink
// operations at once, or one after the test closed the session.
class RecordingSink final : public Velko::Wirelet::ISessionClientSink, public Velko::Wirelet::ISessionServerSink
{
public:
    enum class Admission
    {
        FirstOnly, // keep one session at a time, remove the others
        None       // add no session
    };

    // As a server sink: what onConnected does with an offered session.
    void serve(Velko::Wirelet::ISessionServer* server, Admission admission);
    // Sink operations take this lock too, as the endpoints' do.
    void shareLock(std::mutex* lock);
    // Makes each onReceive last a while, so that a close finds one in flight.
    void slowReceive(int microseconds);
    // From now on any sink operation, and one still running, is a fault.
    void markClosed();

    void onConnected(Velko::Memory::TSharedPtr<Velko::Wirelet::ISessionClient>& session) override;
    void onDisconnected(Velko::Memory::TSharedPtr<Velko::Wirelet::ISessionClient>& session,
                        std::int32_t reason) override;
    void onReceive(Velko::Memory::TSharedPtr<Velko::Wirelet::ISessionClient>& session,
                   Velko::Memory::TSharedPtr<Velko::Wirelet::CMemoryPacket>& packet) override;

    void onConnected(Velko::Memory::TSharedPtr<Velko::Wirelet::ISession>& session) override;
    void onDisconnected(Velko::Memory::TSharedPtr<Velko::Wirelet::ISession>& session, std::int32_t reason) override;
    void onReceive(Velko::Memory::TSharedPtr<Velko::Wirelet::ISession>& session,
                   Velko::Memory::TSharedPtr<Velko::Wirelet::CMemoryPacket>& packet) override;

    void onSessionNotify(void* argument) override;

    // "connected 127.0.0.1:5000", "disconnected 127.0.0.1:5000", one line per event, in order.
    QStringList events() const;
    int count(const QString& kind) const;
    QByteArray received() const;
    int receiveCount() const { return m_receives.load(); }
    bool overlapped() const { return m_overlapped.load(); }
    int callsAfterClose() const { return m_callsAfterClose.load(); }
    // The session object of the last onConnected.
    const void* lastSession() const;
    // The session that onConnected added, while it lasts.
    Velko::Memory::TSharedPtr<Velko::Wirelet::ISession> keptSession() const;
    // The thread the last disconnect came on.
    std::thread::id lastDisconnectThread() const;

private:
    class Call;

    void record(const QString& kind, Velko::Wirelet::CInetAddress& address, const void* session);
    void append(Velko::Wirelet::CMemoryPacket& packet);

    Velko::Wirelet::ISessionServer* m_server = nullptr;
    Admission m_admission = Admission::None;
    std::mutex* m_sharedLock = nullptr;
    std::atomic<int> m_receiveDelayUs { 0 };

    std::atomic<int> m_inFlight { 0 };
    std::atomic<bool> m_overlapped { false };
    std::atomic<bool> m_closed { false };
    std::atomic<int> m_callsAfterClose { 0 };
    std::atomic<int> m_receives { 0 };

    mutable std::mutex m_mutex;
    QStringList m_events;
    QByteArray m_received;
    const void* m_lastSession = nullptr;
    std::thread::id m_lastDisconnectThread;
    Velko::Memory::TSharedPtr<Velko::Wirelet::ISession> m_kept;
};
