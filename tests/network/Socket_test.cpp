#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/Socket.h>
#include <kxPAL/TcpSocket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
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
using Murn::TcpSocket;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr const char* source = "src/network/Socket_BSD.cpp";

const HostAddress someIPv4("10.1.2.3");
const HostAddress someIPv6("2001:db8::1");

using OpenSocket = Open<Socket>;
using FakeSocket = Fabricated<Socket>;

// Two connected descriptors of the local kind, for sockets made around a descriptor.
struct Pair {
    Pair() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0); }
    int fds[2] = {-1, -1};
};

bool isOpen(int fd)
{
    return ::fcntl(fd, F_GETFD) != -1;
}

// A socket address of either family as the platform gets it: with this port in the place of the address's own.
Bytes withPort(const HostAddress& address, unsigned short port)
{
    const Bytes whole = bytesOf(address);
    Bytes bytes(whole.begin() + 4, whole.begin() + 4 + (address.type() == HostAddress::IPv4 ? 16 : 28));
    bytes[2] = static_cast<unsigned char>(port >> 8);
    bytes[3] = static_cast<unsigned char>(port & 0xff);
    return bytes;
}

// An IPv6 address with a port, flow information and a scope of its own.
HostAddress scopedIPv6()
{
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(9);
    address.sin6_flowinfo = 0x01020304;
    address.sin6_scope_id = 7;
    ::inet_pton(AF_INET6, "fe80::1", &address.sin6_addr);
    return HostAddress(reinterpret_cast<const sockaddr*>(&address));
}

}  // namespace

TEST(Socket, enumerationsAreThePlatformsNumbers)
{
    EXPECT_EQ(Socket::IPv4, 2);
    EXPECT_EQ(Socket::IPv6, 10);
    EXPECT_EQ(Socket::Stream, 1);
    EXPECT_EQ(Socket::Datagram, 2);
    EXPECT_EQ(sizeof(Socket::Family), 4U);
    EXPECT_EQ(sizeof(Socket::Type), 4U);
}

TEST(Socket, holdsItsFamilyAndItsDescriptorAndNothingElse)
{
    static_assert(!std::is_copy_constructible<Socket>::value && !std::is_copy_assignable<Socket>::value,
                  "a descriptor has one owner");
    EXPECT_EQ(sizeof(Socket), 16U);
    const FakeSocket socket(Socket::IPv6);
    const auto* const begin = reinterpret_cast<const char*>(static_cast<const Socket*>(&socket));
    EXPECT_EQ(reinterpret_cast<const char*>(&socket._family) - begin, 8);
    EXPECT_EQ(reinterpret_cast<const char*>(&socket._socket) - begin, 12);
}

TEST(Socket, wrapsADescriptorWithoutAFamily)
{
    const Pair pair;
    const OpenSocket one(pair.fds[0]);
    const OpenSocket other(pair.fds[1]);
    EXPECT_EQ(one._family, 0);
    EXPECT_EQ(one._socket, pair.fds[0]);
    EXPECT_EQ(other._socket, pair.fds[1]);
}

TEST(Socket, opensADescriptorOfItsFamilyAndType)
{
    std::vector<std::vector<int>> asked;
    Interposed replaced(interpose::socket, [&](auto, int domain, int type, int protocol) {
        asked.push_back({domain, type, protocol});
        return fakeFd;
    });
    OpenSocket stream(Socket::IPv4, Socket::Stream);
    OpenSocket datagram(Socket::IPv6, Socket::Datagram);
    EXPECT_THAT(asked, ElementsAre(std::vector<int>{2, 1, 0}, std::vector<int>{10, 2, 0}));
    EXPECT_EQ(stream._family, Socket::IPv4);
    EXPECT_EQ(stream._socket, fakeFd);
    EXPECT_EQ(datagram._family, Socket::IPv6);
    stream._socket = datagram._socket = -1;
}

TEST(Socket, endsTheProcessWhenNoDescriptorCanBeOpened)
{
    Interposed replaced(interpose::socket, failsWith(EMFILE));
    EXPECT_FATAL(Socket(Socket::IPv4, Socket::Stream), "_socket != -1", source);
}

