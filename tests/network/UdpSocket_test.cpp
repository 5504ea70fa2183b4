#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/UdpSocket.h>

#include <cerrno>
#include <string>
#include <type_traits>
#include <vector>

#include "FatalTest.h"
#include "InterposeSockets.h"
#include "Loopback.h"
#include "OptionCalls.h"

using interpose::failsWith;
using Murn::HostAddress;
using Murn::Socket;
using Murn::UdpSocket;
using ::testing::ElementsAre;

namespace {

constexpr const char* bsdSource = "src/network/Socket_BSD.cpp";

const HostAddress group("239.1.2.3");
const HostAddress local("10.1.2.3");
const HostAddress ipv6("2001:db8::1");

// A UDP socket whose descriptor is a number, for tests that let no call reach the platform.
class FakeUdpSocket : public Open<UdpSocket> {
public:
    explicit FakeUdpSocket(Socket::Family family) : FakeUdpSocket(family, Opening()) {}
    ~FakeUdpSocket() override { _socket = -1; }

private:
    struct Opening {
        Interposed<int(int, int, int)> replaced{interpose::socket, [](auto, auto...) { return fakeFd; }};
    };
    FakeUdpSocket(Socket::Family family, const Opening&) : Open<UdpSocket>(family) {}
};

}  // namespace

TEST(UdpSocket, addsNothingToASocket)
{
    static_assert(std::is_base_of<Socket, UdpSocket>::value, "a public base");
    static_assert(std::has_virtual_destructor<UdpSocket>::value, "deleted through its base as well");
    EXPECT_EQ(sizeof(UdpSocket), sizeof(Socket));
}

TEST(UdpSocket, opensADatagramSocketOfItsFamily)
{
    std::vector<std::vector<int>> asked;
    Interposed replaced(interpose::socket, [&](auto, int domain, int type, int protocol) {
        asked.push_back({domain, type, protocol});
        return fakeFd;
    });
    for (const auto family : {Socket::IPv4, Socket::IPv6}) {
        Open<UdpSocket> socket(family);
        EXPECT_EQ(socket._family, family);
        EXPECT_EQ(socket._socket, fakeFd);
        socket._socket = -1;
    }
    EXPECT_THAT(asked, ElementsAre(std::vector<int>{2, 2, 0}, std::vector<int>{10, 2, 0}));
}

TEST(UdpSocket, endsTheProcessForAddressesOfAnotherKind)
{
    EXPECT_FATAL(FakeUdpSocket(Socket::IPv4).bind(ipv6, 0), "address.type() == HostAddress::IPv4", bsdSource);
    EXPECT_FATAL(FakeUdpSocket(Socket::IPv4).sendto("x", 1, ipv6, 80), "to.type() == HostAddress::IPv4", bsdSource);
    EXPECT_FATAL(FakeUdpSocket(Socket::IPv4).addMulticastMembership(ipv6, local),
                 "groupAddress.type() == HostAddress::IPv4", bsdSource);
    EXPECT_FATAL(FakeUdpSocket(Socket::IPv4).dropMulticastMembership(group, ipv6),
                 "groupAddress.type() == HostAddress::IPv4 && localAddress.type() == HostAddress::IPv4", bsdSource);
    EXPECT_FATAL(FakeUdpSocket(Socket::IPv4).setMulticastOutputInterface(ipv6),
                 "localAddress.type() == HostAddress::IPv4", bsdSource);
}

TEST(UdpSocket, handsItsMulticastOptionsToThePlatform)
{
    const Bytes groupBytes{239, 1, 2, 3};
    const Bytes localBytes{10, 1, 2, 3};
    Bytes membership = groupBytes;
    membership.insert(membership.end(), localBytes.begin(), localBytes.end());

    OptionCalls calls;
    FakeUdpSocket socket(Socket::IPv4);
    EXPECT_TRUE(socket.addMulticastMembership(group, local));
    EXPECT_TRUE(socket.dropMulticastMembership(group, local));
    socket.setMulticastOutputInterface(local);
    socket.setMulticastTTL(-3);
    socket.setMulticastLoop(true);
    EXPECT_THAT(calls.set(), ElementsAre(OptionCall{IPPROTO_IP, IP_ADD_MEMBERSHIP, membership},
                                         OptionCall{IPPROTO_IP, IP_DROP_MEMBERSHIP, membership},
                                         OptionCall{IPPROTO_IP, IP_MULTICAST_IF, localBytes},
                                         OptionCall{IPPROTO_IP, IP_MULTICAST_TTL, bytesOf(short{-3})},
                                         OptionCall{IPPROTO_IP, IP_MULTICAST_LOOP, Bytes{1}}));
}

TEST(UdpSocket, readsItsMulticastOptionsFromThePlatform)
{
    OptionCalls calls(Bytes{10, 1, 2, 3});
    const FakeUdpSocket socket(Socket::IPv4);
    EXPECT_EQ(socket.multicastOutputInterface().toString(), "10.1.2.3");
    EXPECT_EQ(socket.multicastTTL(), 0x010a);
    EXPECT_TRUE(socket.multicastLoop());
    EXPECT_THAT(calls.got(), ElementsAre(OptionCall{IPPROTO_IP, IP_MULTICAST_IF, Bytes(4, 0)},
                                         OptionCall{IPPROTO_IP, IP_MULTICAST_TTL, Bytes{0xff, 0xff}},
                                         OptionCall{IPPROTO_IP, IP_MULTICAST_LOOP, Bytes{0}}));
}

