#include "IoRuntime.h"
#include "TcpClientConnection.h"
#include "TcpClientSession.h"
#include "TcpListener.h"
#include "TcpServer.h"
#include "Wirelet.h"

namespace Velko {
namespace Wirelet {

CSessionFactory& CSessionFactory::instance()
{
    static CSessionFactory factory;
    return factory;
}

int CSessionFactory::createTcpClient(bool, TSharedPtr<ISessionClient>& out)
{
    const std::shared_ptr<IoRuntime> runtime = IoRuntime::current();
    if (!runtime) {
        return -1;
    }
    auto connection = std::make_shared<TcpClientConnection>(runtime);
    runtime->track(connection);
    auto session = std::make_shared<TcpClientSession>(connection);
    connection->setSession(session.get());
    out = session;
    return 0;
}

int CSessionFactory::createTcpServer(bool, TSharedPtr<ISessionServer>& out)
{
    const std::shared_ptr<IoRuntime> runtime = IoRuntime::current();
    if (!runtime) {
        return -1;
    }
    auto listener = std::make_shared<TcpListener>(runtime);
    runtime->track(listener);
    out = std::make_shared<TcpServer>(listener);
    return 0;
}

} // namespace Wirelet
} // namespace Velko
