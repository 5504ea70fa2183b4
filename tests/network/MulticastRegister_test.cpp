// The multicast socket on a machine with two interfaces that are made up: registering groups and sending to them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/MulticastUdpSocket.h>

#include <cerrno>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "FatalTest.h"
#include "InterposeSockets.h"
#include "LiveMemory.h"
#include "LogCapture.h"
#include "MulticastPlatform.h"

using Murn::HostAddress;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

using P = MulticastPlatform;
using Calls = P::Calls;

constexpr const char* bsdSource = "src/network/Socket_BSD.cpp";

Calls binding(int fd)
{
    return {P::bind(fd, "0.0.0.0:5000")};
}

Calls joining(int fd, const std::string& group, const std::string& local)
{
    return {P::join(fd, group, local), P::sendThrough(fd, local)};
}

Calls concatenated(const std::vector<Calls>& parts)
{
    Calls all;
    for (const Calls& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

}  // namespace

TEST(MulticastUdpSocketRegister, bindsAndJoinsEachGroupOnEachInterface)
{
    P platform;
    OpenMulticast socket;
    const LogCapture log;
    platform.takeCalls();

    EXPECT_EQ(registerOn(socket, {groupA, groupB}), 0);
    EXPECT_THAT(
        platform.takeCalls(),
        ElementsAreArray(concatenated({binding(fd0), joining(fd0, groupA, local0), joining(fd0, groupB, local0),
                                       binding(fd1), joining(fd1, groupA, local1), joining(fd1, groupB, local1)})));
    EXPECT_TRUE(socket.pair(0).bound && socket.pair(1).bound);
    EXPECT_THAT(socket.groups(), ElementsAre(groupA, groupB));
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(MulticastUdpSocketRegister, keepsCopiesOfTheGroups)
{
    P platform;
    OpenMulticast socket;
    auto own = std::make_unique<HostAddress>(groupA);
    std::list<HostAddress*> list{own.get()};
    EXPECT_EQ(socket.registerOnMulticastGroup(list, 5000, false), 0);
    EXPECT_NE(socket._groups.front(), own.get());

    *own = HostAddress(groupB);
    own.reset();
    list.clear();
    platform.takeCalls();
    EXPECT_EQ(socket.sendto("hi", 2, 5000), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(P::send(fd0, "hi", groupA + ":5000"), P::send(fd1, "hi", groupA + ":5000")));
}

TEST(MulticastUdpSocketRegister, leavesTheOldGroupsOnAllInterfacesBeforeItJoinsTheNewOnes)
{
    P platform;
    OpenMulticast socket;
    EXPECT_EQ(registerOn(socket, {groupA, groupB}), 0);
    platform.takeCalls();

    // Bound sockets stay as they are, whatever the port.
    EXPECT_EQ(socket.registerOnMulticastGroup(GroupList{groupB}, 6000, false), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAreArray(concatenated({{P::leave(fd0, groupA, local0), P::leave(fd0, groupB, local0),
                                                P::leave(fd1, groupA, local1), P::leave(fd1, groupB, local1)},
                                               joining(fd0, groupB, local0),
                                               joining(fd1, groupB, local1)})));
    EXPECT_THAT(socket.groups(), ElementsAre(groupB));
}

TEST(MulticastUdpSocketRegister, goesOnWhenAnOldGroupCannotBeLeft)
{
    P platform;
    OpenMulticast socket;
    EXPECT_EQ(registerOn(socket, {groupA, groupB}), 0);
    platform.refuse(P::leave(fd0, groupA, local0), EADDRNOTAVAIL);
    platform.refuse(P::leave(fd1, groupB, local1), EADDRNOTAVAIL);
    platform.takeCalls();
    const LogCapture log;

    EXPECT_EQ(registerOn(socket, {}), 0);
    EXPECT_THAT(warnings(log, "Multicast"),
                ElementsAre("dropMulticastMembership failed", "dropMulticastMembership failed"));
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::leave(fd0, groupA, local0), P::leave(fd0, groupB, local0),
                                                  P::leave(fd1, groupA, local1), P::leave(fd1, groupB, local1)));
    EXPECT_THAT(socket.groups(), IsEmpty());
}

