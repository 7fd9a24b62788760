// The session library on its own over loopback: what the endpoints above it rely on.
#include "Wirelet.h"

#include <asio.hpp>
#include <gtest/gtest.h>

using namespace Velko::Wirelet;

// The fixture is the sink of both ends; it checks each byte as it comes.
struct Wirelet : testing::TestWithParam<bool>, ISessionClientSink, ISessionServerSink
{
    void SetUp() override
    {
        ASSERT_TRUE(initialize());
        ASSERT_EQ(CSessionFactory::instance().createTcpServer(false, server), 0);
        ASSERT_EQ(CSessionFactory::instance().createTcpClient(false, client), 0);
        ASSERT_EQ(CSessionFactory::instance().createTcpClient(false, refused), 0);
    }
    void TearDown() override { finalize(); }

    // Checks each byte against the pattern, and the call against its end being closed already.
    void on(std::atomic<unsigned>& count, const CMemoryPacket& packet)
    {
        late |= &count == &atClient ? clientClosed : serverClosed;
        for (std::uint32_t i = 0; i < packet.getDataSize(); ++i)
            disorder |= packet.getBufferPtr()[i] != count++ % 251;
    }
    // The session is kept before the count that the test waits for goes up.
    void onConnected(TSharedPtr<ISession>& s) override { server->addSession(s), peer = s, ++connects; }
    void onConnected(TSharedPtr<ISessionClient>&) override { late |= clientClosed, ++connects; }
    void onReceive(TSharedPtr<ISessionClient>&, TSharedPtr<CMemoryPacket>& p) override { on(atClient, *p); }
    void onReceive(TSharedPtr<ISession>&, TSharedPtr<CMemoryPacket>& p) override { on(atServer, *p); }
    void onDisconnected(TSharedPtr<ISessionClient>&, std::int32_t) override { late |= clientClosed; }
    void onDisconnected(TSharedPtr<ISession>&, std::int32_t) override { late |= serverClosed; }
    void onSessionNotify(void*) override { }
    // Polls for up to five seconds.
    bool waitFor(const std::function<bool()>& done)
    {
        for (int i = 0; i < 1000 && !done(); ++i, asio::steady_timer(io, std::chrono::milliseconds(5)).wait()) { }
        return done();
    }

    TSharedPtr<ISessionServer> server;
    TSharedPtr<ISessionClient> client, refused;
    TSharedPtr<ISession> peer;
    std::atomic<unsigned> atServer {}, atClient {}, connects {}, disorder {}, late {}, clientClosed {}, serverClosed {};
    // A port the OS handed out on loopback and nobody holds any more.
    asio::io_context io;
    const int port = asio::ip::tcp::acceptor(io, { asio::ip::address_v4::loopback(), 0 }).local_endpoint().port();
    const std::string address = "127.0.0.1:" + std::to_string(port);
};

// Run twice: the ends stop by close() and, the second time, by finalize() first.
TEST_P(Wirelet, BytesArriveWholeAndInOrderAndStoppingWhileTheyFlowEndsTheCallbacks)
{
    ASSERT_EQ(server->open(address.c_str(), this), 0);
    ASSERT_EQ(client->connect(address.c_str(), false, this), 0);
    // Byte i of each direction is i % 251, a period that divides no read size, so a chunk out of place shows.
    std::string bytes(251 * 1000, '\0');
    std::generate(bytes.begin(), bytes.end(), [i = 0]() mutable { return static_cast<char>(i++ % 251); });
    ASSERT_EQ(client->send(bytes.data(), bytes.size()), 0);
    EXPECT_TRUE(waitFor([&] { return atServer == bytes.size(); }));
    ASSERT_EQ(peer->send(bytes.data(), bytes.size()), 0);
    EXPECT_TRUE(waitFor([&] { return atClient == bytes.size(); }));
    EXPECT_EQ(client->getRemoteAddress()->getPort(), port);
    EXPECT_STREQ(peer->getRemoteAddress()->getIP(), "127.0.0.1");
    EXPECT_NE(peer->getRemoteAddress()->getPort(), port);

    auto flood = std::async(std::launch::async, [&] {
        while (!clientClosed)
            peer->send(bytes.data(), bytes.size()), client->send(bytes.data(), bytes.size());
    });
    EXPECT_TRUE(waitFor([&] { return atClient > 3 * bytes.size(); }));
    if (GetParam())
        finalize();
    server->close();
    serverClosed = true;
    EXPECT_EQ(client->close(), 0);
    clientClosed = true;
    // With the library's threads joined, a late call would have come by now.
    finalize();
    EXPECT_FALSE(late);
    EXPECT_FALSE(disorder);
}

INSTANTIATE_TEST_SUITE_P(FinalizeFirst, Wirelet, testing::Bool(), testing::PrintToStringParamName());

TEST_F(Wirelet, ConnectsOnceAServerListensAtAnAddressThatParses)
{
    for (const char* bad : { "", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:8o", "localhost:0" }) {
        EXPECT_NE(server->open(bad, this), 0) << bad;
        EXPECT_NE(client->connect(bad, false, this), 0) << bad;
    }
    // The refusals above used neither session up.
    ASSERT_EQ(client->connectWhenReachable(address.c_str(), this), 0);
    // Nobody listens yet: the first attempt's failure is the caller's, also with reconnecting asked for. Once it
    // is reported, the waiting session has most likely been refused too and comes back a second later.
    EXPECT_NE(refused->connect(address.c_str(), true, this), 0);
    ASSERT_EQ(server->open(address.c_str(), this), 0);
    EXPECT_TRUE(waitFor([&] { return connects == 2; }));
}
