// The echo server, run as its users run it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "Crowd.h"
#include "EchoServerProcess.h"
#include "TcpClient.h"
#include "Wait.h"

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr std::size_t megabyte = 1024 * 1024;

// Each test ends the server in order, so that the sanitizers have their say about everything that it did.
void expectOrderlyEnd(EchoServerProcess& server, int signalNumber = SIGTERM)
{
    EXPECT_EQ(server.stop(signalNumber), 0) << server.errors();
    EXPECT_THAT(server.errors(), IsEmpty());
    EXPECT_THAT(server.output(), Not(HasSubstr("FATAL")));
}

// Returns whether this process may open so many descriptors.
bool allowDescriptors(rlim_t wanted)
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur >= wanted;
}

TEST(EchoServer, echoesOnAPortThatTheSystemChose)
{
    EchoServerProcess server;
    ASSERT_NE(server.port(), 0);

    EXPECT_TRUE(TcpClient(server.port()).echoes("hello"));
    expectOrderlyEnd(server);
}

TEST(EchoServer, listensOnIPv6)
{
    if (!hasLoopback(AF_INET6))
        GTEST_SKIP() << "this machine has no ::1";
    EchoServerProcess server({"--address", "::1"});
    ASSERT_NE(server.port(), 0);

    EXPECT_THAT(server.output(), HasSubstr("Listening on ::1 port "));
    EXPECT_TRUE(TcpClient(server.port(), AF_INET6).echoes(pattern(100000)));
    expectOrderlyEnd(server);
}

TEST(EchoServer, servesAThousandClientsAtOnce)
{
    if (!allowDescriptors(1100))
        GTEST_SKIP() << "this machine does not allow 1,100 descriptors";
    EchoServerProcess server({"--threads", "3"});
    ASSERT_NE(server.port(), 0);

    Crowd crowd(1000, server.port());
    ASSERT_TRUE(crowd.isConnected());
    EXPECT_TRUE(server.waitForOutput("Connections: 1000 open, "));
    EXPECT_EQ(crowd.chat(64, 10), 1000U);
    EXPECT_EQ(crowd.chat(10000, 2), 1000U);
    expectOrderlyEnd(server);
    EXPECT_THAT(server.output(), HasSubstr("Served 1000 connections, 20640000 bytes.\n"));
}

TEST(EchoServer, getsALargeMessageToASlowReader)
{
    EchoServerProcess server;
    ASSERT_NE(server.port(), 0);
    const TcpClient client(server.port(), AF_INET, 4096);
    const std::string message = pattern(8 * megabyte);

    std::thread sender([&] { EXPECT_TRUE(client.send(message)); });
    std::string answer;
    std::string part;
    do {
        part = client.receive(std::min<std::size_t>(5000, message.size() - answer.size()));
        answer += part;
    } while (!part.empty());
    sender.join();

    EXPECT_TRUE(answer == message) << answer.size() << " bytes came back";
    expectOrderlyEnd(server);
}

TEST(EchoServer, servesOthersWhileOneDoesNotReadAndLosesNothingOfIt)
{
    EchoServerProcess server({"--threads", "1"});
    ASSERT_NE(server.port(), 0);
    const TcpClient stuck(server.port(), AF_INET, 4096);
    const std::string data = pattern(megabyte);
    const std::size_t size = stuck.sendUntilStuck(data);
    ASSERT_GT(size, megabyte);

    EXPECT_EQ(Crowd(10, server.port()).chat(1000, 20), 10U);

    // What is stuck comes back once it is read, and in order.
    stuck.shutDownSending();
    std::string expected;
    while (expected.size() < size)
        expected += data;
    expected.resize(size);
    EXPECT_TRUE(stuck.receive(size) == expected);
    EXPECT_TRUE(stuck.waitForEnd());
    expectOrderlyEnd(server);
}

TEST(EchoServer, dropsOneThatNeverReads)
{
    EchoServerProcess server({"--threads", "1"});
    ASSERT_NE(server.port(), 0);
    const TcpClient neighbour(server.port());
    const TcpClient stuck(server.port(), AF_INET, 4096);
    ASSERT_GT(stuck.sendUntilStuck(pattern(megabyte)), megabyte);

    EXPECT_TRUE(server.waitForOutput("Connections: 1 open, 2 so far, 1 dropped; "));
    EXPECT_TRUE(stuck.waitForEnd());
    EXPECT_TRUE(neighbour.echoes("still here"));
    expectOrderlyEnd(server);
}

TEST(EchoServer, answersOneThatHasStoppedSending)
{
    EchoServerProcess server;
    ASSERT_NE(server.port(), 0);
    const TcpClient client(server.port());
    const std::string message = pattern(50000);

    ASSERT_TRUE(client.send(message));
    client.shutDownSending();
    EXPECT_TRUE(client.receive(message.size()) == message);
    EXPECT_TRUE(client.waitForEnd());
    expectOrderlyEnd(server);
}

