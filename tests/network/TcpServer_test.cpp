#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/Application.h>
#include <kxPAL/TcpServer.h>
#include <kxPAL/TcpSocket.h>
#include <kxPAL/TcpStream.h>

#include <cerrno>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "Capture.h"
#include "FatalTest.h"
#include "InterposeSockets.h"
#include "Loopback.h"

using interpose::failsWith;
using Murn::HostAddress;
using Murn::Socket;
using Murn::TcpServer;
using Murn::TcpSocket;
using Murn::TcpStream;
using ::testing::ElementsAre;

TEST(TcpServer, addsNothingToASocket)
{
    static_assert(std::is_base_of<Socket, TcpServer>::value, "a public base");
    static_assert(std::has_virtual_destructor<TcpServer>::value, "deleted through its base as well");
    static_assert(std::is_same<decltype(&TcpServer::bind), decltype(&Socket::bind)>::value, "the same entry");
    EXPECT_EQ(sizeof(TcpServer), sizeof(Socket));
}

TEST(TcpServer, opensAStreamSocketOfItsFamily)
{
    std::vector<std::vector<int>> asked;
    Interposed replaced(interpose::socket, [&](auto, int domain, int type, int protocol) {
        asked.push_back({domain, type, protocol});
        return fakeFd;
    });
    for (const auto family : {Socket::IPv4, Socket::IPv6}) {
        Open<TcpServer> server(family);
        EXPECT_EQ(server._family, family);
        EXPECT_EQ(server._socket, fakeFd);
        server._socket = -1;
    }
    EXPECT_THAT(asked, ElementsAre(std::vector<int>{2, 1, 0}, std::vector<int>{10, 1, 0}));
}

TEST(TcpServer, endsTheProcessWhenItBindsToAnAddressOfAnotherKind)
{
    TcpServer server(Socket::IPv4);
    EXPECT_FATAL(server.bind(HostAddress::LoopbackIPv6, 0), "address.type() == HostAddress::IPv4",
                 "src/network/Socket_BSD.cpp");
}

TEST(TcpServer, listensWithASocketsBacklog)
{
    int backlog = 0;
    Interposed replaced(interpose::listen, [&](auto, int, int asked) {
        backlog = asked;
        return 0;
    });
    EXPECT_TRUE(TcpServer(Socket::IPv4).listen());
    EXPECT_EQ(backlog, 128);
}

TEST(TcpServer, returnsAFailedListen)
{
    Interposed replaced(interpose::listen, failsWith(EADDRINUSE));
    EXPECT_FALSE(TcpServer(Socket::IPv4).listen());
}

TEST(TcpServer, hasNoConnectionWhenAcceptingFails)
{
    Interposed replaced(interpose::accept, failsWith(EAGAIN));
    TcpServer server(Socket::IPv4);
    EXPECT_EQ(server.accept(), nullptr);
    EXPECT_EQ(server.acceptStream(), nullptr);
    EXPECT_EQ(errno, EAGAIN);
}

TEST(TcpServer, printsTheBuffersItIsAskedFor)
{
    TcpServer server(Socket::IPv4);
    const std::string sendBefore = std::to_string(server.getSendBufferSize());
    const std::string receiveBefore = std::to_string(server.getReceiveBufferSize());
    EXPECT_EQ(printedBy([&] {
                  server.setSendBufferSize(65536);
                  server.setReceiveBufferSize(65536);
              }),
              "%%Set Send buffer 65536, " + sendBefore + " => 65536\n%%Set Receive buffer 65536, " + receiveBefore +
                  " => 65536\n");
}

class TcpServerOnLoopback : public EachFamily {
protected:
    void SetUp() override
    {
        EachFamily::SetUp();
        if (IsSkipped())
            return;
        _server = std::make_unique<TcpServer>(family());
        _client = std::make_unique<TcpSocket>(family());
        ASSERT_TRUE(_server->bind(loopback(), 0));
        ASSERT_TRUE(_server->listen());
        ASSERT_TRUE(_client->connect(loopback(), _server->localPort()));
    }

    std::unique_ptr<TcpServer> _server;
    std::unique_ptr<TcpSocket> _client;
};
INSTANTIATE_TEST_SUITE_P(Families, TcpServerOnLoopback, ::testing::Values(Socket::IPv4, Socket::IPv6), familyName);

TEST_P(TcpServerOnLoopback, acceptsAConnectionAsASocket)
{
    int leftOpen = -1;
    std::unique_ptr<TcpSocket> accepted;
    {
        Interposed opening(interpose::socket, [&](auto real, int domain, int type, int protocol) {
            return leftOpen = real(domain, type, protocol);
        });
        accepted.reset(_server->accept());
    }
    ASSERT_NE(accepted, nullptr);
    EXPECT_EQ(accepted->remotePort(), _client->localPort());
    EXPECT_TRUE(accepted->remoteAddress() == loopback());
    char buffer[8] = {};
    EXPECT_EQ(_client->send("ping", 4), 4);
    EXPECT_EQ(accepted->recv(buffer, sizeof buffer), 4);
    EXPECT_STREQ(buffer, "ping");
    EXPECT_EQ(::close(leftOpen), 0) << "the descriptor that the accepted socket made first is still open";
}

TEST_P(TcpServerOnLoopback, acceptsAConnectionAsAStreamWithoutAnotherSocket)
{
    Murn::Application application(0, nullptr);
    interpose::CallLog log;
    Interposed opening(interpose::socket, log.noting("socket"));
    const std::unique_ptr<TcpStream> stream(_server->acceptStream());
    ASSERT_NE(stream, nullptr);
    EXPECT_THAT(log.calls(), ::testing::IsEmpty());
    EXPECT_TRUE(stream->remoteAddress() == loopback());
    EXPECT_EQ(stream->remotePort(), _client->localPort());
}
