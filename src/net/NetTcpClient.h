#pragma once

#include "DataCallback.h"
#include "Wirelet.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <atomic>
#include <cstdint>
#include <mutex>

// The client role of a device: one outgoing connection to a camera, whose bytes go to one
// callback and whose events become messages.
class NetTcpClient : public QObject, public Velko::Wirelet::ISessionClientSink
{
    Q_OBJECT

public:
    explicit NetTcpClient(QObject* parent);
    ~NetTcpClient() override;

    int open(QString ip, QString port);
    // Returns at once and connects as soon as the camera answers; says nothing until it does.
    int openWhenReachable(QString ip, QString port);
    int close();
    int setDataCallback(DataCallback callback, void* context);
    int send(const char* data, std::uint32_t size);

    void onConnected(Velko::Memory::TSharedPtr<Velko::Wirelet::ISessionClient>& session) override;
    void onDisconnected(Velko::Memory::TSharedPtr<Velko::Wirelet::ISessionClient>& session,
                        std::int32_t reason) override;
    void onReceive(Velko::Memory::TSharedPtr<Velko::Wirelet::ISessionClient>& session,
                   Velko::Memory::TSharedPtr<Velko::Wirelet::CMemoryPacket>& packet) override;
    void onSessionNotify(void* argument) override;

signals:
    void sendMsgSig(QString msg);
    void cameraConnected();

private:
    // Reads the camera's address from the session into peerIP and peerPort and returns them.
    void readPeer(Velko::Memory::TSharedPtr<Velko::Wirelet::ISessionClient>& session, QByteArray& ip, quint16& port);

    Velko::Memory::TSharedPtr<Velko::Wirelet::ISessionClient> session;
    std::atomic<bool> connected { false };
    std::mutex sessionMutex;
    std::mutex receiveMutex;
    DataCallback dataCallback = nullptr;
    void* dataContext = nullptr;
    QByteArray peerIP;
    quint16 peerPort = 0;
    // Covers peerIP and peerPort only; held for no call out of this class.
    std::mutex peerMutex;
};