TEST(MulticastUdpSocketRegister, succeedsWhenOneInterfaceTakesAllGroups)
{
    P platform;
    OpenMulticast socket;
    platform.refuse(P::join(fd0, groupA, local0), ENODEV);
    platform.takeCalls();
    const LogCapture log;

    EXPECT_EQ(registerOn(socket, {groupA, groupB}), 0);
    EXPECT_THAT(warnings(log, "Multicast"), ElementsAre("addMulticastMembership failed"));
    // The output interface is chosen after each group that was joined.
    EXPECT_THAT(platform.takeCalls(), ElementsAreArray(concatenated({binding(fd0),
                                                                     {P::join(fd0, groupA, local0)},
                                                                     joining(fd0, groupB, local0),
                                                                     binding(fd1),
                                                                     joining(fd1, groupA, local1),
                                                                     joining(fd1, groupB, local1)})));
    EXPECT_THAT(socket.groups(), ElementsAre(groupA, groupB));
}

TEST(MulticastUdpSocketRegister, failsWithoutGroupsWhenNoInterfaceTakesAll)
{
    P platform;
    OpenMulticast socket;
    EXPECT_EQ(registerOn(socket, {groupA}), 0);
    platform.refuse(P::join(fd0, groupA, local0), ENODEV);
    platform.refuse(P::join(fd1, groupB, local1), ENODEV);
    platform.takeCalls();
    const LogCapture log;

    EXPECT_EQ(registerOn(socket, {groupA, groupB}), -1);
    EXPECT_THAT(warnings(log, "Multicast"),
                ElementsAre("addMulticastMembership failed", "addMulticastMembership failed"));
    // What was joined stays joined: nothing is left after the joins.
    EXPECT_THAT(platform.takeCalls(),
                ElementsAreArray(concatenated({{P::leave(fd0, groupA, local0), P::leave(fd1, groupA, local1)},
                                               {P::join(fd0, groupA, local0)},
                                               joining(fd0, groupB, local0),
                                               joining(fd1, groupA, local1),
                                               {P::join(fd1, groupB, local1)}})));
    EXPECT_THAT(socket.groups(), IsEmpty());
    EXPECT_TRUE(socket.pair(0).bound && socket.pair(1).bound);
    EXPECT_EQ(socket.sendto("x", 1, 5000), 3);
}

TEST(MulticastUdpSocketRegister, skipsAnInterfaceThatCannotBeBound)
{
    P platform;
    OpenMulticast socket;
    platform.refuse(P::bind(fd0, "0.0.0.0:5000"), EADDRINUSE);
    platform.takeCalls();
    const LogCapture log;

    EXPECT_EQ(registerOn(socket, {groupA}), 0);
    EXPECT_THAT(warnings(log, "Multicast"), ElementsAre("bind failed"));
    EXPECT_THAT(platform.takeCalls(),
                ElementsAreArray(concatenated({binding(fd0), binding(fd1), joining(fd1, groupA, local1)})));
    EXPECT_FALSE(socket.pair(0).bound);
    EXPECT_TRUE(socket.pair(1).bound);
}

TEST(MulticastUdpSocketRegister, triesToBindAgainWhatIsNotBound)
{
    P platform;
    OpenMulticast socket;
    platform.refuse(P::bind(fd0, "0.0.0.0:5000"), EADDRINUSE);
    const LogCapture log;
    EXPECT_EQ(registerOn(socket, {groupA}), 0);
    platform.takeCalls();

    EXPECT_EQ(socket.registerOnMulticastGroup(GroupList{groupA}, 6000, false), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAreArray(concatenated(
                    {{P::leave(fd0, groupA, local0), P::leave(fd1, groupA, local1), P::bind(fd0, "0.0.0.0:6000")},
                     joining(fd0, groupA, local0),
                     joining(fd1, groupA, local1)})));
    EXPECT_TRUE(socket.pair(0).bound);
}

TEST(MulticastUdpSocketRegister, joinsUnboundToo)
{
    P platform;
    OpenMulticast socket;
    platform.refuse(P::bind(fd0, "0.0.0.0:5000"), EADDRINUSE);
    platform.takeCalls();
    const LogCapture log;

    EXPECT_EQ(registerOn(socket, {groupA}, true), 0);
    EXPECT_THAT(warnings(log, "Multicast"), ElementsAre("bind failed"));
    EXPECT_THAT(platform.takeCalls(), ElementsAreArray(concatenated({binding(fd0), joining(fd0, groupA, local0),
                                                                     binding(fd1), joining(fd1, groupA, local1)})));
    EXPECT_FALSE(socket.pair(0).bound);
}

