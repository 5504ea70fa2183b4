// The option rows of Socket: what each setter and getter hands to the platform, and what happens when it is refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/Socket.h>
#include <kxPAL/TcpServer.h>
#include <netinet/tcp.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "Capture.h"
#include "FatalTest.h"
#include "InterposeSockets.h"
#include "Loopback.h"
#include "OptionCalls.h"

using interpose::failsWith;
using Murn::HostAddress;
using Murn::Socket;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr const char* source = "src/network/Socket_BSD.cpp";

const HostAddress groupIPv4("239.1.2.3");
const HostAddress groupIPv6("ff02::123");
const HostAddress localIPv4("10.1.2.3");
const HostAddress localIPv6("2001:db8::1");

using FakeSocket = Fabricated<Socket>;

Bytes addressBytes(const HostAddress& address)
{
    Bytes bytes(16);
    std::size_t length = bytes.size();
    EXPECT_TRUE(address.toBytes(bytes.data(), length));
    bytes.resize(length);
    return bytes;
}

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// One row of the options: an operation, the family of the socket, and what the platform is to get.
struct Setter {
    std::string name;
    Socket::Family family;
    std::function<void(Socket&)> set;
    OptionCall call;
};

struct Getter {
    std::string name;
    Socket::Family family;
    std::function<std::string(const Socket&)> get;  // the value as text
    OptionCall call;                                // with the value that the platform finds in the room
    Bytes answer;
    std::string value;
    std::string unanswered;  // the value when the platform writes nothing
};

template <typename Row>
std::string rowName(const ::testing::TestParamInfo<Row>& info)
{
    return info.param.name;
}

void PrintTo(const Setter& row, std::ostream* os)
{
    *os << row.name;
}

void PrintTo(const Getter& row, std::ostream* os)
{
    *os << row.name;
}

constexpr auto IPv4 = Socket::IPv4;
constexpr auto IPv6 = Socket::IPv6;

std::vector<Setter> fatalSetters()
{
    return {
        {"broadcastOn", IPv4, [](Socket& s) { s.setSocketBroadcast(true); }, {SOL_SOCKET, SO_BROADCAST, bytesOf(1)}},
        {"broadcastOff", IPv6, [](Socket& s) { s.setSocketBroadcast(false); }, {SOL_SOCKET, SO_BROADCAST, bytesOf(0)}},
        {"broadcastOnWithoutFamily",
         noFamily,
         [](Socket& s) { s.setSocketBroadcast(true); },
         {SOL_SOCKET, SO_BROADCAST, bytesOf(1)}},
        {"reuseAddrOn", IPv4, [](Socket& s) { s.setSocketReuseAddr(true); }, {SOL_SOCKET, SO_REUSEADDR, bytesOf(1)}},
        {"reuseAddrOff", IPv6, [](Socket& s) { s.setSocketReuseAddr(false); }, {SOL_SOCKET, SO_REUSEADDR, bytesOf(0)}},
        {"sendBufferSize", IPv4, [](Socket& s) { s.setSendBufferSize(1000); }, {SOL_SOCKET, SO_SNDBUF, bytesOf(500)}},
        {"sendBufferSizeBelowZero",
         IPv4,
         [](Socket& s) { s.setSendBufferSize(-3); },
         {SOL_SOCKET, SO_SNDBUF, bytesOf(-2)}},
        {"receiveBufferSize",
         IPv6,
         [](Socket& s) { s.setReceiveBufferSize(1001); },
         {SOL_SOCKET, SO_RCVBUF, bytesOf(500)}},
        {"receiveBufferSizeBelowZero",
         IPv4,
         [](Socket& s) { s.setReceiveBufferSize(-3); },
         {SOL_SOCKET, SO_RCVBUF, bytesOf(-2)}},
        {"outputInterfaceIPv4",
         IPv4,
         [](Socket& s) { s.setMulticastOutputInterface(localIPv4); },
         {IPPROTO_IP, 32, addressBytes(localIPv4)}},
        {"outputInterfaceIPv6",
         IPv6,
         [](Socket& s) { s.setMulticastOutputInterface(localIPv6); },
         {IPPROTO_IPV6, 17, addressBytes(localIPv6)}},
        {"ttlIPv4", IPv4, [](Socket& s) { s.setMulticastTTL(0x0102); }, {IPPROTO_IP, 33, bytesOf(short{0x0102})}},
        {"ttlIPv6", IPv6, [](Socket& s) { s.setMulticastTTL(-2); }, {IPPROTO_IPV6, 18, bytesOf(short{-2})}},
        {"loopOnIPv4", IPv4, [](Socket& s) { s.setMulticastLoop(true); }, {IPPROTO_IP, 34, Bytes{1}}},
        {"loopOffIPv4", IPv4, [](Socket& s) { s.setMulticastLoop(false); }, {IPPROTO_IP, 34, Bytes{0}}},
        {"loopOnIPv6", IPv6, [](Socket& s) { s.setMulticastLoop(true); }, {IPPROTO_IPV6, 19, Bytes{1}}},
        {"loopOffIPv6", IPv6, [](Socket& s) { s.setMulticastLoop(false); }, {IPPROTO_IPV6, 19, Bytes{0}}},
    };
}

