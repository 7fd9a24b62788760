#include "Endpoint.h"

#include "Wirelet.h"

#include <QMessageLogger>
#include <cstring>
#include <memory>

Endpoint::Endpoint(QObject* parent)
    : QObject(parent)
{
}

int Endpoint::setDataCallback(DataCallback callback, void* context)
{
    dataCallback = callback;
    dataContext = context;
    return 0;
}

int Endpoint::openWhenReachable(QString, QString)
{
    return 1;
}

void Endpoint::setAllowedCamera(const QString&) { }

void Endpoint::setReplaceSameCamera(bool) { }

int Endpoint::moveTo(QString, QString)
{
    return 1;
}

void Endpoint::deliver(const Velko::Wirelet::CMemoryPacket& packet)
{
    std::lock_guard<std::mutex> lock(receiveMutex);
    const auto size = static_cast<std::int32_t>(packet.getDataSize());
    if (size <= 0) {
        return;
    }
    QMessageLogger(QT_MESSAGELOG_FILE, QT_MESSAGELOG_LINE, QT_MESSAGELOG_FUNC).info("onReceive data size: %d", size);
    // The extra zero lets the receiver read the chunk as a zero-terminated string.
    std::unique_ptr<char[]> copy(new char[size + 1]());
    std::memcpy(copy.get(), packet.getBufferPtr(), static_cast<std::size_t>(size));
    if (dataCallback) {
        dataCallback(copy.get(), size, dataContext);
    }
}