TEST(Socket, shutsDownAndClosesItsDescriptorOnce)
{
    const Pair pair;
    const OpenSocket peer(pair.fds[1]);
    OpenSocket socket(pair.fds[0]);
    std::vector<std::string> calls;
    Interposed shutting(interpose::shutdown, [&](auto real, int fd, int how) {
        calls.push_back("shutdown " + std::to_string(fd) + " " + std::to_string(how));
        return real(fd, how);
    });
    Interposed closing(interpose::close, [&](auto real, int fd) {
        calls.push_back("close " + std::to_string(fd));
        return real(fd);
    });
    const std::string fd = std::to_string(pair.fds[0]);

    EXPECT_TRUE(socket.close());
    EXPECT_EQ(socket._socket, -1);
    EXPECT_THAT(calls, ElementsAre("shutdown " + fd + " " + std::to_string(SHUT_RDWR), "close " + fd));

    EXPECT_FALSE(socket.close());
    EXPECT_EQ(calls.size(), 2U) << "closing twice makes no system call";
}

TEST(Socket, makesNoCallWhenAClosedSocketIsDestroyed)
{
    interpose::CallLog log;
    const Pair pair;
    const Socket peer(pair.fds[1]);
    auto socket = std::make_unique<Socket>(pair.fds[0]);
    socket->close();
    Interposed shutting(interpose::shutdown, log.noting("shutdown"));
    Interposed closing(interpose::close, log.noting("close"));
    socket.reset();
    {
        const Socket neverOpen(-1);
    }
    EXPECT_THAT(log.calls(), IsEmpty());
}

TEST(Socket, isClosedEvenWhenThePlatformReportsAnErrorAtClosing)
{
    const Pair pair;
    const Socket peer(pair.fds[1]);
    OpenSocket socket(pair.fds[0]);
    Interposed closing(interpose::close, [](auto real, int fd) {
        real(fd);
        errno = EIO;
        return -1;
    });
    EXPECT_FALSE(socket.close());
    EXPECT_EQ(socket._socket, -1);
}

TEST(Socket, closesItsDescriptorWhenItIsDestroyed)
{
    const Pair pair;
    const Socket peer(pair.fds[1]);
    {
        const Socket socket(pair.fds[0]);
        EXPECT_TRUE(isOpen(pair.fds[0]));
    }
    EXPECT_FALSE(isOpen(pair.fds[0]));
}

TEST(Socket, destroysTheDerivedObjectThroughItsBase)
{
    struct Derived : Socket {
        explicit Derived(bool& flag) : Socket(-1), destroyed(flag) {}
        ~Derived() override { destroyed = true; }
        bool& destroyed;
    };
    bool destroyed = false;
    const Socket* const socket = new Derived(destroyed);
    delete socket;
    EXPECT_TRUE(destroyed);
}

TEST(Socket, tellsNoErrorWithoutALine)
{
    int error = -1;
    EXPECT_EQ(printedBy([&] {
                  errno = 0;
                  error = Socket::Error();
              }),
              "");
    EXPECT_EQ(error, 0);
}

TEST(Socket, printsAndReturnsTheLastError)
{
    int error = 0;
    EXPECT_EQ(printedBy([&] {
                  errno = ECONNREFUSED;
                  error = Socket::Error();
              }),
              "socket Error :Connection refused\n");
    EXPECT_EQ(error, ECONNREFUSED);
}

TEST(Socket, connectsToTheWholeAddressWithThePortWrittenIn)
{
    std::vector<Bytes> asked;
    Interposed replaced(interpose::connect, [&](auto, int fd, const sockaddr* address, socklen_t length) {
        EXPECT_EQ(fd, fakeFd);
        asked.push_back(bytesAt(address, length));
        return 0;
    });
    FakeSocket ipv4(Socket::IPv4);
    FakeSocket ipv6(Socket::IPv6);
    EXPECT_TRUE(ipv4.connect(someIPv4, 0x1234));
    EXPECT_TRUE(ipv6.connect(scopedIPv6(), 0x1234));
    EXPECT_THAT(asked, ElementsAre(withPort(someIPv4, 0x1234), withPort(scopedIPv6(), 0x1234)));
}