TEST(MulticastUdpSocketRegister, warnsBetweenTheCallsThatItIsAbout)
{
    P platform;
    OpenMulticast socket;
    platform.refuse(P::bind(fd0, "0.0.0.0:5000"), EADDRINUSE);
    platform.refuse(P::join(fd0, groupA, local0), ENODEV);
    platform.refuse(P::leave(fd0, groupA, local0), EADDRNOTAVAIL);
    const LogCapture log([&](const LogMessage& message) { platform.note(message.text); });
    platform.takeCalls();

    EXPECT_EQ(registerOn(socket, {groupA, groupB}, true), 0);
    EXPECT_THAT(
        platform.takeCalls(),
        ElementsAreArray(concatenated({binding(fd0),
                                       {"bind failed", P::join(fd0, groupA, local0), "addMulticastMembership failed"},
                                       joining(fd0, groupB, local0),
                                       binding(fd1),
                                       joining(fd1, groupA, local1),
                                       joining(fd1, groupB, local1)})));

    EXPECT_EQ(registerOn(socket, {}), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(P::leave(fd0, groupA, local0), "dropMulticastMembership failed",
                            P::leave(fd0, groupB, local0), P::leave(fd1, groupA, local1), P::leave(fd1, groupB, local1),
                            P::bind(fd0, "0.0.0.0:5000"), "bind failed"));
}

TEST(MulticastUdpSocketRegister, failsWithoutGroupsWhenNoInterfaceIsBound)
{
    for (const bool ignoreBindFailure : {false, true}) {
        P platform;
        OpenMulticast socket;
        platform.refuse(P::bind(fd0, "0.0.0.0:5000"), EADDRINUSE);
        platform.refuse(P::bind(fd1, "0.0.0.0:5000"), EADDRINUSE);
        platform.takeCalls();
        const LogCapture log;

        EXPECT_EQ(registerOn(socket, {groupA}, ignoreBindFailure), 5);
        EXPECT_THAT(warnings(log, "Multicast"), ElementsAre("bind failed", "bind failed"));
        const Calls joins0 = ignoreBindFailure ? joining(fd0, groupA, local0) : Calls{};
        const Calls joins1 = ignoreBindFailure ? joining(fd1, groupA, local1) : Calls{};
        EXPECT_THAT(platform.takeCalls(), ElementsAreArray(concatenated({binding(fd0), joins0, binding(fd1), joins1})));
        EXPECT_THAT(socket.groups(), IsEmpty());
        EXPECT_EQ(socket.sendto("x", 1, 5000), 3);
    }
}

TEST(MulticastUdpSocketRegister, reportsUnboundSocketsRatherThanRefusedGroups)
{
    P platform;
    OpenMulticast socket;
    for (const int fd : {fd0, fd1})
        platform.refuse(P::bind(fd, "0.0.0.0:5000"), EADDRINUSE);
    platform.refuse(P::join(fd0, groupA, local0), ENODEV);
    platform.refuse(P::join(fd1, groupA, local1), ENODEV);
    const LogCapture log;
    EXPECT_EQ(registerOn(socket, {groupA}, true), 5);
}

TEST(MulticastUdpSocketRegister, neverBindsAnInterfaceWithoutAnIPv4Address)
{
    for (const HostAddress& address : {HostAddress(std::string("2001:db8::1")), HostAddress()}) {
        for (const bool ignoreBindFailure : {false, true}) {
            P platform;
            OpenMulticast socket;
            socket.address(0) = address;
            platform.takeCalls();
            const LogCapture log;

            // With an IPv4 group there is nothing to join on it either way.
            EXPECT_EQ(registerOn(socket, {groupA}, ignoreBindFailure), 0);
            EXPECT_THAT(warnings(log, "Multicast"), ElementsAre("bind failed"));
            EXPECT_THAT(platform.takeCalls(),
                        ElementsAreArray(concatenated({binding(fd1), joining(fd1, groupA, local1)})));
            EXPECT_FALSE(socket.pair(0).bound);
        }
    }
}

TEST(MulticastUdpSocketRegister, countsAGroupOfAnotherKindAsNotJoined)
{
    P platform;
    OpenMulticast socket;
    platform.takeCalls();
    const LogCapture log;

    EXPECT_EQ(registerOn(socket, {groupIPv6, groupA}), -1);
    EXPECT_THAT(log.messages(), IsEmpty());
    EXPECT_THAT(platform.takeCalls(), ElementsAreArray(concatenated({binding(fd0), joining(fd0, groupA, local0),
                                                                     binding(fd1), joining(fd1, groupA, local1)})));
    EXPECT_THAT(socket.groups(), IsEmpty());
    EXPECT_EQ(socket.sendto("x", 1, 5000), 3);
    EXPECT_EQ(registerOn(socket, {"no address"}), -1);
}

