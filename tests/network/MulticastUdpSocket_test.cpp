// The multicast socket on a machine with two interfaces that are made up: what it asks of the platform, in which order,
// and what it makes of the answers. Registering and sending have a file of their own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/MulticastUdpSocket.h>
#include <kxPAL/NetworkInterface.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <list>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "Capture.h"
#include "FatalTest.h"
#include "FreshProcess.h"
#include "InterposeSockets.h"
#include "LogCapture.h"
#include "MadeUpInterfaces.h"
#include "MulticastPlatform.h"
#include "VirtualTable.h"

using Murn::HostAddress;
using Murn::MulticastUdpSocket;
using Murn::NetworkInterfaceInfo;
using Murn::UdpSocket;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

using P = MulticastPlatform;

constexpr const char* source = "src/network/MulticastUdpSocket_Unix.cpp";
constexpr const char* bsdSource = "src/network/Socket_BSD.cpp";

}  // namespace

TEST(MulticastUdpSocketLayout, hasAVirtualDestructorAndNoOtherSlot)
{
    static_assert(std::has_virtual_destructor<MulticastUdpSocket>::value, "deleted through its base as well");
    EXPECT_FALSE(isVirtual(&MulticastUdpSocket::getNetworkInterfaces));
    EXPECT_FALSE(isVirtual(&MulticastUdpSocket::registerOnMulticastGroup));
    EXPECT_FALSE(isVirtual(&MulticastUdpSocket::sendto));
    EXPECT_FALSE(isVirtual(&MulticastUdpSocket::recvfrom));
    EXPECT_FALSE(isVirtual(&MulticastUdpSocket::wakeUp));
    EXPECT_FALSE(isVirtual(&MulticastUdpSocket::close));
    EXPECT_FALSE(isVirtual(&MulticastUdpSocket::implInit));
    EXPECT_FALSE(isVirtual(&MulticastUdpSocket::implClose));
}

TEST(MulticastUdpSocketLayout, hasItsFieldsInOrder)
{
    static_assert(
        !std::is_copy_constructible<MulticastUdpSocket>::value && !std::is_copy_assignable<MulticastUdpSocket>::value,
        "sockets have one owner");
    using Pairs = std::vector<OpenMulticast::SocketHostPair*>;
    static_assert(std::is_same<decltype(OpenMulticast::_pairs), Pairs>::value, "");
    static_assert(std::is_same<decltype(OpenMulticast::_wakeupPipe), int[2]>::value, "");
    static_assert(std::is_same<decltype(OpenMulticast::_groups), std::list<HostAddress*>>::value, "");

    const P platform;
    OpenMulticast socket;
    const auto* const begin = reinterpret_cast<const char*>(static_cast<const MulticastUdpSocket*>(&socket));
    EXPECT_EQ(reinterpret_cast<const char*>(&socket._pairs) - begin, 8);
    EXPECT_EQ(reinterpret_cast<const char*>(&socket._wakeupPipe) - begin, 32);
    EXPECT_EQ(reinterpret_cast<const char*>(&socket._groups) - begin, 40);
    EXPECT_EQ(sizeof(MulticastUdpSocket), 40 + sizeof(std::list<HostAddress*>));
}

TEST(MulticastUdpSocketLayout, hasThePairsFieldsInOrder)
{
    using Pair = OpenMulticast::SocketHostPair;
    static_assert(std::is_same<decltype(Pair::socket), UdpSocket>::value, "");
    static_assert(std::is_same<decltype(Pair::interface), NetworkInterfaceInfo>::value, "");
    static_assert(std::is_same<decltype(Pair::bound), bool>::value, "");

    const P platform;
    OpenMulticast socket;
    const Pair& pair = socket.pair(0);
    const auto* const begin = reinterpret_cast<const char*>(&pair);
    EXPECT_EQ(reinterpret_cast<const char*>(&pair.socket) - begin, 0);
    EXPECT_EQ(reinterpret_cast<const char*>(&pair.interface) - begin, 16);
    EXPECT_EQ(reinterpret_cast<const char*>(&pair.bound) - begin, 16 + int{sizeof(NetworkInterfaceInfo)});
}