std::vector<Setter> memberships()
{
    const Bytes anyInterface(4, 0);
    return {
        {"addIPv4",
         IPv4,
         [](Socket& s) { EXPECT_TRUE(s.addMulticastMembership(groupIPv4, localIPv4)); },
         {IPPROTO_IP, 35, addressBytes(groupIPv4) + addressBytes(localIPv4)}},
        {"addIPv6",
         IPv6,
         [](Socket& s) { EXPECT_TRUE(s.addMulticastMembership(groupIPv6, localIPv6)); },
         {IPPROTO_IPV6, 20, addressBytes(groupIPv6) + anyInterface}},
        {"dropIPv4",
         IPv4,
         [](Socket& s) { EXPECT_TRUE(s.dropMulticastMembership(groupIPv4, localIPv4)); },
         {IPPROTO_IP, 36, addressBytes(groupIPv4) + addressBytes(localIPv4)}},
        {"dropIPv6",
         IPv6,
         [](Socket& s) { EXPECT_TRUE(s.dropMulticastMembership(groupIPv6, localIPv6)); },
         {IPPROTO_IPV6, 21, addressBytes(groupIPv6) + anyInterface}},
    };
}

std::string text(bool value)
{
    return value ? "true" : "false";
}

std::vector<Getter> getters()
{
    const auto broadcast = [](const Socket& s) { return text(s.socketBroadcast()); };
    const auto reuse = [](const Socket& s) { return text(s.socketReuseAddr()); };
    const auto sendBuffer = [](const Socket& s) { return std::to_string(s.getSendBufferSize()); };
    const auto receiveBuffer = [](const Socket& s) { return std::to_string(s.getReceiveBufferSize()); };
    const auto ttl = [](const Socket& s) { return std::to_string(s.multicastTTL()); };
    const auto loop = [](const Socket& s) { return text(s.multicastLoop()); };
    const auto output = [](const Socket& s) { return s.multicastOutputInterface().toString(); };
    const Bytes zero = bytesOf(0);
    const Bytes ones{0xff, 0xff};
    return {
        {"broadcastOn", IPv4, broadcast, {SOL_SOCKET, SO_BROADCAST, zero}, bytesOf(1), "true", "false"},
        {"broadcastAnyBit", noFamily, broadcast, {SOL_SOCKET, SO_BROADCAST, zero}, bytesOf(0x10000), "true", "false"},
        {"broadcastOff", IPv6, broadcast, {SOL_SOCKET, SO_BROADCAST, zero}, bytesOf(0), "false", "false"},
        {"reuseAddrOn", IPv4, reuse, {SOL_SOCKET, SO_REUSEADDR, zero}, bytesOf(1), "true", "false"},
        {"reuseAddrOff", IPv6, reuse, {SOL_SOCKET, SO_REUSEADDR, zero}, bytesOf(0), "false", "false"},
        {"sendBufferSize", IPv4, sendBuffer, {SOL_SOCKET, SO_SNDBUF, zero}, bytesOf(131072), "131072", "0"},
        {"receiveBufferSize", IPv6, receiveBuffer, {SOL_SOCKET, SO_RCVBUF, zero}, bytesOf(131073), "131073", "0"},
        {"ttlIPv4InOneByte",
         IPv4,
         ttl,
         {IPPROTO_IP, 33, ones},
         Bytes{5},
         std::to_string(short(0xff05 - 0x10000)),
         "-1"},
        {"ttlIPv4InTwoBytes", IPv4, ttl, {IPPROTO_IP, 33, ones}, bytesOf(short{0x0102}), "258", "-1"},
        {"ttlIPv6", IPv6, ttl, {IPPROTO_IPV6, 18, ones}, bytesOf(short{64}), "64", "-1"},
        {"loopOnIPv4", IPv4, loop, {IPPROTO_IP, 34, Bytes{0}}, Bytes{1}, "true", "false"},
        {"loopOffIPv4", IPv4, loop, {IPPROTO_IP, 34, Bytes{0}}, Bytes{0}, "false", "false"},
        {"loopOnIPv6", IPv6, loop, {IPPROTO_IPV6, 19, Bytes{0}}, Bytes{1}, "true", "false"},
        {"outputInterfaceIPv4", IPv4, output, {IPPROTO_IP, 32, zero}, addressBytes(localIPv4), "10.1.2.3", "0.0.0.0"},
        {"outputInterfaceIPv6",
         IPv6,
         output,
         {IPPROTO_IPV6, 17, Bytes(16, 0)},
         addressBytes(localIPv6),
         "2001:db8::1",
         "::"},
    };
}