TEST(EchoServer, outlivesClientsThatResetOrVanish)
{
    EchoServerProcess server;
    ASSERT_NE(server.port(), 0);
    const TcpClient neighbour(server.port());
    const std::string message = pattern(2 * megabyte);
    constexpr unsigned int rounds = 50;

    for (unsigned int round = 0; round < rounds; ++round) {
        TcpClient(server.port()).close();
        TcpClient(server.port()).reset();

        // The server may be about to write to these: what they send comes back to nobody.
        TcpClient vanishes(server.port());
        vanishes.send("some words");
        vanishes.close();
        TcpClient resets(server.port());
        ASSERT_EQ(::send(resets.descriptor(), message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT) > 0, true);
        resets.reset();

        ASSERT_TRUE(neighbour.echoes("round " + std::to_string(round)));
    }
    EXPECT_TRUE(server.waitForOutput("Connections: 1 open, " + std::to_string(4 * rounds + 1) + " so far, "));
    expectOrderlyEnd(server);
}

TEST(EchoServer, outlivesAWriteToAClientThatIsGone)
{
    EchoServerProcess server;
    ASSERT_NE(server.port(), 0);
    TcpClient client(server.port());
    ASSERT_TRUE(client.echoes("hello"));

    // In this order, and seen by the server all at once, the echo is a write that raises SIGPIPE.
    server.pause();
    ASSERT_TRUE(client.send("are you there?"));
    client.shutDownSending();
    client.reset();
    server.resume();

    EXPECT_TRUE(server.waitForOutput("Connections: 0 open, 1 so far, "));
    expectOrderlyEnd(server);
}

TEST(EchoServer, printsStatisticsByAndBy)
{
    EchoServerProcess server;
    ASSERT_NE(server.port(), 0);
    const TcpClient client(server.port());
    ASSERT_TRUE(client.echoes(pattern(12345)));
    TcpClient(server.port()).close();

    EXPECT_TRUE(server.waitForOutput(
        "Connections: 1 open, 2 so far, 0 dropped; echoed 12345 bytes, now [0-9]+\\.[0-9][0-9] MB/s\\.\n"));
    expectOrderlyEnd(server);
    EXPECT_THAT(server.output(), HasSubstr("\nServed 2 connections, 12345 bytes.\n"));
}

class EchoServerStops : public ::testing::TestWithParam<int> {};

TEST_P(EchoServerStops, withConnectionsOpen)
{
    EchoServerProcess server;
    ASSERT_NE(server.port(), 0);
    Crowd crowd(50, server.port());
    ASSERT_EQ(crowd.chat(100, 1), 50U);
    const TcpClient idle(server.port());
    const TcpClient stuck(server.port(), AF_INET, 4096);
    ASSERT_GT(stuck.sendUntilStuck(pattern(megabyte)), megabyte);

    expectOrderlyEnd(server, GetParam());
    EXPECT_TRUE(idle.waitForEnd());
    EXPECT_THAT(server.output(), HasSubstr("Served 52 connections, "));
}

TEST_P(EchoServerStops, howeverEarlyItIsAsked)
{
    for (int run = 0; run < 10; ++run) {
        EchoServerProcess server({"--threads", "8"});
        ASSERT_NE(server.port(), 0);
        expectOrderlyEnd(server, GetParam());
    }
}

TEST_P(EchoServerStops, whenItWasAskedBeforeItIsUp)
{
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, GetParam());
    for (int run = 0; run < 10; ++run) {
        // The child inherits what is blocked: its signal waits until it can be taken.
        ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
        ChildProcess server(ECHO_SERVER_PROGRAM, {"--port", "0"});
        ::pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
        server.signal(GetParam());

        EXPECT_EQ(server.wait(), 0) << server.errors();
        EXPECT_THAT(server.errors(), IsEmpty());
    }
}

INSTANTIATE_TEST_SUITE_P(BySignal, EchoServerStops, ::testing::Values(SIGINT, SIGTERM),
                         [](const auto& given) { return given.param == SIGINT ? "SIGINT" : "SIGTERM"; });

TEST(EchoServer, raisesItsLimitOfDescriptors)
{
    EchoServerProcess server({}, rlimit{40, 400});
    ASSERT_NE(server.port(), 0);

    EXPECT_EQ(Crowd(200, server.port()).chat(10, 1), 200U);
    expectOrderlyEnd(server);
}