TEST(Socket, bindsToTheWholeAddressWithThePortWrittenIn)
{
    std::vector<Bytes> asked;
    Interposed replaced(interpose::bind, [&](auto, int fd, const sockaddr* address, socklen_t length) {
        EXPECT_EQ(fd, fakeFd);
        asked.push_back(bytesAt(address, length));
        return 0;
    });
    FakeSocket ipv4(Socket::IPv4);
    FakeSocket ipv6(Socket::IPv6);
    EXPECT_TRUE(ipv4.bind(someIPv4, 0x1234));
    EXPECT_TRUE(ipv6.bind(scopedIPv6(), 0x1234));
    EXPECT_THAT(asked, ElementsAre(withPort(someIPv4, 0x1234), withPort(scopedIPv6(), 0x1234)));
}

TEST(Socket, returnsAFailedConnectOrBindAndKeepsItsError)
{
    Interposed connecting(interpose::connect, failsWith(EINPROGRESS));
    Interposed binding(interpose::bind, failsWith(EADDRINUSE));
    for (const auto family : {Socket::IPv4, Socket::IPv6}) {
        FakeSocket socket(family);
        EXPECT_FALSE(socket.connect(loopbackOf(family), 80));
        EXPECT_EQ(errno, EINPROGRESS);
        EXPECT_FALSE(socket.bind(loopbackOf(family), 80));
        EXPECT_EQ(errno, EADDRINUSE);
    }
}

TEST(Socket, endsTheProcessWhenItConnectsToAnAddressOfAnotherKind)
{
    EXPECT_FATAL(FakeSocket(Socket::IPv4).connect(someIPv6, 80), "server.type() == HostAddress::IPv4", source);
    EXPECT_FATAL(FakeSocket(Socket::IPv4).connect(HostAddress(), 80), "server.type() == HostAddress::IPv4", source);
    EXPECT_FATAL(FakeSocket(Socket::IPv6).connect(someIPv4, 80), "server.type() == HostAddress::IPv6", source);
}

TEST(Socket, endsTheProcessWhenItBindsToAnAddressOfAnotherKind)
{
    EXPECT_FATAL(FakeSocket(Socket::IPv4).bind(someIPv6, 80), "address.type() == HostAddress::IPv4", source);
    EXPECT_FATAL(FakeSocket(Socket::IPv6).bind(someIPv4, 80), "address.type() == HostAddress::IPv6", source);
    EXPECT_FATAL(FakeSocket(Socket::IPv6).bind(HostAddress("no"), 80), "address.type() == HostAddress::IPv6", source);
}

TEST(Socket, neitherConnectsNorBindsWithoutAFamily)
{
    interpose::CallLog log;
    Interposed connecting(interpose::connect, log.noting("connect"));
    Interposed binding(interpose::bind, log.noting("bind"));
    FakeSocket socket(noFamily);
    for (const HostAddress& address : {someIPv4, someIPv6, HostAddress()}) {
        EXPECT_FALSE(socket.connect(address, 80));
        EXPECT_FALSE(socket.bind(address, 80));
    }
    EXPECT_THAT(log.calls(), IsEmpty());
}

TEST(Socket, listensWithABacklogOf128)
{
    int backlog = 0;
    Interposed replaced(interpose::listen, [&](auto, int fd, int asked) {
        EXPECT_EQ(fd, fakeFd);
        backlog = asked;
        return 0;
    });
    EXPECT_TRUE(FakeSocket(Socket::IPv4).listen());
    EXPECT_EQ(backlog, 128);
}

TEST(Socket, returnsAFailedListen)
{
    Interposed replaced(interpose::listen, failsWith(EADDRINUSE));
    EXPECT_FALSE(FakeSocket(Socket::IPv4).listen());
    EXPECT_EQ(errno, EADDRINUSE);
}