class SocketSetter : public ::testing::TestWithParam<Setter> {};
class SocketMembership : public ::testing::TestWithParam<Setter> {};
class SocketGetter : public ::testing::TestWithParam<Getter> {};

INSTANTIATE_TEST_SUITE_P(Rows, SocketSetter, ::testing::ValuesIn(fatalSetters()), rowName<Setter>);
INSTANTIATE_TEST_SUITE_P(Rows, SocketMembership, ::testing::ValuesIn(memberships()), rowName<Setter>);
INSTANTIATE_TEST_SUITE_P(Rows, SocketGetter, ::testing::ValuesIn(getters()), rowName<Getter>);

// What Socket::Error() prints for an error.
std::string errorLine(int error)
{
    return std::string("socket Error :") + std::strerror(error) + "\n";
}

}  // namespace

TEST_P(SocketSetter, handsItsRowToThePlatform)
{
    OptionCalls calls;
    FakeSocket socket(GetParam().family);
    printedBy([&] { GetParam().set(socket); });
    EXPECT_THAT(calls.set(), ElementsAre(GetParam().call));
}

TEST_P(SocketSetter, endsTheProcessWhenThePlatformRefuses)
{
    OptionCalls calls;
    Interposed refusing(interpose::setsockopt, failsWith(ENOPROTOOPT));
    FakeSocket socket(GetParam().family);
    EXPECT_FATAL_AFTER(GetParam().set(socket), errorLine(ENOPROTOOPT), "!Error()", source);
}

TEST_P(SocketSetter, passesAFailureWithoutAnErrorNumber)
{
    OptionCalls calls;
    int refused = 0;
    Interposed refusing(interpose::setsockopt, [&](auto, auto...) {
        ++refused;
        errno = 0;
        return -1;
    });
    FakeSocket socket(GetParam().family);
    const std::string printed = printedBy([&] { GetParam().set(socket); });
    EXPECT_EQ(refused, 1);
    EXPECT_EQ(printed.find("socket Error"), std::string::npos);
}

