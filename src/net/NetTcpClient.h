#pragma once

#include "Endpoint.h"
#include "Wirelet.h"

#include <QByteArray>
#include <QString>
#include <atomic>
#include <cstdint>
#include <mutex>

// The client role of a device: one outgoing connection to a camera, whose bytes go to one
// callback and whose events become messages.
class NetTcpClient : public Endpoint, public Velko::Wirelet::ISessionClientSink
{
    Q_OBJECT

public:
    explicit NetTcpClient(QObject* parent);
    ~NetTcpClient() override;

    int open(QString ip, QString port) override;
    int close() override;
    int send(const char* data, std::uint32_t size) override;
    bool waitsForCamera() const override { return true; }
    // Returns at once and connects as soon as the camera answers; says nothing until it does.
    int openWhenReachable(QString ip, QString port) override;

    void onConnected(Velko::Memory::TSharedPtr<Velko::Wirelet::ISessionClient>& session) override;
    void onDisconnected(Velko::Memory::TSharedPtr<Velko::Wirelet::ISessionClient>& session,
                        std::int32_t reason) override;
    void onReceive(Velko::Memory::TSharedPtr<Velko::Wirelet::ISessionClient>& session,
                   Velko::Memory::TSharedPtr<Velko::Wirelet::CMemoryPacket>& packet) override;
    void onSessionNotify(void* argument) override;

private:
    // Reads the camera's address from the session into peerIP and peerPort and returns them.
    void readPeer(Velko::Memory::TSharedPtr<Velko::Wirelet::ISessionClient>& session, QByteArray& ip, quint16& port);

    Velko::Memory::TSharedPtr<Velko::Wirelet::ISessionClient> session;
    std::atomic<bool> connected { false };
    std::mutex sessionMutex;
    QByteArray peerIP;
    quint16 peerPort = 0;
    // Covers peerIP and peerPort only; held for no call out of this class.
    std::mutex peerMutex;
};