TEST(Socket, acceptsWithoutAskingForThePeersAddress)
{
    Interposed replaced(interpose::accept, [](auto, int fd, sockaddr* address, socklen_t* length) {
        EXPECT_EQ(fd, fakeFd);
        EXPECT_EQ(address, nullptr);
        EXPECT_EQ(length, nullptr);
        return 4712;
    });
    EXPECT_EQ(FakeSocket(Socket::IPv4).acceptFd(), 4712);
}

TEST(Socket, returnsAFailedAccept)
{
    interpose::CallLog log;
    Interposed accepting(interpose::accept, failsWith(ECONNABORTED));
    Interposed opening(interpose::socket, log.noting("socket"));
    FakeSocket socket(Socket::IPv4);
    EXPECT_EQ(socket.accept(), nullptr);
    EXPECT_EQ(errno, ECONNABORTED);
    EXPECT_EQ(socket.acceptFd(), -1);
    EXPECT_EQ(errno, ECONNABORTED);
    EXPECT_THAT(log.calls(), IsEmpty());
}

TEST(Socket, keepsTheDescriptorOpenThatAnAcceptedSocketFirstMakes)
{
    for (const auto family : {Socket::IPv4, Socket::IPv6}) {
        const Pair pair;
        const Socket peer(pair.fds[1]);
        std::vector<std::string> calls;
        int first = -1;
        Interposed accepting(interpose::accept, [&](auto, auto...) {
            calls.emplace_back("accept");
            return pair.fds[0];
        });
        Interposed opening(interpose::socket, [&](auto, int domain, int type, int protocol) {
            calls.push_back("socket " + std::to_string(domain) + " " + std::to_string(type) + " " +
                            std::to_string(protocol));
            return first = ::dup(pair.fds[1]);
        });
        // A connect tells which descriptor and which family the accepted socket has.
        Interposed connecting(interpose::connect, [&](auto, int fd, const sockaddr* address, socklen_t) {
            calls.push_back("connect " + std::to_string(fd) + " " + std::to_string(address->sa_family));
            return 0;
        });

        std::unique_ptr<TcpSocket> accepted(FakeSocket(family).accept());
        accepted->connect(loopbackOf(family), 80);
        const std::string number = std::to_string(family);
        EXPECT_THAT(calls, ElementsAre("accept", "socket " + number + " 1 0",
                                       "connect " + std::to_string(pair.fds[0]) + " " + number));
        accepted.reset();
        EXPECT_FALSE(isOpen(pair.fds[0]));
        EXPECT_TRUE(isOpen(first)) << "not even destruction closes it";
        ::close(first);
    }
}

TEST(Socket, endsTheProcessWhenItAcceptsWithoutAFamily)
{
    Interposed accepting(interpose::accept, [](auto, auto...) { return ::dup(0); });
    EXPECT_FATAL(FakeSocket(noFamily).accept(), "_socket != -1", source);
}

TEST(Socket, sendsAndReceivesWithoutFlags)
{
    char buffer[8];
    const char* const data = "12345";
    Interposed sending(interpose::send, [&](auto, int fd, const void* from, size_t length, int flags) -> ssize_t {
        EXPECT_EQ(fd, fakeFd);
        EXPECT_EQ(from, data);
        EXPECT_EQ(length, 5U);
        EXPECT_EQ(flags, 0);
        return 3;
    });
    Interposed receiving(interpose::recv, [&](auto, int fd, void* to, size_t length, int flags) -> ssize_t {
        EXPECT_EQ(fd, fakeFd);
        EXPECT_EQ(to, buffer);
        EXPECT_EQ(length, 8U);
        EXPECT_EQ(flags, 0);
        return 2;
    });
    FakeSocket socket(Socket::IPv4);
    EXPECT_EQ(socket.send(data, 5), 3);
    EXPECT_EQ(socket.recv(buffer, 8), 2);
}

