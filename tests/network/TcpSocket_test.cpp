#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/TcpSocket.h>
#include <netinet/tcp.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>
#include <type_traits>
#include <vector>

#include "Capture.h"
#include "FatalTest.h"
#include "InterposeSockets.h"
#include "Loopback.h"
#include "OptionCalls.h"
#include "Wait.h"

using interpose::failsWith;
using Murn::HostAddress;
using Murn::Socket;
using Murn::TcpSocket;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr const char* source = "src/network/TcpSocket.cpp";
constexpr const char* bsdSource = "src/network/Socket_BSD.cpp";

const HostAddress someIPv4("10.1.2.3");
const HostAddress someIPv6("2001:db8::1");

using FakeTcpSocket = Fabricated<TcpSocket>;

// Keeps a timed connect from the platform: notes its calls, and has `select` answer as told.
class FakePlatform {
public:
    explicit FakePlatform(int selectResult, int flags = O_RDWR) : _selectResult(selectResult), _flags(flags) {}

    int connectError = EINPROGRESS;  // 0 for a connect that succeeds at once

    const std::vector<std::string>& calls() const { return _calls; }
    bool nonBlocking() const { return (_flags & O_NONBLOCK) != 0; }
    bool nonBlockingWhileConnecting() const { return _nonBlockingWhileConnecting; }
    // The limit that `select` got: seconds and microseconds, or nothing for none.
    const std::vector<long>& limit() const { return _limit; }

private:
    int answerFcntl(int command, void* argument)
    {
        if (command == F_GETFL)
            return _flags;
        _flags = static_cast<int>(reinterpret_cast<long>(argument));
        _calls.emplace_back((_flags & O_NONBLOCK) != 0 ? "non-blocking" : "blocking");
        return 0;
    }

    int answerSelect(int count, const fd_set* readable, const fd_set* writable, const fd_set* exceptional,
                     const timeval* limit)
    {
        _calls.emplace_back("select");
        EXPECT_EQ(count, 1024);
        EXPECT_EQ(readable, nullptr);
        EXPECT_EQ(exceptional, nullptr);
        fd_set expected;
        FD_ZERO(&expected);
        FD_SET(descriptor, &expected);
        EXPECT_EQ(bytesOf(*writable), bytesOf(expected));
        _limit.clear();
        if (limit != nullptr)
            _limit = {limit->tv_sec, limit->tv_usec};
        errno = EINTR;
        return _selectResult;
    }

public:
    static constexpr int descriptor = 1000;

private:
    int _selectResult;
    int _flags;
    bool _nonBlockingWhileConnecting = false;
    std::vector<std::string> _calls;
    std::vector<long> _limit;
    Interposed<int(int, int, void*)> _fcntl{interpose::fcntl, [this](auto, int fd, int command, void* argument) {
                                                EXPECT_EQ(fd, descriptor);
                                                return answerFcntl(command, argument);
                                            }};
    Interposed<int(int, const sockaddr*, socklen_t)> _connect{interpose::connect,
                                                              [this](auto, int fd, const sockaddr*, socklen_t) {
                                                                  EXPECT_EQ(fd, descriptor);
                                                                  _calls.emplace_back("connect");
                                                                  _nonBlockingWhileConnecting = nonBlocking();
                                                                  errno = connectError;
                                                                  return connectError == 0 ? 0 : -1;
                                                              }};
    Interposed<int(int, fd_set*, fd_set*, fd_set*, timeval*)> _select{
        interpose::select,
        [this](auto, int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* limit) {
            return answerSelect(count, readable, writable, exceptional, limit);
        }};
    Interposed<int(int, int)> _shutdown{interpose::shutdown, [this](auto, int fd, int how) {
                                            EXPECT_EQ(fd, descriptor);
                                            _calls.push_back("shutdown " + std::to_string(how));
                                            return 0;
                                        }};
    Interposed<int(int, int, int, void*, socklen_t*)> _getsockopt{interpose::getsockopt, [this](auto, auto...) {
                                                                      _calls.emplace_back("getsockopt");
                                                                      return 0;
                                                                  }};
};

bool connectTimed(long timeoutMs, Socket::Family family = Socket::IPv4)
{
    FakeTcpSocket socket(family, FakePlatform::descriptor);
    return socket.connect(loopbackOf(family), 80, timeoutMs);
}