TEST(EchoServer, acceptsAgainWhenDescriptorsAreFree)
{
    EchoServerProcess server({}, rlimit{60, 60});
    ASSERT_NE(server.port(), 0);
    // Everything happens once before: the undefined-behaviour sanitizer needs a descriptor when it meets a type.
    ASSERT_TRUE(TcpClient(server.port()).echoes("first"));
    ASSERT_TRUE(server.waitForOutput("Connections: 0 open, 1 so far, "));

    constexpr int tooMany = 100;
    std::vector<TcpClient> clients;
    clients.reserve(tooMany);
    for (int count = 0; count < tooMany; ++count)
        clients.emplace_back(server.port());  // the system takes them all, the server has no room for all
    ASSERT_TRUE(server.waitForOutput("Connections: [3-5][0-9] open, "));
    const TcpClient last(server.port());
    ASSERT_TRUE(last.send("at last"));

    clients.clear();

    EXPECT_EQ(last.receive(7), "at last");
    expectOrderlyEnd(server);
}

TEST(EchoServer, startsAgainOnItsPortAtOnce)
{
    EchoServerProcess first;
    ASSERT_NE(first.port(), 0);
    const TcpClient client(first.port());
    ASSERT_TRUE(client.echoes("hello"));
    expectOrderlyEnd(first);  // with a connection that the system goes on remembering under this port

    ChildProcess second(ECHO_SERVER_PROGRAM, {"--port", std::to_string(first.port())});
    EXPECT_TRUE(second.waitForOutput("Listening on ")) << second.errors();
    second.signal(SIGTERM);
    EXPECT_EQ(second.wait(), 0);
}

TEST(EchoServer, refusesAPortThatIsInUse)
{
    EchoServerProcess first;
    ASSERT_NE(first.port(), 0);

    ChildProcess second(ECHO_SERVER_PROGRAM, {"--port", std::to_string(first.port())});
    EXPECT_EQ(second.wait(), 2);
    EXPECT_EQ(second.errors(), "echo_server: cannot listen on 127.0.0.1 port " + std::to_string(first.port()) +
                                   ": Address already in use\n");
    EXPECT_THAT(second.output(), IsEmpty());

    EXPECT_TRUE(TcpClient(first.port()).echoes("undisturbed"));
    expectOrderlyEnd(first);
}

struct Mistake {
    const char* name;
    ChildProcess::Arguments arguments;
    const char* message;
};

void PrintTo(const Mistake& mistake, std::ostream* os)
{
    *os << mistake.name;
}

class EchoServerRefuses : public ::testing::TestWithParam<Mistake> {};

TEST_P(EchoServerRefuses, andSaysWhy)
{
    ChildProcess server(ECHO_SERVER_PROGRAM, GetParam().arguments);

    EXPECT_EQ(server.wait(), 2);
    EXPECT_THAT(server.errors(), HasSubstr(GetParam().message));
    EXPECT_THAT(server.output(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Mistakes, EchoServerRefuses,
    ::testing::Values(
        Mistake{"anAddressThatIsNone", {"--address", "300.1.2.3"}, "'300.1.2.3' is no IPv4 or IPv6 address"},
        Mistake{"aName", {"--address", "localhost"}, "'localhost' is no IPv4 or IPv6 address"},
        // An address for documentation, which no machine has.
        Mistake{"aForeignAddress", {"--address", "192.0.2.1", "--port", "0"}, "cannot listen on 192.0.2.1 port 0: "},
        Mistake{"aPortThatIsNoNumber", {"--port", "http"}, "--port: Value http not in range 0 to 65535"},
        Mistake{"aPortTooHigh", {"--port", "65536"}, "--port: Value 65536 not in range 0 to 65535"},
        Mistake{"aNegativePort", {"--port", "-1"}, "--port: Value -1 not in range 0 to 65535"},
        Mistake{"noThreads", {"--threads", "0"}, "--threads: Value 0 not in range 1 to 256"},
        Mistake{"negativeThreads", {"--threads", "-2"}, "--threads: Value -2 not in range 1 to 256"},
        Mistake{"tooManyThreads", {"--threads", "257"}, "--threads: Value 257 not in range 1 to 256"},
        Mistake{"threadsBeyondNumbers", {"--threads", "99999999999999999999"}, "not in range 1 to 256"},
        Mistake{"anUnknownOption", {"--prot"}, "not expected: --prot"},
        Mistake{"aWordTooMany", {"here"}, "not expected: here"}),
    [](const auto& given) { return given.param.name; });

TEST(EchoServer, explainsItsOptions)
{
    ChildProcess server(ECHO_SERVER_PROGRAM, {"--help"});

    EXPECT_EQ(server.wait(), 0);
    for (const char* option : {"--port", "--address", "--threads"})
        EXPECT_THAT(server.output(), HasSubstr(option));
    EXPECT_THAT(server.errors(), IsEmpty());
}

}  // namespace
