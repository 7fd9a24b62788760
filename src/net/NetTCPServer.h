#pragma once

#include "Endpoint.h"
#include "Wirelet.h"

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QString>
#include <QVector>
#include <cstdint>
#include <mutex>

// The server role of a device: listens, takes one camera at a time and turns any other away (or
// lets the camera it serves replace its own connection), hands the bytes to one callback and
// reports what happens as messages.
class NetTCPServer : public Endpoint, public Velko::Wirelet::ISessionServerSink
{
    Q_OBJECT

public:
    explicit NetTCPServer(QObject* parent);
    ~NetTCPServer() override;

    int open(QString ip, QString port) override;
    int close() override;
    int send(const char* data, std::uint32_t size) override;
    bool takesCameras() const override { return true; }
    // When set, a camera from any other address is turned away; empty takes the first camera.
    void setAllowedCamera(const QString& address) override;
    // When set, a camera that connects from the address of the one connected takes its place: one
    // that lost power left a connection that only keepalive would end, and its frames meanwhile.
    void setReplaceSameCamera(bool replace) override;
    bool listensOnMachineAddress() const override { return true; }
    // Listens on another address instead, on the GUI thread like open; a camera on the old one is
    // let go. When the new address cannot be opened the server listens on where it was and gives 1.
    int moveTo(QString ip, QString port) override;
    // Monotonic milliseconds that space the turn-away messages of every server; tests give their own.
    using Clock = std::int64_t (*)();
    static void setClock(Clock clock);

    void onConnected(Velko::Memory::TSharedPtr<Velko::Wirelet::ISession>& session) override;
    void onDisconnected(Velko::Memory::TSharedPtr<Velko::Wirelet::ISession>& session, std::int32_t reason) override;
    void onReceive(Velko::Memory::TSharedPtr<Velko::Wirelet::ISession>& session,
                   Velko::Memory::TSharedPtr<Velko::Wirelet::CMemoryPacket>& packet) override;
    void onSessionNotify(void* argument) override;

private:
    // Under sessionMutex. Says at most once a minute per address that a camera was turned away.
    void reportNotAllowed(const QString& ip, quint16 port);

    struct TurnedAway
    {
        std::int64_t saidAt = 0;
        int unsaid = 0;
    };

    Velko::Memory::TSharedPtr<Velko::Wirelet::ISessionServer> server;
    QVector<Velko::Memory::TSharedPtr<Velko::Wirelet::ISession>> sessions;
    std::mutex sessionMutex;
    QHostAddress allowedCamera;
    bool replaceSameCamera = false;
    QHash<QString, TurnedAway> turnedAway;
    // The listener a move opens; until the move is done the sink serves both, and turns cameras away.
    Velko::Memory::TSharedPtr<Velko::Wirelet::ISessionServer> moving;
    QByteArray peerIP;
    quint16 peerPort = 0;
};