const std::string shutBoth = "shutdown " + std::to_string(SHUT_RDWR);

}  // namespace

TEST(TcpSocket, addsNothingToASocket)
{
    static_assert(std::is_base_of<Socket, TcpSocket>::value, "a public base");
    static_assert(std::has_virtual_destructor<TcpSocket>::value, "deleted through its base as well");
    EXPECT_EQ(sizeof(TcpSocket), sizeof(Socket));
}

TEST(TcpSocket, opensAStreamSocketOfItsFamily)
{
    std::vector<std::vector<int>> asked;
    Interposed replaced(interpose::socket, [&](auto, int domain, int type, int protocol) {
        asked.push_back({domain, type, protocol});
        return fakeFd;
    });
    for (const auto family : {Socket::IPv4, Socket::IPv6}) {
        Open<TcpSocket> socket(family);
        EXPECT_EQ(socket._family, family);
        EXPECT_EQ(socket._socket, fakeFd);
        socket._socket = -1;
    }
    EXPECT_THAT(asked, ElementsAre(std::vector<int>{2, 1, 0}, std::vector<int>{10, 1, 0}));
}

TEST(TcpSocket, wrapsADescriptorWithoutAFamily)
{
    Open<TcpSocket> socket(fakeFd);
    EXPECT_EQ(socket._family, 0);
    EXPECT_EQ(socket._socket, fakeFd);
    EXPECT_FALSE(socket.connect(someIPv4, 80));
    socket._socket = -1;
}

TEST(TcpSocket, endsTheProcessWhenItConnectsToAnAddressOfAnotherKind)
{
    EXPECT_FATAL(FakeTcpSocket(Socket::IPv4).connect(someIPv6, 80), "server.type() == HostAddress::IPv4", bsdSource);
    EXPECT_FATAL(FakeTcpSocket(Socket::IPv6).connect(someIPv4, 80), "server.type() == HostAddress::IPv6", bsdSource);
    EXPECT_FATAL(FakeTcpSocket(Socket::IPv4).connect(someIPv6, 80, 10), "server.type() == HostAddress::IPv4",
                 bsdSource);
}

TEST(TcpSocketTimedConnect, isWritableInTimeAndBlocksAgain)
{
    FakePlatform platform(1);
    EXPECT_TRUE(connectTimed(500));
    EXPECT_THAT(platform.calls(), ElementsAre("non-blocking", "connect", "select", "blocking"));
    EXPECT_TRUE(platform.nonBlockingWhileConnecting());
    EXPECT_FALSE(platform.nonBlocking());
}

TEST(TcpSocketTimedConnect, staysNonBlockingIfItWas)
{
    for (const int selectResult : {1, 0, -1}) {
        FakePlatform platform(selectResult, O_RDWR | O_NONBLOCK);
        connectTimed(500);
        EXPECT_TRUE(platform.nonBlocking()) << selectResult;
    }
}

TEST(TcpSocketTimedConnect, shutsTheSocketDownWhenTheTimeIsOver)
{
    FakePlatform platform(0);
    EXPECT_FALSE(connectTimed(500));
    EXPECT_THAT(platform.calls(), ElementsAre("non-blocking", "connect", "select", shutBoth, "blocking"));
}

TEST(TcpSocketTimedConnect, failsWithoutAShutdownWhenTheWaitFails)
{
    FakePlatform platform(-1);
    EXPECT_FALSE(connectTimed(500));
    EXPECT_THAT(platform.calls(), ElementsAre("non-blocking", "connect", "select", "blocking"));
}

TEST(TcpSocketTimedConnect, endsTheProcessWhenTheWaitFindsMoreThanOneSocket)
{
    // Only the child gets the platform: making a child needs the real one.
    const auto connectAndFindTwo = [] {
        const FakePlatform platform(2);
        connectTimed(500);
    };
    EXPECT_FATAL(connectAndFindTwo(), "selectResult == 1", source);
}

TEST(TcpSocketTimedConnect, ignoresTheResultOfTheConnectItself)
{
    for (const int error : {0, EINPROGRESS, ECONNREFUSED, ENETUNREACH}) {
        FakePlatform platform(1);
        platform.connectError = error;
        EXPECT_TRUE(connectTimed(500)) << error;
        EXPECT_THAT(platform.calls(), ElementsAre("non-blocking", "connect", "select", "blocking"))
            << "a pending error is not asked for";
    }
}