TEST(MulticastUdpSocket, makesASocketForEachInterfaceAndThenThePipe)
{
    P platform;
    const OpenMulticast socket;

    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(P::socket(fd0), P::option(fd0, SOL_SOCKET, SO_REUSEADDR, bytesOf(1)),
                            P::option(fd0, IPPROTO_IP, IP_MULTICAST_LOOP, Bytes{1}), P::socket(fd1),
                            P::option(fd1, SOL_SOCKET, SO_REUSEADDR, bytesOf(1)),
                            P::option(fd1, IPPROTO_IP, IP_MULTICAST_LOOP, Bytes{1}), P::pipe(pipeRead, pipeWrite)));
    EXPECT_THAT(socket._wakeupPipe, ElementsAre(pipeRead, pipeWrite));
    EXPECT_THAT(socket._groups, IsEmpty());
}

TEST(MulticastUdpSocket, copiesTheInterfacesInTheirOrder)
{
    const P platform;
    OpenMulticast socket;
    std::vector<NetworkInterfaceInfo> interfaces;
    Murn::NetworkInterface::getInterfaces(interfaces);

    ASSERT_THAT(socket._pairs, SizeIs(2));
    for (std::size_t index = 0; index < 2; ++index) {
        const auto& pair = socket.pair(index);
        EXPECT_EQ(pair.interface.name, index == 0 ? "eth0" : "eth1");
        EXPECT_EQ(bytesOf(pair.interface.mac), bytesOf(interfaces[index].mac));
        EXPECT_EQ(pair.interface.reserved, interfaces[index].reserved);
        EXPECT_TRUE(pair.interface.address == interfaces[index].address);
        EXPECT_EQ(pair.interface.extraAddress.type(), HostAddress::Unspecified);
        EXPECT_FALSE(pair.bound);
    }
}

TEST(MulticastUdpSocket, listsTheInterfacesThatSocketsCanBindTo)
{
    const P platform;
    MulticastUdpSocket socket;
    std::vector<NetworkInterfaceInfo> interfaces(7);

    EXPECT_TRUE(socket.getNetworkInterfaces(interfaces));
    ASSERT_THAT(interfaces, SizeIs(2));
    EXPECT_EQ(interfaces[0].address.toString(), local0);
    EXPECT_EQ(interfaces[1].address.toString(), local1);
}

TEST(MulticastUdpSocket, asksThePlatformForInterfacesOnceAProcess)
{
    const auto countQueries = [] {
        MadeUpInterfaces machine;
        P::addInterfaces(machine);
        Interposed unset(interpose::setsockopt, [](auto, auto...) { return 0; });
        Interposed noPipe(interpose::pipe2, interpose::failsWith(EMFILE));
        const LogCapture log;
        const OpenMulticast first;
        const OpenMulticast second;
        std::vector<NetworkInterfaceInfo> interfaces;
        MulticastUdpSocket().getNetworkInterfaces(interfaces);

        EXPECT_EQ(first._pairs.size(), 2U);
        EXPECT_EQ(second._pairs.size(), 2U);
        EXPECT_EQ(interfaces.size(), 2U);
        const P::Calls calls = machine.calls();
        EXPECT_EQ(std::count(calls.begin(), calls.end(), "getifaddrs"), 1);
        EXPECT_EQ(calls.at(0), "socket(2, 2, 0) = 4711");
        EXPECT_EQ(calls.at(1), "ioctl(4711, 0x8912, 16384 bytes)");
    };
    EXPECT_IN_FRESH_PROCESS(countQueries());
}

TEST(MulticastUdpSocket, hasNothingToDoOnAMachineWithLoopbackOnly)
{
    const auto useInVain = [] {
        MadeUpInterfaces machine;
        machine.add("lo", "127.0.0.1", Bytes(6, 0));
        interpose::CallLog selects;
        Interposed waiting(interpose::select, selects.noting("select"));
        OpenMulticast socket;
        char buffer[4];

        EXPECT_TRUE(socket._pairs.empty());
        EXPECT_EQ(registerOn(socket, {groupA}), 4);
        EXPECT_EQ(socket.sendto("x", 1, 5000), 4);
        EXPECT_EQ(socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr), 0);
        EXPECT_EQ(socket._groups.size(), 0U);
        EXPECT_EQ(printedBy([&] { EXPECT_TRUE(socket.close()); }), "Wakeup\n");
        EXPECT_EQ(socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr), 0);
        EXPECT_TRUE(selects.calls().empty());
    };
    EXPECT_IN_FRESH_PROCESS(useInVain());
}

TEST(MulticastUdpSocket, endsTheProcessWhenASocketCannotBeMadeOrSetUp)
{
    const auto construct = [](const std::string& refused) {
        P platform;
        platform.refuse(refused, ENOBUFS);
        const MulticastUdpSocket socket;
    };
    EXPECT_FATAL(construct(P::socket(fd1)), "_socket != -1", bsdSource);
    EXPECT_FATAL_AFTER(construct(P::option(fd0, SOL_SOCKET, SO_REUSEADDR, bytesOf(1))),
                       "socket Error :No buffer space available\n", "!Error()", bsdSource);
    EXPECT_FATAL_AFTER(construct(P::option(fd1, IPPROTO_IP, IP_MULTICAST_LOOP, Bytes{1})),
                       "socket Error :No buffer space available\n", "!Error()", bsdSource);
}

