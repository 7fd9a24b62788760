#pragma once

#include "DataCallback.h"

#include <QObject>
#include <QString>
#include <cstdint>
#include <mutex>

namespace Velko {
namespace Wirelet {
class CMemoryPacket;
} // namespace Wirelet
} // namespace Velko

// Where a device's bytes come from: opened on an address, handing every chunk to one callback and
// telling what happens as messages. What only some kinds need has a default that does without it,
// so that the device never asks which kind it holds.
class Endpoint : public QObject
{
    Q_OBJECT

public:
    explicit Endpoint(QObject* parent);

    virtual int open(QString ip, QString port) = 0;
    virtual int close() = 0;
    virtual int send(const char* data, std::uint32_t size) = 0;
    int setDataCallback(DataCallback callback, void* context);

    // A camera that does not answer yet can be waited for: the open returns at once and the
    // endpoint connects when it answers, then emits cameraConnected. Without a camera to call there
    // is nothing to wait for.
    virtual bool waitsForCamera() const { return false; }
    virtual int openWhenReachable(QString ip, QString port);

    // Cameras that connect to the endpoint: which one is taken, and whether one back from the same
    // address replaces its old connection. An endpoint that calls its camera takes no other.
    virtual bool takesCameras() const { return false; }
    virtual void setAllowedCamera(const QString& address);
    virtual void setReplaceSameCamera(bool replace);

    // Listens on the machine's own address rather than a stored one, and can move to the network
    // address once there is one. Gives 1 when it cannot listen there.
    virtual bool listensOnMachineAddress() const { return false; }
    virtual int moveTo(QString ip, QString port);

signals:
    void sendMsgSig(QString msg);
    void cameraConnected();

protected:
    // Called on the library's threads with each chunk received; the callback gets its own copy.
    void deliver(const Velko::Wirelet::CMemoryPacket& packet);

private:
    std::mutex receiveMutex;
    DataCallback dataCallback = nullptr;
    void* dataContext = nullptr;
};