TEST(TcpSocketTimedConnect, splitsTheLimitIntoSecondsAndMicroseconds)
{
    const std::vector<std::pair<long, std::vector<long>>> cases{
        {0, {0, 0}},           {1, {0, 1000}}, {999, {0, 999000}}, {1000, {1, 0}},
        {61234, {61, 234000}}, {-1, {}},       {-2, {0, -2000}},   {-1500, {-1, -500000}},
    };
    for (const auto& [timeoutMs, limit] : cases) {
        FakePlatform platform(1);
        connectTimed(timeoutMs);
        EXPECT_EQ(platform.limit(), limit) << timeoutMs;
    }
}

TEST(TcpSocketTimedConnect, waitsEvenWithoutAFamily)
{
    FakePlatform platform(0);
    FakeTcpSocket socket(noFamily, FakePlatform::descriptor);
    EXPECT_FALSE(socket.connect(someIPv4, 80, 10));
    EXPECT_THAT(platform.calls(), ElementsAre("non-blocking", "select", shutBoth, "blocking"));
}

TEST(TcpSocketTimedConnect, failsOnAClosedSocketWithoutWaiting)
{
    interpose::CallLog log;
    Interposed waiting(interpose::select, log.noting("select"));
    Interposed shutting(interpose::shutdown, log.noting("shutdown"));
    TcpSocket socket(-1);
    EXPECT_FALSE(socket.connect(someIPv4, 80, 10));
    EXPECT_THAT(log.calls(), IsEmpty());
}

TEST(TcpSocketTimedConnect, endsTheProcessForADescriptorThatNoSetHolds)
{
    EXPECT_FATAL(FakeTcpSocket(noFamily, 1024).connect(someIPv4, 80, 10), "_socket < FD_SETSIZE", source);
}

TEST(TcpSocketTimedConnect, takesTheLargestDescriptorThatASetHolds)
{
    Interposed waiting(interpose::select, [](auto, int, fd_set*, fd_set* writable, fd_set*, timeval*) {
        return FD_ISSET(1023, writable) ? 1 : 0;
    });
    EXPECT_TRUE(FakeTcpSocket(noFamily, 1023).connect(someIPv4, 80, 10));
}

TEST(TcpSocketTimedConnect, failsWithANegativeLimitOtherThanNone)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    TcpSocket socket(fd);
    EXPECT_FALSE(socket.connect(someIPv4, 80, -2)) << "the platform refuses a negative limit";
}

TEST(TcpSocketLowDelay, setsNoDelay)
{
    OptionCalls calls;
    FakeTcpSocket socket(Socket::IPv4);
    socket.setLowDelay(true);
    socket.setLowDelay(false);
    EXPECT_THAT(calls.set(), ElementsAre(OptionCall{IPPROTO_TCP, TCP_NODELAY, bytesOf(1)},
                                         OptionCall{IPPROTO_TCP, TCP_NODELAY, bytesOf(0)}));
}

TEST(TcpSocketLowDelay, endsTheProcessWhenThePlatformRefuses)
{
    Interposed refusing(interpose::setsockopt, failsWith(ENOPROTOOPT));
    EXPECT_FATAL_AFTER(FakeTcpSocket(Socket::IPv4).setLowDelay(true), "socket Error :Protocol not available\n",
                       "!Error()", bsdSource);
}

TEST(TcpSocketLowDelay, passesAFailureWithoutAnErrorNumber)
{
    Interposed refusing(interpose::setsockopt, failsWith(0));
    EXPECT_EQ(printedBy([] { FakeTcpSocket(Socket::IPv4).setLowDelay(true); }), "");
}

namespace {

// A raw listening socket on a loopback address.
class Listener : public Open<Socket> {
public:
    explicit Listener(Socket::Family family, int backlog = 16) : Open<Socket>(family, Socket::Stream)
    {
        EXPECT_TRUE(bind(loopbackOf(family), 0));
        EXPECT_EQ(::listen(_socket, backlog), 0);
    }
};

// A listener that answers no more connections, because one that nobody accepts fills its queue.
class FullListener : public Listener {
public:
    explicit FullListener(Socket::Family family) : Listener(family, 0), _client(family)
    {
        _client.setSocketNonBlocking(true);
        _client.connect(loopbackOf(family), localPort());
        _full = waitUntil([this] { return isFull(); }, std::chrono::seconds(10));
    }