TEST(MulticastUdpSocketReceive, takesOneDatagramFromTheFirstSocketThatHasOne)
{
    P platform;
    OpenMulticast socket;
    platform.datagrams = {{fd0, "first"}, {fd1, "second"}};
    platform.ready = {fd0, fd1};
    platform.takeCalls();
    char buffer[16] = {};
    HostAddress from;
    unsigned short port = 0;

    EXPECT_EQ(socket.recvfrom(buffer, sizeof buffer, &from, &port), 5);
    EXPECT_STREQ(buffer, "first");
    EXPECT_EQ(from.toString(), "10.9.0.1");
    EXPECT_EQ(port, 4000);
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::select({fd0, fd1, pipeRead}), P::receive(fd0, 16)));

    platform.ready = {fd1};
    EXPECT_EQ(socket.recvfrom(buffer, 8, nullptr, nullptr), 6);
    EXPECT_STREQ(buffer, "second");
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::select({fd0, fd1, pipeRead}), P::receive(fd1, 8)));
}

TEST(MulticastUdpSocketReceive, returnsWhatTheSocketReturns)
{
    P platform;
    OpenMulticast socket;
    platform.ready = {fd0};
    char buffer[16];
    EXPECT_EQ(socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr), 0) << "an empty datagram";

    platform.refuse(P::receive(fd0, sizeof buffer), ECONNREFUSED);
    EXPECT_EQ(socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
}

TEST(MulticastUdpSocketReceive, returnsNothingWhenTheWaitFails)
{
    P platform;
    OpenMulticast socket;
    platform.refuse(P::select({fd0, fd1, pipeRead}), EINTR);
    platform.ready = {fd0};
    platform.takeCalls();
    const LogCapture log;
    char buffer[16];

    EXPECT_EQ(socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr), 0);
    EXPECT_THAT(warnings(log, "UdpMulticast"), ElementsAre(" select failed"));
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::select({fd0, fd1, pipeRead})));
}

TEST(MulticastUdpSocketReceive, returnsNothingWhenTheWaitEndsForNothing)
{
    P platform;
    OpenMulticast socket;
    platform.takeCalls();
    const LogCapture log;
    char buffer[16];

    EXPECT_EQ(socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr), 0);
    EXPECT_THAT(warnings(log, "UdpMulticast"), ElementsAre(" no data received in recvfrom"));
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::select({fd0, fd1, pipeRead})));
}

TEST(MulticastUdpSocketReceive, isWokenBeforeItLooksForData)
{
    P platform;
    OpenMulticast socket;
    platform.ready = {fd0, pipeRead};
    platform.takeCalls();
    char buffer[16];

    for (int time = 0; time < 3; ++time) {
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr), -1); }),
                  "Abort\n");
        EXPECT_THAT(platform.takeCalls(), ElementsAre(P::select({fd0, fd1, pipeRead}))) << "the byte stays unread";
    }
}

TEST(MulticastUdpSocketReceive, returnsAtOnceWhenASocketIsClosed)
{
    for (const std::size_t index : {std::size_t{0}, std::size_t{1}}) {
        P platform;
        OpenMulticast socket;
        socket.pair(index).socket.close();
        platform.takeCalls();
        const LogCapture log;
        char buffer[16];

        EXPECT_EQ(socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr), 0);
        EXPECT_THAT(platform.takeCalls(), IsEmpty());
        EXPECT_THAT(log.messages(), IsEmpty());
    }
}

TEST(MulticastUdpSocketReceive, doesNotReadFromASocketThatIsClosedWhileItWaits)
{
    P platform;
    OpenMulticast socket;
    // All are ready, the pipe excepted, and one is gone.
    Interposed closing(interpose::select, [&](auto, int, fd_set* readable, auto...) {
        EXPECT_TRUE(socket.pair(0).socket.close());
        FD_CLR(pipeRead, readable);
        return 2;
    });
    char buffer[16];
    platform.datagrams = {{fd1, "second"}};
    EXPECT_EQ(socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr), 6);
}