TEST_P(SocketMembership, handsItsRowToThePlatform)
{
    OptionCalls calls;
    FakeSocket socket(GetParam().family);
    GetParam().set(socket);
    EXPECT_THAT(calls.set(), ElementsAre(GetParam().call));
}

TEST_P(SocketGetter, readsItsRow)
{
    OptionCalls calls(GetParam().answer);
    const FakeSocket socket(GetParam().family);
    EXPECT_EQ(GetParam().get(socket), GetParam().value);
    EXPECT_THAT(calls.got(), ElementsAre(GetParam().call)) << "the room holds the value to start with";
}

TEST_P(SocketGetter, keepsItsStartingValueWhenThePlatformWritesNothing)
{
    OptionCalls calls;
    const FakeSocket socket(GetParam().family);
    EXPECT_EQ(GetParam().get(socket), GetParam().unanswered);
}

TEST_P(SocketGetter, endsTheProcessWhenThePlatformRefuses)
{
    Interposed refusing(interpose::getsockopt, failsWith(ENOTSOCK));
    const FakeSocket socket(GetParam().family);
    EXPECT_FATAL_AFTER(GetParam().get(socket), errorLine(ENOTSOCK), "!Error()", source);
}

TEST_P(SocketGetter, passesAFailureWithoutAnErrorNumber)
{
    Interposed refusing(interpose::getsockopt, failsWith(0));
    const FakeSocket socket(GetParam().family);
    std::string value;
    EXPECT_EQ(printedBy([&] { value = GetParam().get(socket); }), "");
    EXPECT_EQ(value, GetParam().unanswered);
}

TEST(SocketMembership, returnsARefusalAndKeepsItsError)
{
    Interposed refusing(interpose::setsockopt, failsWith(ENODEV));
    EXPECT_EQ(printedBy([] {
                  FakeSocket ipv4(IPv4);
                  EXPECT_FALSE(ipv4.addMulticastMembership(groupIPv4, localIPv4));
                  EXPECT_FALSE(ipv4.dropMulticastMembership(groupIPv4, localIPv4));
                  FakeSocket ipv6(IPv6);
                  EXPECT_FALSE(ipv6.addMulticastMembership(groupIPv6, localIPv6));
                  EXPECT_FALSE(ipv6.dropMulticastMembership(groupIPv6, localIPv6));
                  EXPECT_EQ(errno, ENODEV);
              }),
              "");
}

TEST(SocketMembership, makesNoCallWithoutAFamily)
{
    OptionCalls calls;
    FakeSocket socket(noFamily);
    EXPECT_FALSE(socket.addMulticastMembership(groupIPv4, localIPv4));
    EXPECT_FALSE(socket.dropMulticastMembership(groupIPv4, localIPv4));
    EXPECT_THAT(calls.set(), IsEmpty());
}

TEST(SocketMembership, endsTheProcessWhenItJoinsWithAddressesOfAnotherKind)
{
    const char* const group4 = "groupAddress.type() == HostAddress::IPv4";
    const char* const local4 = "localAddress.type() == HostAddress::IPv4";
    const char* const group6 = "groupAddress.type() == HostAddress::IPv6";
    const char* const local6 = "localAddress.type() == HostAddress::IPv6";
    EXPECT_FATAL(FakeSocket(IPv4).addMulticastMembership(groupIPv6, localIPv4), group4, source);
    EXPECT_FATAL(FakeSocket(IPv4).addMulticastMembership(groupIPv6, localIPv6), group4, source);
    EXPECT_FATAL(FakeSocket(IPv4).addMulticastMembership(groupIPv4, localIPv6), local4, source);
    EXPECT_FATAL(FakeSocket(IPv6).addMulticastMembership(groupIPv4, localIPv6), group6, source);
    EXPECT_FATAL(FakeSocket(IPv6).addMulticastMembership(groupIPv4, localIPv4), group6, source);
    EXPECT_FATAL(FakeSocket(IPv6).addMulticastMembership(groupIPv6, localIPv4), local6, source);
}

