#include "SocketOptions.h"

#include <QtTest>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace {

int intOption(asio::ip::tcp::socket& socket, int level, int name)
{
    int value = -1;
    socklen_t size = sizeof value;
    if (getsockopt(socket.native_handle(), level, name, &value, &size) != 0) {
        return -1;
    }
    return value;
}

} // namespace

class tst_SocketOptions final : public QObject
{
    Q_OBJECT

private slots:
    void keepAliveProbesAnIdleConnection();
};

void tst_SocketOptions::keepAliveProbesAnIdleConnection()
{
    asio::io_context context;
    asio::ip::tcp::acceptor acceptor(context, { asio::ip::make_address_v4("127.0.0.1"), 0 });
    asio::ip::tcp::socket client(context);
    client.connect(acceptor.local_endpoint());
    asio::ip::tcp::socket accepted = acceptor.accept();

    QCOMPARE(intOption(client, SOL_SOCKET, SO_KEEPALIVE), 0);
    Velko::Wirelet::enableKeepAlive(client);
    QCOMPARE(intOption(client, SOL_SOCKET, SO_KEEPALIVE), 1);
    QCOMPARE(intOption(client, IPPROTO_TCP, TCP_KEEPIDLE), Velko::Wirelet::kKeepAliveIdleSeconds);
    QCOMPARE(intOption(client, IPPROTO_TCP, TCP_KEEPINTVL), Velko::Wirelet::kKeepAliveIntervalSeconds);
    QCOMPARE(intOption(client, IPPROTO_TCP, TCP_KEEPCNT), Velko::Wirelet::kKeepAliveProbes);
    // A dead peer is noticed within about 25 seconds.
    QVERIFY(Velko::Wirelet::kKeepAliveIdleSeconds
                + Velko::Wirelet::kKeepAliveIntervalSeconds * Velko::Wirelet::kKeepAliveProbes
            <= 25);
}

QTEST_GUILESS_MAIN(tst_SocketOptions)
#include "tst_socketoptions.moc"