TEST(UdpSocket, returnsRefusedMemberships)
{
    Interposed refusing(interpose::setsockopt, failsWith(EADDRINUSE));
    FakeUdpSocket socket(Socket::IPv4);
    EXPECT_FALSE(socket.addMulticastMembership(group, local));
    EXPECT_FALSE(socket.dropMulticastMembership(group, local));
}

class UdpSocketOnLoopback : public EachFamily {};
INSTANTIATE_TEST_SUITE_P(Families, UdpSocketOnLoopback, ::testing::Values(Socket::IPv4, Socket::IPv6), familyName);

TEST_P(UdpSocketOnLoopback, carriesDatagramsAndTellsTheirSender)
{
    UdpSocket receiver(family());
    UdpSocket sender(family());
    ASSERT_TRUE(receiver.bind(loopback(), 0));
    ASSERT_TRUE(sender.bind(loopback(), 0));

    EXPECT_EQ(sender.sendto("first", 5, loopback(), receiver.localPort()), 5);
    EXPECT_EQ(sender.sendto("", 0, loopback(), receiver.localPort()), 0);
    char buffer[16] = {};
    HostAddress from;
    unsigned short port = 0;
    EXPECT_EQ(receiver.recvfrom(buffer, sizeof buffer, &from, &port), 5);
    EXPECT_STREQ(buffer, "first");
    EXPECT_TRUE(from == loopback()) << from.toString();
    EXPECT_EQ(port, sender.localPort());
    EXPECT_EQ(receiver.recvfrom(buffer, sizeof buffer, nullptr, nullptr), 0);

    // The address that came in is good for the answer.
    EXPECT_EQ(receiver.sendto("answer", 6, from, port), 6);
    EXPECT_EQ(sender.recvfrom(buffer, sizeof buffer, &from, nullptr), 6);
    EXPECT_TRUE(from == loopback());
}

TEST_P(UdpSocketOnLoopback, cutsADatagramThatIsLongerThanTheRoom)
{
    UdpSocket receiver(family());
    UdpSocket sender(family());
    ASSERT_TRUE(receiver.bind(loopback(), 0));
    EXPECT_EQ(sender.sendto("0123456789", 10, loopback(), receiver.localPort()), 10);
    char buffer[4];
    EXPECT_EQ(receiver.recvfrom(buffer, sizeof buffer, nullptr, nullptr), 4);
    EXPECT_EQ(std::string(buffer, 4), "0123");
}

TEST_P(UdpSocketOnLoopback, returnsAtOnceWithoutADatagramWhenItDoesNotBlock)
{
    UdpSocket receiver(family());
    ASSERT_TRUE(receiver.bind(loopback(), 0));
    receiver.setSocketNonBlocking(true);
    char buffer[4];
    HostAddress from;
    EXPECT_EQ(receiver.recvfrom(buffer, sizeof buffer, &from, nullptr), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(static_cast<int>(from.type()), static_cast<int>(family()));
}

TEST(UdpSocketMulticast, carriesDatagramsToTheGroupUntilItIsLeft)
{
    const HostAddress loopback(HostAddress::LoopbackIPv4);
    UdpSocket receiver(Socket::IPv4);
    ASSERT_TRUE(receiver.bind(HostAddress::AnyIPv4, 0));
    if (!receiver.addMulticastMembership(group, loopback))
        GTEST_SKIP() << "this machine joins no group on its loopback interface";
    UdpSocket sender(Socket::IPv4);
    sender.setMulticastOutputInterface(loopback);
    sender.setMulticastLoop(true);
    sender.setMulticastTTL(0);
    if (sender.sendto("hello", 5, group, receiver.localPort()) != 5)
        GTEST_SKIP() << "this machine sends no multicasts on its loopback interface";

    char buffer[16] = {};
    HostAddress from;
    EXPECT_EQ(receiver.recvfrom(buffer, sizeof buffer, &from, nullptr), 5);
    EXPECT_STREQ(buffer, "hello");
    EXPECT_TRUE(from == loopback) << from.toString();

    EXPECT_TRUE(receiver.dropMulticastMembership(group, loopback));
    EXPECT_FALSE(receiver.dropMulticastMembership(group, loopback)) << "it has left already";
    EXPECT_EQ(errno, EADDRNOTAVAIL);
}

TEST(UdpSocketMulticast, joinsAnIPv6GroupOnce)
{
    if (!hasIPv6Loopback())
        GTEST_SKIP() << "this machine has no ::1";
    const HostAddress groupIPv6("ff02::4711");
    UdpSocket socket(Socket::IPv6);
    if (!socket.addMulticastMembership(groupIPv6, HostAddress::AnyIPv6))
        GTEST_SKIP() << "this machine has no interface for IPv6 multicasts";
    EXPECT_FALSE(socket.addMulticastMembership(groupIPv6, HostAddress::AnyIPv6));
    EXPECT_TRUE(socket.dropMulticastMembership(groupIPv6, HostAddress::AnyIPv6));
}