    bool full() const { return _full; }

private:
    // For a listening socket Linux tells the length of its queue and the limit in these two fields.
    bool isFull() const
    {
        tcp_info info{};
        socklen_t length = sizeof info;
        return ::getsockopt(_socket, IPPROTO_TCP, TCP_INFO, &info, &length) == 0 &&
               info.tcpi_unacked > info.tcpi_sacked;
    }

    TcpSocket _client;
    bool _full = false;
};

}  // namespace

class TcpSocketOnLoopback : public EachFamily {};
INSTANTIATE_TEST_SUITE_P(Families, TcpSocketOnLoopback, ::testing::Values(Socket::IPv4, Socket::IPv6), familyName);

TEST_P(TcpSocketOnLoopback, carriesBytesBothWaysUntilTheEnd)
{
    Listener listener(family());
    TcpSocket client(family());
    ASSERT_TRUE(client.connect(loopback(), listener.localPort()));
    TcpSocket server(listener.acceptFd());

    EXPECT_TRUE(client.remoteAddress() == loopback());
    EXPECT_EQ(client.remotePort(), listener.localPort());
    EXPECT_TRUE(server.remoteAddress() == loopback());
    EXPECT_EQ(server.remotePort(), client.localPort());

    char buffer[8] = {};
    EXPECT_EQ(client.send("ping", 4), 4);
    EXPECT_EQ(server.recv(buffer, sizeof buffer), 4);
    EXPECT_STREQ(buffer, "ping");
    EXPECT_EQ(server.send("pong", 4), 4);
    EXPECT_EQ(client.recv(buffer, sizeof buffer), 4);
    EXPECT_STREQ(buffer, "pong");
    client.close();
    EXPECT_EQ(server.recv(buffer, sizeof buffer), 0);
}

TEST_P(TcpSocketOnLoopback, returnsARefusedConnection)
{
    Socket silent(family(), Socket::Stream);  // holds a port that nobody listens on
    ASSERT_TRUE(silent.bind(loopback(), 0));
    TcpSocket client(family());
    EXPECT_FALSE(client.connect(loopback(), silent.localPort()));
    EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_P(TcpSocketOnLoopback, connectsWithinALimitAndBlocksAfterwards)
{
    Listener listener(family());
    for (const long timeoutMs : {30000L, -1L}) {
        TcpSocket client(family());
        EXPECT_TRUE(client.connect(loopback(), listener.localPort(), timeoutMs));
        EXPECT_FALSE(client.socketNonBlocking());
        TcpSocket server(listener.acceptFd());
        char buffer[8] = {};
        EXPECT_EQ(server.send("hello", 5), 5);
        EXPECT_EQ(client.recv(buffer, sizeof buffer), 5);
    }
}

TEST_P(TcpSocketOnLoopback, takesARefusalInTimeForASuccessThatFailsLater)
{
    std::signal(SIGPIPE, SIG_IGN);
    Socket silent(family(), Socket::Stream);
    ASSERT_TRUE(silent.bind(loopback(), 0));
    TcpSocket client(family());
    EXPECT_TRUE(client.connect(loopback(), silent.localPort(), 30000));
    char buffer[8];
    EXPECT_LE(client.recv(buffer, sizeof buffer), 0);
    EXPECT_EQ(client.send("hello", 5), -1);
}

TEST_P(TcpSocketOnLoopback, givesUpAtOnceWithALimitOfZeroAndShutsDown)
{
    FullListener listener(family());
    if (!listener.full())
        GTEST_SKIP() << "this machine does not tell when a queue of connections is full";
    interpose::CallLog log;
    Interposed shutting(interpose::shutdown, log.noting("shutdown"));
    TcpSocket client(family());
    EXPECT_FALSE(client.connect(loopback(), listener.localPort(), 0));
    EXPECT_THAT(log.calls(), ElementsAre("shutdown"));
    EXPECT_FALSE(client.socketNonBlocking());
}

TEST_P(TcpSocketOnLoopback, setsLowDelay)
{
    Open<TcpSocket> socket(family());
    for (const bool on : {true, false}) {
        socket.setLowDelay(on);
        int value = -1;
        socklen_t length = sizeof value;
        EXPECT_EQ(::getsockopt(socket._socket, IPPROTO_TCP, TCP_NODELAY, &value, &length), 0);
        EXPECT_EQ(value != 0, on);
    }
}