TEST(Socket, returnsAFailedTransferAndKeepsItsError)
{
    Interposed sending(interpose::send, failsWith(EPIPE));
    Interposed receiving(interpose::recv, failsWith(ECONNRESET));
    Interposed sendingTo(interpose::sendto, failsWith(ENETUNREACH));
    Interposed receivingFrom(interpose::recvfrom, failsWith(EAGAIN));
    FakeSocket socket(Socket::IPv4);
    char buffer[8] = {};
    EXPECT_EQ(socket.send(buffer, 8), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(socket.recv(buffer, 8), -1);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(socket.sendto(buffer, 8, someIPv4, 80), -1);
    EXPECT_EQ(errno, ENETUNREACH);
    EXPECT_EQ(socket.recvfrom(buffer, 8, nullptr, nullptr), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST(Socket, sendsAndReceivesWithoutAFamily)
{
    const Pair pair;
    Socket one(pair.fds[0]);
    Socket other(pair.fds[1]);
    char buffer[8] = {};
    EXPECT_EQ(one.send("hello", 5), 5);
    EXPECT_EQ(other.recv(buffer, sizeof buffer), 5);
    EXPECT_STREQ(buffer, "hello");
    one.close();
    EXPECT_EQ(other.recv(buffer, sizeof buffer), 0) << "the end of the stream";
}

TEST(Socket, sendsToTheWholeAddressWithThePortWrittenIn)
{
    const char* const data = "12345";
    std::vector<Bytes> asked;
    Interposed replaced(interpose::sendto,
                        [&](auto, int fd, const void* from, size_t length, int flags, const sockaddr* address,
                            socklen_t addressLength) -> ssize_t {
                            EXPECT_EQ(fd, fakeFd);
                            EXPECT_EQ(from, data);
                            EXPECT_EQ(length, 5U);
                            EXPECT_EQ(flags, 0);
                            asked.push_back(bytesAt(address, addressLength));
                            return 4;
                        });
    FakeSocket ipv4(Socket::IPv4);
    FakeSocket ipv6(Socket::IPv6);
    EXPECT_EQ(ipv4.sendto(data, 5, someIPv4, 0x1234), 4);
    EXPECT_EQ(ipv6.sendto(data, 5, scopedIPv6(), 0x1234), 4);
    EXPECT_THAT(asked, ElementsAre(withPort(someIPv4, 0x1234), withPort(scopedIPv6(), 0x1234)));
}

TEST(Socket, endsTheProcessWhenItSendsToAnAddressOfAnotherKind)
{
    EXPECT_FATAL(FakeSocket(Socket::IPv4).sendto("x", 1, someIPv6, 80), "to.type() == HostAddress::IPv4", source);
    EXPECT_FATAL(FakeSocket(Socket::IPv6).sendto("x", 1, someIPv4, 80), "to.type() == HostAddress::IPv6", source);
}

TEST(Socket, sendsNothingToAnAddressWithoutAFamily)
{
    interpose::CallLog log;
    Interposed replaced(interpose::sendto, log.noting("sendto"));
    EXPECT_EQ(FakeSocket(noFamily).sendto("x", 1, someIPv4, 80), 0);
    EXPECT_THAT(log.calls(), IsEmpty());
}

namespace {

using ReceiveSlot = ssize_t(int, void*, size_t, int, sockaddr*, socklen_t*);

// The platform hands out this datagram's sender, as many bytes of it as there are and as there is room for.
interpose::Slot<ReceiveSlot>::Replacement receivesFrom(const Bytes& sender)
{
    return [sender](auto*, int fd, void*, size_t, int flags, sockaddr* address, socklen_t* room) -> ssize_t {
        EXPECT_EQ(fd, fakeFd);
        EXPECT_EQ(flags, 0);
        EXPECT_EQ(*room, 28U);
        std::copy_n(sender.begin(), std::min<std::size_t>(sender.size(), *room),
                    reinterpret_cast<unsigned char*>(address));
        *room = static_cast<socklen_t>(sender.size());
        return 6;
    };
}

Bytes storageOf(const HostAddress& address)
{
    const Bytes whole = bytesOf(address);
    return Bytes(whole.begin() + 4, whole.end());
}

Bytes padded(Bytes bytes)
{
    bytes.resize(28, 0);
    return bytes;
}

}  // namespace

TEST(Socket, receivesWithoutAskingForTheSender)
{
    char buffer[8];
    Interposed replaced(
        interpose::recvfrom,
        [&](auto, int fd, void* to, size_t length, int flags, sockaddr* address, socklen_t* room) -> ssize_t {
            EXPECT_EQ(fd, fakeFd);
            EXPECT_EQ(to, buffer);
            EXPECT_EQ(length, 8U);
            EXPECT_EQ(flags, 0);
            EXPECT_EQ(address, nullptr);
            EXPECT_EQ(room, nullptr);
            return 6;
        });
    EXPECT_EQ(FakeSocket(Socket::IPv4).recvfrom(buffer, 8, nullptr, nullptr), 6);
}

TEST(Socket, receivesTheSenderStraightIntoTheAddress)
{
    const Bytes sender = withPort(someIPv4, 0x1234);
    Interposed replaced(interpose::recvfrom, receivesFrom(sender));
    HostAddress from;
    unsigned short port = 0;
    char buffer[8];
    EXPECT_EQ(FakeSocket(Socket::IPv4).recvfrom(buffer, 8, &from, &port), 6);
    EXPECT_EQ(from.type(), HostAddress::IPv4);
    EXPECT_EQ(port, 0x1234);
    EXPECT_EQ(storageOf(from), padded(sender)) << "the port stays inside";
}

TEST(Socket, receivesAnIPv6SenderWithFlowAndScope)
{
    const Bytes sender = withPort(scopedIPv6(), 0x1234);
    Interposed replaced(interpose::recvfrom, receivesFrom(sender));
    HostAddress from;
    unsigned short port = 0;
    char buffer[8];
    EXPECT_EQ(FakeSocket(Socket::IPv6).recvfrom(buffer, 8, &from, &port), 6);
    EXPECT_EQ(from.type(), HostAddress::IPv6);
    EXPECT_EQ(port, 0x1234);
    EXPECT_EQ(storageOf(from), sender);
}

TEST(Socket, receivesTheSenderWithoutItsPort)
{
    Interposed replaced(interpose::recvfrom, receivesFrom(withPort(someIPv4, 0x1234)));
    HostAddress from;
    char buffer[8];
    EXPECT_EQ(FakeSocket(Socket::IPv4).recvfrom(buffer, 8, &from, nullptr), 6);
    EXPECT_TRUE(from == someIPv4);
}

TEST(Socket, leavesNothingOfTheAddressThatAReceivedOneReplaces)
{
    const Bytes shorter = withPort(someIPv4, 0x1234);
    Interposed replaced(interpose::recvfrom, receivesFrom(shorter));
    char buffer[8];
    // From another kind of address to IPv4; and on a socket that takes every sender for IPv6, a shorter one.
    for (const auto family : {Socket::IPv4, noFamily}) {
        HostAddress from = scopedIPv6();
        FakeSocket(family).recvfrom(buffer, 8, &from, nullptr);
        EXPECT_EQ(storageOf(from), padded(shorter)) << family;
    }
}

TEST(Socket, takesEverySenderForIPv6UnlessItsFamilyIsIPv4)
{
    Interposed replaced(interpose::recvfrom, receivesFrom(withPort(someIPv4, 0x1234)));
    HostAddress from;
    unsigned short port = 0;
    char buffer[8];
    FakeSocket(noFamily).recvfrom(buffer, 8, &from, &port);
    EXPECT_EQ(from.type(), HostAddress::IPv6);
    EXPECT_EQ(port, 0x1234);
}

TEST(Socket, setsTheSendersKindEvenWhenNothingWasReceived)
{
    Interposed replaced(interpose::recvfrom, failsWith(EAGAIN));
    char buffer[8];
    const std::vector<std::pair<Socket::Family, HostAddress::Type>> cases{
        {Socket::IPv4, HostAddress::IPv4}, {Socket::IPv6, HostAddress::IPv6}, {noFamily, HostAddress::IPv6}};
    for (const auto& [family, type] : cases) {
        // An address of another kind leaves nothing behind.
        HostAddress from = family == Socket::IPv4 ? scopedIPv6() : someIPv4;
        EXPECT_EQ(FakeSocket(family).recvfrom(buffer, 8, &from, nullptr), -1);
        EXPECT_EQ(from.type(), type);
        EXPECT_THAT(storageOf(from), Each(0));
    }
}

TEST(Socket, keepsTheAddressWhenThePlatformWritesNone)
{
    // A connected stream reports no sender: the length comes back as 0.
    Interposed replaced(interpose::recvfrom, receivesFrom({}));
    HostAddress from(someIPv4);
    char buffer[8];
    EXPECT_EQ(FakeSocket(Socket::IPv4).recvfrom(buffer, 8, &from, nullptr), 6);
    EXPECT_TRUE(from == someIPv4);
}

TEST(Socket, survivesASenderThatIsLongerThanTheRoom)
{
    const Bytes sender(110, 0x11);
    Interposed replaced(interpose::recvfrom, receivesFrom(sender));
    HostAddress from;
    char buffer[8];
    EXPECT_EQ(FakeSocket(noFamily).recvfrom(buffer, 8, &from, nullptr), 6);
    EXPECT_EQ(storageOf(from), Bytes(28, 0x11));
}

TEST(Socket, asksForAddressesWithRoomForEitherFamily)
{
    const Bytes own = withPort(scopedIPv6(), 0x1234);
    const Bytes peers = withPort(someIPv4, 0x4321);
    const auto answers = [](const Bytes& name) {
        return [name](auto, int fd, sockaddr* address, socklen_t* length) {
            EXPECT_EQ(fd, fakeFd);
            EXPECT_EQ(*length, 28U);
            std::memcpy(address, name.data(), name.size());
            *length = static_cast<socklen_t>(name.size());
            return 0;
        };
    };
    Interposed local(interpose::getsockname, answers(own));
    Interposed remote(interpose::getpeername, answers(peers));
    const FakeSocket socket(noFamily);
    EXPECT_EQ(storageOf(socket.localAddress()), own);
    EXPECT_EQ(socket.localAddress().type(), HostAddress::IPv6);
    EXPECT_EQ(socket.localPort(), 0x1234);
    EXPECT_EQ(storageOf(socket.remoteAddress()), padded(peers));
    EXPECT_EQ(socket.remoteAddress().type(), HostAddress::IPv4);
    EXPECT_EQ(socket.remotePort(), 0x4321);
}

TEST(Socket, hasNoAddressesAndPortsWhenThePlatformFails)
{
    Interposed local(interpose::getsockname, failsWith(EBADF));
    Interposed remote(interpose::getpeername, failsWith(ENOTCONN));
    const FakeSocket socket(Socket::IPv4);
    EXPECT_THAT(bytesOf(socket.localAddress()), Each(0));
    EXPECT_THAT(bytesOf(socket.remoteAddress()), Each(0));
    EXPECT_EQ(socket.localPort(), 0);
    EXPECT_EQ(socket.remotePort(), 0);
}

TEST(Socket, hasNoPortInAnotherFamily)
{
    const Pair pair;
    const Socket socket(pair.fds[0]);
    const Socket peer(pair.fds[1]);
    EXPECT_EQ(socket.localPort(), 0);
    EXPECT_EQ(socket.remotePort(), 0);
    EXPECT_EQ(socket.localAddress().type(), HostAddress::Invalid);
    EXPECT_EQ(socket.remoteAddress().type(), HostAddress::Invalid);
}

TEST(Socket, readsPortsOfEitherFamilyInHostOrder)
{
    sockaddr_in ipv4{};
    ipv4.sin_family = AF_INET;
    ipv4.sin_port = htons(0x1234);
    sockaddr_in6 ipv6{};
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_port = htons(0x4321);
    EXPECT_EQ(Socket::GetPort(reinterpret_cast<const sockaddr*>(&ipv4)), 0x1234);
    EXPECT_EQ(Socket::GetPort(reinterpret_cast<const sockaddr*>(&ipv6)), 0x4321);
    ipv4.sin_family = AF_UNIX;
    EXPECT_EQ(Socket::GetPort(reinterpret_cast<const sockaddr*>(&ipv4)), 0);
}

TEST(Socket, tellsTheFamilyForAnAddress)
{
    EXPECT_EQ(Socket::AddressFamily(someIPv4), Socket::IPv4);
    EXPECT_EQ(Socket::AddressFamily(someIPv6), Socket::IPv6);
    EXPECT_EQ(Socket::AddressFamily(HostAddress()), 0);
    EXPECT_EQ(Socket::AddressFamily(HostAddress("nonsense")), 0);
}

TEST(Socket, tellsTheMachinesName)
{
    char name[512] = {};
    ASSERT_EQ(::gethostname(name, sizeof name), 0);
    EXPECT_EQ(Socket::HostName(), name);
}

TEST(Socket, asksForTheMachinesNameWithRoomFor512Bytes)
{
    Interposed replaced(interpose::gethostname, [](auto, char* name, size_t room) {
        EXPECT_EQ(room, 512U);
        std::strcpy(name, "some.host");
        return -1;  // which nobody looks at
    });
    EXPECT_EQ(Socket::HostName(), "some.host");
}

TEST(Socket, hasNoMachineNameWhenThePlatformWritesNone)
{
    Interposed replaced(interpose::gethostname, failsWith(EFAULT));
    EXPECT_EQ(Socket::HostName(), "");
}

TEST(Socket, takesAMachineNameThatFillsTheRoom)
{
    Interposed replaced(interpose::gethostname, [](auto, char* name, size_t room) {
        std::memset(name, 'x', room);
        return 0;
    });
    EXPECT_EQ(Socket::HostName(), std::string(512, 'x'));
}

class SocketOnLoopback : public EachFamily {};
INSTANTIATE_TEST_SUITE_P(Families, SocketOnLoopback, ::testing::Values(Socket::IPv4, Socket::IPv6), familyName);

TEST_P(SocketOnLoopback, hasNoPortBeforeItIsBound)
{
    const Socket socket(family(), Socket::Stream);
    EXPECT_EQ(socket.localPort(), 0);
    EXPECT_EQ(socket.remotePort(), 0);
    EXPECT_EQ(socket.remoteAddress().type(), HostAddress::Unspecified);
}

TEST_P(SocketOnLoopback, isBoundToTheAddressAndAPortOfTheSystemsChoice)
{
    Socket socket(family(), Socket::Datagram);
    ASSERT_TRUE(socket.bind(loopback(), 0));
    EXPECT_TRUE(socket.localAddress() == loopback()) << socket.localAddress().toString();
    EXPECT_NE(socket.localPort(), 0);
}

TEST_P(SocketOnLoopback, cannotBindToAPortThatIsTaken)
{
    Socket first(family(), Socket::Stream);
    ASSERT_TRUE(first.bind(loopback(), 0));
    Socket second(family(), Socket::Stream);
    EXPECT_FALSE(second.bind(loopback(), first.localPort()));
    EXPECT_EQ(errno, EADDRINUSE);
}

TEST_P(SocketOnLoopback, carriesAConnection)
{
    Socket server(family(), Socket::Stream);
    ASSERT_TRUE(server.bind(loopback(), 0));
    ASSERT_TRUE(server.listen());
    Socket client(family(), Socket::Stream);
    ASSERT_TRUE(client.connect(loopback(), server.localPort()));
    Socket accepted(server.acceptFd());

    EXPECT_TRUE(client.remoteAddress() == loopback());
    EXPECT_EQ(client.remotePort(), server.localPort());
    EXPECT_TRUE(accepted.remoteAddress() == loopback());
    EXPECT_EQ(accepted.remotePort(), client.localPort());

    char buffer[8] = {};
    EXPECT_EQ(client.send("ping", 4), 4);
    EXPECT_EQ(accepted.recv(buffer, sizeof buffer), 4);
    EXPECT_STREQ(buffer, "ping");
}