TEST(MulticastUdpSocketRegister, takesAnEmptyListForSuccess)
{
    P platform;
    OpenMulticast socket;
    platform.takeCalls();
    EXPECT_EQ(registerOn(socket, {}), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAreArray(concatenated({binding(fd0), binding(fd1)})));
    EXPECT_EQ(socket.sendto("x", 1, 5000), 3);
}

TEST(MulticastUdpSocketRegister, endsTheProcessForKindsThatItsSocketsDoNotTake)
{
    constexpr const char* dropCheck =
        "groupAddress.type() == HostAddress::IPv4 && localAddress.type() == HostAddress::IPv4";

    // A group is kept because one interface took it, and cannot be left on another.
    const auto replaceWhereItWasNotJoined = [] {
        const P platform;
        OpenMulticast socket;
        socket.address(1) = HostAddress(std::string("2001:db8::1"));
        registerOn(socket, {groupA});
        registerOn(socket, {groupB});
    };
    EXPECT_FATAL(replaceWhereItWasNotJoined(), dropCheck, bsdSource);

    // An IPv6 group does not get that far by itself: it is tried on an IPv6 address only, and refused there.
    const auto joinIPv6 = [] {
        const P platform;
        OpenMulticast socket;
        socket.address(0) = HostAddress(std::string("2001:db8::1"));
        registerOn(socket, {groupIPv6}, true);
    };
    EXPECT_FATAL(joinIPv6(), "groupAddress.type() == HostAddress::IPv4", bsdSource);

    const auto leaveIPv6 = [] {
        const P platform;
        OpenMulticast socket;
        socket._groups.push_back(new HostAddress(groupIPv6));
        registerOn(socket, {groupA});
    };
    EXPECT_FATAL(leaveIPv6(), dropCheck, bsdSource);
}

TEST(MulticastUdpSocketRegister, endsTheProcessWhenTheOutputInterfaceIsRefused)
{
    const auto chooseInVain = [] {
        P platform;
        OpenMulticast socket;
        platform.refuse(P::sendThrough(fd1, local1), EADDRNOTAVAIL);
        registerOn(socket, {groupA});
    };
    EXPECT_FATAL_AFTER(chooseInVain(), "socket Error :Cannot assign requested address\n", "!Error()", bsdSource);
}

TEST(MulticastUdpSocketSend, sendsToEachGroupOnEachInterface)
{
    P platform;
    OpenMulticast socket;
    registerOn(socket, {groupA, groupB});
    platform.takeCalls();
    const LogCapture log;

    EXPECT_EQ(socket.sendto("hello", 5, 6000), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(P::send(fd0, "hello", groupA + ":6000"), P::send(fd0, "hello", groupB + ":6000"),
                            P::send(fd1, "hello", groupA + ":6000"), P::send(fd1, "hello", groupB + ":6000")));
    EXPECT_EQ(socket.sendto("", 0, 6000), 0);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(MulticastUdpSocketSend, sendsNothingBeforeARegistration)
{
    P platform;
    OpenMulticast socket;
    platform.takeCalls();
    EXPECT_EQ(socket.sendto("x", 1, 5000), 3);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
}

TEST(MulticastUdpSocketSend, succeedsWhenOneInterfaceSendsToAllGroups)
{
    P platform;
    OpenMulticast socket;
    registerOn(socket, {groupA, groupB});
    const std::string data(100, 'x');
    platform.refuse(P::send(fd1, data, groupA + ":5000"), ENETUNREACH);
    platform.takeCalls();
    const LogCapture log;

    EXPECT_EQ(socket.sendto(data.data(), data.size(), 5000), 0);
    EXPECT_THAT(warnings(log, "Multicast"), ElementsAre("sendto failed asked:100, got -1. I/f=1\n"));
    EXPECT_THAT(platform.takeCalls(), SizeIs(4));
}

TEST(MulticastUdpSocketSend, failsWhenNoInterfaceSendsToAllGroups)
{
    P platform;
    OpenMulticast socket;
    registerOn(socket, {groupA, groupB});
    platform.refuse(P::send(fd0, "hello", groupB + ":5000"), ENETUNREACH);
    platform.refuse(P::send(fd1, "hello", groupA + ":5000"), ENETUNREACH);
    const LogCapture log;

    EXPECT_EQ(socket.sendto("hello", 5, 5000), -1);
    EXPECT_THAT(warnings(log, "Multicast"),
                ElementsAre("sendto failed asked:5, got -1. I/f=0\n", "sendto failed asked:5, got -1. I/f=1\n"));
}

TEST(MulticastUdpSocketSend, takesADatagramThatWasCutForAFailure)
{
    P platform;
    OpenMulticast socket;
    registerOn(socket, {groupA});
    platform.sent = 3;
    const LogCapture log;

    EXPECT_EQ(socket.sendto("hello", 5, 5000), -1);
    EXPECT_THAT(warnings(log, "Multicast"),
                ElementsAre("sendto failed asked:5, got 3. I/f=0\n", "sendto failed asked:5, got 3. I/f=1\n"));
}

TEST(MulticastUdpSocketSend, skipsSocketsThatAreNotBound)
{
    P platform;
    OpenMulticast socket;
    platform.refuse(P::bind(fd0, "0.0.0.0:5000"), EADDRINUSE);
    const LogCapture log;
    registerOn(socket, {groupA}, true);
    platform.takeCalls();

    EXPECT_EQ(socket.sendto("hello", 5, 5000), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::send(fd1, "hello", groupA + ":5000")));

    // No sequence of calls leads to groups without a bound socket, but the code is there.
    socket.pair(1).bound = false;
    EXPECT_EQ(socket.sendto("hello", 5, 5000), 5);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
    socket.pair(1).bound = true;
}