TEST(SocketMembership, endsTheProcessWhenItLeavesWithAddressesOfAnotherKind)
{
    const char* const both4 = "groupAddress.type() == HostAddress::IPv4 && localAddress.type() == HostAddress::IPv4";
    const char* const both6 = "groupAddress.type() == HostAddress::IPv6 && localAddress.type() == HostAddress::IPv6";
    EXPECT_FATAL(FakeSocket(IPv4).dropMulticastMembership(groupIPv6, localIPv4), both4, source);
    EXPECT_FATAL(FakeSocket(IPv4).dropMulticastMembership(groupIPv4, localIPv6), both4, source);
    EXPECT_FATAL(FakeSocket(IPv6).dropMulticastMembership(groupIPv4, localIPv6), both6, source);
    EXPECT_FATAL(FakeSocket(IPv6).dropMulticastMembership(groupIPv6, localIPv4), both6, source);
}

TEST(SocketOptions, endTheProcessForAnOutputInterfaceOfAnotherKind)
{
    EXPECT_FATAL(FakeSocket(IPv4).setMulticastOutputInterface(localIPv6), "localAddress.type() == HostAddress::IPv4",
                 source);
    EXPECT_FATAL(FakeSocket(IPv6).setMulticastOutputInterface(localIPv4), "localAddress.type() == HostAddress::IPv6",
                 source);
}

TEST(SocketOptions, endTheProcessForMulticastWithoutAFamily)
{
    FakeSocket socket(noFamily);
    EXPECT_FATAL(socket.setMulticastOutputInterface(localIPv4), "0", source);
    EXPECT_FATAL(socket.setMulticastTTL(1), "0", source);
    EXPECT_FATAL(socket.multicastTTL(), "0", source);
    EXPECT_FATAL(socket.setMulticastLoop(true), "0", source);
    EXPECT_FATAL(socket.multicastLoop(), "0", source);
}

TEST(SocketOptions, haveNoOutputInterfaceWithoutAFamily)
{
    OptionCalls calls;
    EXPECT_THAT(bytesOf(FakeSocket(noFamily).multicastOutputInterface()), Each(0));
    EXPECT_THAT(calls.got(), IsEmpty());
}

TEST(SocketOptions, leaveTheFamilyOfAnOutputInterfaceUnset)
{
    {
        OptionCalls calls(addressBytes(localIPv4));
        const HostAddress output = FakeSocket(IPv4).multicastOutputInterface();
        EXPECT_EQ(output.type(), HostAddress::IPv4);
        EXPECT_EQ(bytesOf(output), bytesOf(HostAddress::IPv4) + Bytes(4, 0) + addressBytes(localIPv4) + Bytes(20, 0));
    }
    OptionCalls calls(addressBytes(localIPv6));
    const HostAddress output = FakeSocket(IPv6).multicastOutputInterface();
    EXPECT_EQ(output.type(), HostAddress::IPv6);
    EXPECT_EQ(bytesOf(output), bytesOf(HostAddress::IPv6) + Bytes(8, 0) + addressBytes(localIPv6) + Bytes(4, 0));
}

namespace {

// A buffer of 16384 bytes that becomes one of 131072 once it is set; notes the calls.
struct FakeBuffer {
    int size = 16384;
    std::vector<std::string> calls;
    Interposed<int(int, int, int, void*, socklen_t*)> getting{interpose::getsockopt,
                                                              [this](auto, int, int, int, void* value, socklen_t*) {
                                                                  calls.emplace_back("get");
                                                                  std::memcpy(value, &size, sizeof size);
                                                                  return 0;
                                                              }};
    Interposed<int(int, int, int, const void*, socklen_t)> setting{
        interpose::setsockopt, [this](auto, int, int, int, const void* value, socklen_t) {
            int asked = 0;
            std::memcpy(&asked, value, sizeof asked);
            calls.push_back("set " + std::to_string(asked));
            size = 131072;
            return 0;
        }};
};

}  // namespace