TEST(MulticastUdpSocketReceive, endsTheProcessForADescriptorThatNoSetHolds)
{
    const auto receiveBeyond = [](int descriptor) {
        const P platform;
        Interposed large(interpose::socket, [descriptor](auto, auto...) { return descriptor; });
        OpenMulticast socket;
        char buffer[4];
        const LogCapture log;
        socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr);
        std::exit(EXIT_SUCCESS);
    };
    EXPECT_FATAL(receiveBeyond(1024), "descriptor < FD_SETSIZE", source);
    EXPECT_EXIT(receiveBeyond(1023), ::testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST(MulticastUdpSocketWakeUp, printsALineAndWritesAByte)
{
    P platform;
    OpenMulticast socket;
    platform.takeCalls();

    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(socket.wakeUp()); }), "Wakeup\n");
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::write(pipeWrite, Bytes{3})));

    platform.refuse(P::write(pipeWrite, Bytes{3}), EAGAIN);
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(socket.wakeUp()); }), "Wakeup\n") << "a full pipe is no failure";
}

TEST(MulticastUdpSocketWakeUp, printsBeforeItWakes)
{
    const P platform;
    OpenMulticast socket;
    const StdoutCapture capture;
    std::string printed;
    const Interposed writing(interpose::write, [&](auto, int, const void*, std::size_t length) {
        printed = capture.text();
        return static_cast<ssize_t>(length);
    });

    EXPECT_TRUE(socket.wakeUp());
    EXPECT_EQ(printed, "Wakeup\n");
}

TEST(MulticastUdpSocketWakeUp, doesNothingWithoutAPipe)
{
    P platform;
    platform.refuse(P::pipe(pipeRead, pipeWrite), EMFILE);
    const LogCapture log;
    OpenMulticast socket;
    EXPECT_THAT(warnings(log, "MultiCastUdp"), ElementsAre("Cant create pipe!"));
    EXPECT_THAT(socket._wakeupPipe, ElementsAre(-1, -1));
    platform.takeCalls();

    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(socket.wakeUp()); }), "");
    EXPECT_THAT(platform.takeCalls(), IsEmpty());

    // Receiving works without it.
    platform.ready = {fd1};
    platform.datagrams = {{fd1, "data"}};
    char buffer[16];
    EXPECT_EQ(socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr), 4);
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::select({fd0, fd1}), P::receive(fd1, 16)));
}

TEST(MulticastUdpSocketClose, wakesAndClosesEverySocketInOrder)
{
    P platform;
    OpenMulticast socket;
    registerOn(socket, {groupA});
    platform.takeCalls();
    const LogCapture log;

    // The groups are not left, and the pipe stays open.
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(socket.close()); }), "Wakeup\n");
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::write(pipeWrite, Bytes{3}), P::shutdown(fd0), P::close(fd0),
                                                  P::shutdown(fd1), P::close(fd1)));
    EXPECT_THAT(socket._wakeupPipe, ElementsAre(pipeRead, pipeWrite));
    EXPECT_THAT(socket.groups(), ElementsAre(groupA));
    EXPECT_THAT(log.messages(), IsEmpty());

    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(socket.close()); }), "Wakeup\n");
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::write(pipeWrite, Bytes{3})));
    char buffer[4];
    EXPECT_EQ(socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr), 0);
}

TEST(MulticastUdpSocketPipe, isMadeAndClosedByItsOwnOperations)
{
    P platform;
    OpenMulticast socket;
    platform.takeCalls();

    socket.implClose();
    EXPECT_THAT(socket._wakeupPipe, ElementsAre(-1, -1));
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::close(pipeRead), P::close(pipeWrite)));
    socket.implClose();
    EXPECT_THAT(platform.takeCalls(), IsEmpty());

    socket.implInit();
    EXPECT_THAT(socket._wakeupPipe, ElementsAre(904, 905));
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::pipe(904, 905)));

    platform.refuse(P::pipe(906, 907), EMFILE);
    const LogCapture log;
    socket.implInit();
    EXPECT_THAT(socket._wakeupPipe, ElementsAre(-1, -1)) << "whatever was there before";
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::pipe(906, 907))) << "which is not closed";
    EXPECT_THAT(warnings(log, "MultiCastUdp"), ElementsAre("Cant create pipe!"));
}

TEST(MulticastUdpSocketEnd, closesBoundSocketsOnceAndLeavesNoGroup)
{
    P platform;
    {
        OpenMulticast socket;
        registerOn(socket, {groupA});
        platform.takeCalls();
    }
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::shutdown(fd0), P::close(fd0), P::shutdown(fd1), P::close(fd1),
                                                  P::close(pipeRead), P::close(pipeWrite)));
}