TEST(MulticastUdpSocketSend, countsAGroupOfAnotherKindAsNotSent)
{
    P platform;
    OpenMulticast socket;
    registerOn(socket, {groupA});
    socket.address(0) = HostAddress(std::string("2001:db8::1"));
    platform.takeCalls();
    const LogCapture log;

    EXPECT_EQ(socket.sendto("hello", 5, 5000), 0);
    EXPECT_THAT(platform.takeCalls(), ElementsAre(P::send(fd1, "hello", groupA + ":5000")));
    socket.address(1) = HostAddress();
    EXPECT_EQ(socket.sendto("hello", 5, 5000), -1);
    EXPECT_THAT(platform.takeCalls(), IsEmpty());
    EXPECT_THAT(log.messages(), IsEmpty());
}

// The library's copies of the groups

TEST(MulticastGroups, areGivenBackWhenOthersTakeTheirPlaceAndWhenTheSocketGoes)
{
    P platform;
    EXPECT_EQ(livememory::leftBehindBy([&] {
                  OpenMulticast socket;
                  registerOn(socket, {groupA, groupB});
                  registerOn(socket, {groupA});
                  platform.takeCalls();
              }),
              0);
}

TEST(MulticastUdpSocketSend, warnsBeforeItSendsOn)
{
    P platform;
    OpenMulticast socket;
    registerOn(socket, {groupA, groupB});
    platform.refuse(P::send(fd0, "hi", groupA + ":5000"), ENETUNREACH);
    const LogCapture log([&](const LogMessage& message) { platform.note(message.text); });
    platform.takeCalls();

    EXPECT_EQ(socket.sendto("hi", 2, 5000), 0);
    EXPECT_THAT(platform.takeCalls(),
                ElementsAre(P::send(fd0, "hi", groupA + ":5000"), "sendto failed asked:2, got -1. I/f=0\n",
                            P::send(fd0, "hi", groupB + ":5000"), P::send(fd1, "hi", groupA + ":5000"),
                            P::send(fd1, "hi", groupB + ":5000")));
}

TEST(MulticastUdpSocketSend, failsForALengthThatLooksLikeAFailure)
{
    const P platform;
    OpenMulticast socket;
    registerOn(socket, {groupA});
    std::vector<std::size_t> asked;
    const Interposed sending(interpose::sendto, [&](auto, int, const void*, std::size_t length, auto...) {
        asked.push_back(length);
        errno = EMSGSIZE;
        return -1;
    });
    const LogCapture log;

    EXPECT_EQ(socket.sendto("x", SIZE_MAX, 5000), -1);
    EXPECT_THAT(asked, ElementsAre(SIZE_MAX, SIZE_MAX));
    EXPECT_THAT(warnings(log, "Multicast"),
                ElementsAre("sendto failed asked:-1, got -1. I/f=0\n", "sendto failed asked:-1, got -1. I/f=1\n"));
}
