#include "TcpServer.h"

#include "TcpListener.h"

#include <utility>

namespace Velko {
namespace Wirelet {

TcpServer::TcpServer(std::shared_ptr<TcpListener> listener)
    : m_listener(std::move(listener))
{
}

TcpServer::~TcpServer()
{
    m_listener->close();
}

int TcpServer::open(const char* address, ISessionServerSink* sink)
{
    return m_listener->open(address, sink);
}

void TcpServer::close()
{
    m_listener->close();
}

void TcpServer::addSession(TSharedPtr<ISession>& session)
{
    m_listener->addSession(session);
}

void TcpServer::removeSession(TSharedPtr<ISession>& session)
{
    m_listener->removeSession(session);
}

} // namespace Wirelet
} // namespace Velko