TEST(MulticastUdpSocketEnd, closesSocketsThatWereNeverBoundTwice)
{
    P platform;
    {
        const OpenMulticast socket;
        platform.takeCalls();
    }
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(P::shutdown(fd0), P::close(fd0), P::shutdown(fd0), P::close(fd0), P::shutdown(fd1),
                            P::close(fd1), P::shutdown(fd1), P::close(fd1), P::close(pipeRead), P::close(pipeWrite)));
}

TEST(MulticastUdpSocketEnd, leavesTheGroupsOfUnboundSocketsBeforeItClosesThemTwice)
{
    P platform;
    const LogCapture log;
    {
        OpenMulticast socket;
        platform.refuse(P::bind(fd0, "0.0.0.0:5000"), EADDRINUSE);
        registerOn(socket, {groupA, groupB}, true);
        platform.takeCalls();
    }
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(P::leave(fd0, groupA, local0), P::leave(fd0, groupB, local0), P::shutdown(fd0),
                            P::close(fd0), P::shutdown(fd0), P::close(fd0), P::shutdown(fd1), P::close(fd1),
                            P::close(pipeRead), P::close(pipeWrite)));
    EXPECT_THAT(warnings(log, "Multicast"), ElementsAre("bind failed"));
}

TEST(MulticastUdpSocketEnd, warnsOfAGroupThatAnUnboundSocketCannotLeave)
{
    P platform;
    auto socket = std::make_unique<OpenMulticast>();
    registerOn(*socket, {groupA, groupB});
    socket->pair(1).bound = false;
    platform.refuse(P::leave(fd1, groupA, local1), EADDRNOTAVAIL);
    platform.takeCalls();
    const LogCapture log;

    socket.reset();
    EXPECT_THAT(warnings(log, "Multicast"), ElementsAre("dropMulticastMembership failed"));
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(P::shutdown(fd0), P::close(fd0), P::leave(fd1, groupA, local1),
                            P::leave(fd1, groupB, local1), P::shutdown(fd1), P::close(fd1), P::shutdown(fd1),
                            P::close(fd1), P::close(pipeRead), P::close(pipeWrite)));
}

TEST(MulticastUdpSocketEnd, leavesNoGroupWhereTheInterfaceHasNoIPv4Address)
{
    P platform;
    auto socket = std::make_unique<OpenMulticast>();
    registerOn(*socket, {groupA});
    socket->pair(0).bound = false;
    socket->address(0) = HostAddress(std::string("2001:db8::1"));
    platform.takeCalls();

    socket.reset();
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(P::shutdown(fd0), P::close(fd0), P::shutdown(fd0), P::close(fd0), P::shutdown(fd1),
                            P::close(fd1), P::close(pipeRead), P::close(pipeWrite)));
}

TEST(MulticastUdpSocketEnd, closesNothingAgainAfterAClose)
{
    P platform;
    auto socket = std::make_unique<OpenMulticast>();
    socket->close();
    platform.takeCalls();

    socket.reset();
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::close(pipeRead), P::close(pipeWrite)));
}

TEST(MulticastUdpSocketEnd, warnsOfEachGroupThatAClosedSocketCannotLeave)
{
    P platform;
    auto socket = std::make_unique<OpenMulticast>();
    registerOn(*socket, {groupA});
    socket->pair(0).bound = false;
    socket->close();
    platform.refuse(P::leave(-1, groupA, local0), EBADF);
    platform.takeCalls();

    const LogCapture log;
    socket.reset();
    EXPECT_THAT(warnings(log, "Multicast"), ElementsAre("dropMulticastMembership failed"));
}

TEST(MulticastUdpSocketEnd, hasNoPipeToCloseWithoutOne)
{
    P platform;
    platform.refuse(P::pipe(pipeRead, pipeWrite), EMFILE);
    const LogCapture log;
    auto socket = std::make_unique<OpenMulticast>();
    registerOn(*socket, {groupA});
    platform.takeCalls();

    socket.reset();
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::shutdown(fd0), P::close(fd0), P::shutdown(fd1), P::close(fd1)));
}

TEST(MulticastUdpSocketEnd, runsThroughTheVirtualDestructor)
{
    struct Derived : MulticastUdpSocket {
        explicit Derived(bool& flag) : destroyed(flag) {}
        ~Derived() override { destroyed = true; }
        bool& destroyed;
    };
    const P platform;
    bool destroyed = false;
    const MulticastUdpSocket* const socket = new Derived(destroyed);
    delete socket;
    EXPECT_TRUE(destroyed);
}