TEST(SocketOptions, printTheSendBufferAskedForBeforeAndAfter)
{
    FakeBuffer buffer;
    EXPECT_EQ(printedBy([] { FakeSocket(IPv4).setSendBufferSize(65536); }),
              "%%Set Send buffer 65536, 16384 => 131072\n");
    EXPECT_THAT(buffer.calls, ElementsAre("get", "set 32768", "get"));
}

TEST(SocketOptions, printTheReceiveBufferAskedForBeforeAndAfter)
{
    FakeBuffer buffer;
    EXPECT_EQ(printedBy([] { FakeSocket(IPv4).setReceiveBufferSize(65536); }),
              "%%Set Receive buffer 65536, 16384 => 131072\n");
    EXPECT_THAT(buffer.calls, ElementsAre("get", "set 32768", "get"));
}

namespace {

// Stands in for the flags of a descriptor.
struct FakeFlags {
    int flags;
    int setResult = 0;
    std::vector<std::string> calls{};
    Interposed<int(int, int, void*)> replaced{interpose::fcntl, [this](auto, int fd, int command, void* argument) {
                                                  EXPECT_EQ(fd, fakeFd);
                                                  if (command == F_GETFL) {
                                                      calls.emplace_back("get");
                                                      return flags;
                                                  }
                                                  EXPECT_EQ(command, F_SETFL);
                                                  flags = static_cast<int>(reinterpret_cast<long>(argument));
                                                  calls.push_back("set");
                                                  return setResult;
                                              }};
};

}  // namespace

TEST(SocketNonBlocking, changesThatFlagAlone)
{
    FakeFlags fake{O_RDWR | O_APPEND};
    FakeSocket socket(IPv4);
    EXPECT_EQ(socket.setSocketNonBlocking(true), 0);
    EXPECT_EQ(fake.flags, O_RDWR | O_APPEND | O_NONBLOCK);
    EXPECT_TRUE(socket.socketNonBlocking());
    EXPECT_EQ(socket.setSocketNonBlocking(false), 0);
    EXPECT_EQ(fake.flags, O_RDWR | O_APPEND);
    EXPECT_FALSE(socket.socketNonBlocking());
    EXPECT_THAT(fake.calls, ElementsAre("get", "set", "get", "get", "set", "get"));
}

TEST(SocketNonBlocking, takesUnreadableFlagsForNone)
{
    FakeFlags fake{-1};
    FakeSocket socket(IPv4);
    EXPECT_FALSE(socket.socketNonBlocking());
    socket.setSocketNonBlocking(true);
    EXPECT_EQ(fake.flags, O_NONBLOCK);
    fake.flags = -1;
    socket.setSocketNonBlocking(false);
    EXPECT_EQ(fake.flags, 0);
}

TEST(SocketNonBlocking, returnsWhatThePlatformSays)
{
    FakeFlags fake{0, -1};
    EXPECT_EQ(FakeSocket(IPv4).setSocketNonBlocking(true), -1);
    fake.setResult = 5;
    EXPECT_EQ(FakeSocket(IPv4).setSocketNonBlocking(true), 5);
}

TEST(SocketQueue, asksThePlatformForTheBytesThatAreQueued)
{
    Interposed asking(interpose::ioctl, [](auto, int fd, unsigned long request, void* argument) {
        EXPECT_EQ(fd, fakeFd);
        EXPECT_EQ(request, 0x5411U);
        const int queued = 1234;
        std::memcpy(argument, &queued, sizeof queued);
        return 0;
    });
    EXPECT_EQ(FakeSocket(IPv4).getSendBufferEnRoute(), 1234);
}

TEST(SocketQueue, endsTheProcessWhenThePlatformDoesNotTell)
{
    Interposed asking(interpose::ioctl, failsWith(EBADF));
    EXPECT_FATAL(FakeSocket(IPv4).getSendBufferEnRoute(), "!error", source);
}

class RealSocketOptions : public EachFamily {};
INSTANTIATE_TEST_SUITE_P(Families, RealSocketOptions, ::testing::Values(IPv4, IPv6), familyName);

TEST_P(RealSocketOptions, areReadBackAsTheyWereSet)
{
    Socket socket(family(), Socket::Datagram);
    for (const bool on : {true, false}) {
        socket.setSocketBroadcast(on);
        EXPECT_EQ(socket.socketBroadcast(), on);
        socket.setSocketReuseAddr(on);
        EXPECT_EQ(socket.socketReuseAddr(), on);
        EXPECT_NE(socket.setSocketNonBlocking(on), -1);
        EXPECT_EQ(socket.socketNonBlocking(), on);
    }
}

TEST_P(RealSocketOptions, giveTheBufferThatWasAskedFor)
{
    Socket socket(family(), Socket::Stream);
    const int sendBefore = socket.getSendBufferSize();
    const int receiveBefore = socket.getReceiveBufferSize();
    EXPECT_EQ(printedBy([&] {
                  socket.setSendBufferSize(65536);
                  socket.setReceiveBufferSize(65536);
              }),
              "%%Set Send buffer 65536, " + std::to_string(sendBefore) + " => 65536\n" +
                  "%%Set Receive buffer 65536, " + std::to_string(receiveBefore) + " => 65536\n");
}

TEST_P(RealSocketOptions, countNothingThatIsQueuedOnANewSocket)
{
    EXPECT_EQ(Socket(family(), Socket::Datagram).getSendBufferEnRoute(), 0);
}

TEST(RealSocketOptions, endTheProcessWhereTheQueueOfAServerIsAskedFor)
{
    const auto ask = [] {
        Murn::TcpServer server(IPv4);
        server.listen();
        server.getSendBufferEnRoute();
    };
    EXPECT_FATAL(ask(), "!error", source);
}

TEST(RealSocketOptions, setTheHopsOfIPv4AndReadThemInTheLowByte)
{
    Socket socket(IPv4, Socket::Datagram);
    socket.setMulticastTTL(7);
    EXPECT_EQ(socket.multicastTTL() & 0xff, 7);
}

TEST(RealSocketOptions, setTheLoopOfIPv4)
{
    Socket socket(IPv4, Socket::Datagram);
    for (const bool on : {false, true}) {
        socket.setMulticastLoop(on);
        EXPECT_EQ(socket.multicastLoop(), on);
    }
}

TEST(RealSocketOptions, setTheOutputInterfaceOfIPv4)
{
    Socket socket(IPv4, Socket::Datagram);
    EXPECT_EQ(socket.multicastOutputInterface().toString(), "0.0.0.0");
    socket.setMulticastOutputInterface(HostAddress::LoopbackIPv4);
    EXPECT_EQ(socket.multicastOutputInterface().toString(), "127.0.0.1");
}

TEST(RealSocketOptions, endTheProcessForHopsAndLoopOfIPv6OnLinux)
{
    if (!hasIPv6Loopback())
        GTEST_SKIP() << "this machine has no ::1";
    Socket socket(IPv6, Socket::Datagram);
    EXPECT_FATAL_AFTER(socket.setMulticastTTL(1), errorLine(EINVAL), "!Error()", source);
    EXPECT_FATAL_AFTER(socket.setMulticastLoop(true), errorLine(EINVAL), "!Error()", source);
}

TEST(RealSocketOptions, endTheProcessOnADescriptorThatIsNoSocket)
{
    Socket file(::open("/dev/null", O_RDONLY));
    EXPECT_FATAL_AFTER(file.setSocketReuseAddr(true), errorLine(ENOTSOCK), "!Error()", source);
}
