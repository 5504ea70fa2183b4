// The multicast socket and the lists of interfaces: each of their calls to the system that fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/NetworkInterface.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "Capture.h"
#include "FatalTest.h"
#include "Fault.h"
#include "FreshProcess.h"
#include "LogCapture.h"
#include "MadeUpInterfaces.h"
#include "MulticastPlatform.h"

namespace {

using Murn::MulticastUdpSocket;
using Murn::NetworkInterface;
using Murn::NetworkInterfaceInfo;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using P = MulticastPlatform;

constexpr const char* source = "src/network/Socket_BSD.cpp";

class MulticastFaultTest : public ::testing::Test {
protected:
    P _platform;
    OpenMulticast _socket;
    LogCapture _log;
    char _buffer[16] = {};
};

FAULT_TEST(MulticastFaultTest, worksWithoutAPipe, pipe2, "`MulticastUdpSocket()`, `implInit`",
           "logs `Cant create pipe!` and goes on without one: `wakeUp` does nothing, `close` still ends a receive",
           EMFILE, ENFILE, ENOMEM)
{
    _socket.implClose();
    _platform.takeCalls();
    _socket.implInit();
    EXPECT_THAT(_socket._wakeupPipe, ElementsAre(-1, -1));
    EXPECT_THAT(warnings(_log, "MultiCastUdp"), ElementsAre("Cant create pipe!"));
    EXPECT_EQ(printedBy([this] { EXPECT_TRUE(_socket.wakeUp()); }), "");
    EXPECT_THAT(_platform.takeCalls(), IsEmpty());
    _platform.ready = {fd0};
    _platform.datagrams[fd0] = "abc";
    EXPECT_EQ(_socket.recvfrom(_buffer, sizeof _buffer, nullptr, nullptr), 3);
}

FAULT_TEST(MulticastFaultTest, hasWokenAlready, write, "`MulticastUdpSocket::wakeUp`",
           "returns true: a full pipe has woken whoever waits", EAGAIN, EINTR)
{
    bool woken = false;
    printedBy([&] { woken = _socket.wakeUp(); });
    EXPECT_TRUE(woken);
}

FAULT_TEST(MulticastFaultTest, waitsInVain, select, "`MulticastUdpSocket::recvfrom`",
           "logs ` select failed`, returns 0 and leaves `errno`", EINTR, EBADF, ENOMEM)
{
    EXPECT_EQ(_socket.recvfrom(_buffer, sizeof _buffer, nullptr, nullptr), 0);
    EXPECT_EQ(errno, error());
    EXPECT_THAT(warnings(_log, "UdpMulticast"), ElementsAre(" select failed"));
}

FAULT_TEST(MulticastFaultTest, receivesNothing, recvfrom, "`MulticastUdpSocket::recvfrom`",
           "returns -1 and leaves `errno`; nothing is logged", EAGAIN, EINTR, ENOMEM, ENETDOWN)
{
    _platform.ready = {fd0};
    EXPECT_EQ(_socket.recvfrom(_buffer, sizeof _buffer, nullptr, nullptr), -1);
    EXPECT_EQ(errno, error());
    EXPECT_THAT(_log.texts(), IsEmpty());
}

FAULT_TEST(MulticastFaultTest, bindsNothing, bind, "`registerOnMulticastGroup`",
           "logs `bind failed` for each interface and returns 5; no group is registered", EADDRINUSE, EACCES,
           EADDRNOTAVAIL, ENOMEM)
{
    EXPECT_EQ(registerOn(_socket, {groupA}), 5);
    EXPECT_THAT(warnings(_log, "Multicast"), ElementsAre("bind failed", "bind failed"));
    EXPECT_THAT(_socket.groups(), IsEmpty());
    EXPECT_EQ(_socket.sendto("x", 1, 5000), 3);
}

FAULT_TEST(MulticastFaultTest, joinsNothing, setsockopt, "`registerOnMulticastGroup`, where a group is joined",
           "logs `addMulticastMembership failed` for each interface and returns -1; no group is registered", ENODEV,
           EADDRINUSE, EADDRNOTAVAIL, ENOBUFS, ENOMEM, EINVAL)
{
    EXPECT_EQ(registerOn(_socket, {groupA}), -1);
    EXPECT_THAT(warnings(_log, "Multicast"),
                ElementsAre("addMulticastMembership failed", "addMulticastMembership failed"));
    EXPECT_THAT(_socket.groups(), IsEmpty());
}

FAULT_TEST_BY_HAND(MulticastFaultTest, joinsWhereItCan, setsockopt,
                   "`registerOnMulticastGroup`, where one interface of several is refused",
                   "logs `addMulticastMembership failed` and returns 0: the others carry the group", ENODEV,
                   EADDRNOTAVAIL, ENOBUFS)
{
    _platform.refuse(P::join(fd0, groupA, local0), error());
    EXPECT_EQ(registerOn(_socket, {groupA}), 0);
    EXPECT_THAT(warnings(_log, "Multicast"), ElementsAre("addMulticastMembership failed"));
    EXPECT_THAT(_socket.groups(), ElementsAre(groupA));
}

FAULT_TEST_BY_HAND(MulticastFaultTest, endsWhereAnInterfaceVanishesInBetween, setsockopt,
                   "`registerOnMulticastGroup`, after a group was joined",
                   "ends the process through the check `!Error()`", ENODEV, EADDRNOTAVAIL)
{
    _platform.refuse(P::sendThrough(fd1, local1), error());
    EXPECT_FATAL_AFTER(registerOn(_socket, {groupA}), std::string("socket Error :") + std::strerror(error()) + "\n",
                       "!Error()", source);
}

FAULT_TEST_BY_HAND(MulticastFaultTest, endsHalfMade, setsockopt, "`MulticastUdpSocket()`",
                   "ends the process through the check `!Error()`", ENOBUFS, ENOMEM)
{
    // The two sockets after those of the fixture are 904 and 905, whose pipe comes after them.
    _platform.refuse(P::option(905, IPPROTO_IP, IP_MULTICAST_LOOP, Bytes{1}), error());
    EXPECT_FATAL_AFTER(MulticastUdpSocket(), std::string("socket Error :") + std::strerror(error()) + "\n", "!Error()",
                       source);
}

FAULT_TEST(MulticastFaultTest, leavesNothing, setsockopt, "`registerOnMulticastGroup`, where groups are left",
           "logs `dropMulticastMembership failed` and goes on", EADDRNOTAVAIL, ENODEV, EINVAL)
{
    {
        const Interposed joining(interpose::setsockopt, [](auto, auto...) { return 0; });
        ASSERT_EQ(registerOn(_socket, {groupA}), 0);
    }
    EXPECT_EQ(registerOn(_socket, {}), 0);
    EXPECT_THAT(warnings(_log, "Multicast"),
                ElementsAre("dropMulticastMembership failed", "dropMulticastMembership failed"));
}

FAULT_TEST(MulticastFaultTest, sendsNothing, sendto, "`MulticastUdpSocket::sendto`",
           "logs `sendto failed ...` for each interface and group, returns -1", ENETUNREACH, ENETDOWN, ENODEV, ENOBUFS,
           EMSGSIZE, EPERM, EAGAIN, EINTR)
{
    ASSERT_EQ(registerOn(_socket, {groupA}), 0);
    EXPECT_EQ(_socket.sendto("abc", 3, 5000), -1);
    EXPECT_THAT(warnings(_log, "Multicast"),
                ElementsAre("sendto failed asked:3, got -1. I/f=0\n", "sendto failed asked:3, got -1. I/f=1\n"));
}

FAULT_TEST_BY_HAND(MulticastFaultTest, sendsWhereItCan, sendto,
                   "`MulticastUdpSocket::sendto`, where one interface of several is refused",
                   "logs `sendto failed ...` and returns 0: the datagram left through the others", ENETUNREACH,
                   ENETDOWN, ENODEV)
{
    ASSERT_EQ(registerOn(_socket, {groupA}), 0);
    _platform.refuse(P::send(fd0, "abc", groupA + ":5000"), error());
    EXPECT_EQ(_socket.sendto("abc", 3, 5000), 0);
    EXPECT_THAT(warnings(_log, "Multicast"), ElementsAre("sendto failed asked:3, got -1. I/f=0\n"));
}

FAULT_TEST(MulticastFaultTest, isClosedAllTheSame, close, "`MulticastUdpSocket::close`, the destructor",
           "returns true; all sockets are closed", EIO, EINTR)
{
    bool closed = false;
    printedBy([&] { closed = _socket.close(); });
    EXPECT_TRUE(closed);
    EXPECT_EQ(_socket.pair(0).socket.localPort(), 0);
    EXPECT_EQ(_socket.recvfrom(_buffer, sizeof _buffer, nullptr, nullptr), 0);
}

// The lists are made once a process.
class InterfacesFaultTest : public ::testing::Test {
protected:
    // The names in both lists.
    static std::vector<std::string> addressed() { return names(NetworkInterface::getInterfaces); }
    static std::vector<std::string> physical() { return names(NetworkInterface::getAllPhysicalInterfaces); }

    static void addTwo(MadeUpInterfaces& machine)
    {
        machine.add("eth0", "10.1.0.1", Bytes{2, 0, 0, 0, 0, 1});
        machine.add("eth1", "10.2.0.1", Bytes{2, 0, 0, 0, 0, 2});
    }

    // Fails with this error for one request about one interface.
    static auto refusing(unsigned long refused, const std::string& name, int error)
    {
        return [=](auto, int, unsigned long request, void* argument) {
            if (request == SIOCGIFCONF) {
                auto* const query = static_cast<ifconf*>(argument);
                std::memset(query->ifc_buf, 0, 2 * sizeof(ifreq));
                std::strcpy(query->ifc_req[0].ifr_name, "eth0");
                std::strcpy(query->ifc_req[1].ifr_name, "eth1");
                query->ifc_len = 2 * sizeof(ifreq);
            } else {
                auto* const query = static_cast<ifreq*>(argument);
                if (request == refused && query->ifr_name == name) {
                    errno = error;
                    return -1;
                }
                query->ifr_addr.sa_family = AF_INET;
            }
            return 0;
        };
    }

private:
    static std::vector<std::string> names(bool (*list)(std::vector<NetworkInterfaceInfo>&))
    {
        std::vector<NetworkInterfaceInfo> infos;
        EXPECT_TRUE(list(infos));
        std::vector<std::string> result;
        for (const NetworkInterfaceInfo& info : infos)
            result.push_back(info.name);
        return result;
    }
};

FAULT_TEST(InterfacesFaultTest, listsNothingWithoutADescriptor, socket, "`NetworkInterface()`",
           "logs `ioctl(SIOCGIFCONF)`; both lists stay as they were", EMFILE, ENFILE, ENOBUFS, ENOMEM)
{
    EXPECT_IN_FRESH_PROCESS({
        const LogCapture log;
        const NetworkInterface enumeration;
        EXPECT_THAT(log.texts(), ElementsAre("ioctl(SIOCGIFCONF)\n"));
        EXPECT_THAT(addressed(), IsEmpty());
        EXPECT_THAT(physical(), IsEmpty());
    });
}

FAULT_TEST(InterfacesFaultTest, listsNoAddressesWithoutAConfiguration, ioctl,
           "`NetworkInterface()`, `SIOCGIFCONF` and the others",
           "logs `ioctl(SIOCGIFCONF)`; both lists stay as they were, and a descriptor stays open", EFAULT, ENOMEM,
           EPERM)
{
    EXPECT_IN_FRESH_PROCESS({
        const LogCapture log;
        interpose::CallLog closed;
        {
            const Interposed closing(interpose::close, closed.noting("close"));
            // getifaddrs() closes what it opens by a way of its own.
            const NetworkInterface enumeration;
        }
        EXPECT_THAT(closed.calls(), IsEmpty());
        EXPECT_THAT(log.texts(), ElementsAre("ioctl(SIOCGIFCONF)\n"));
        EXPECT_THAT(addressed(), IsEmpty());
        EXPECT_THAT(physical(), IsEmpty());
    });
}

FAULT_TEST_BY_HAND(InterfacesFaultTest, leavesAnInterfaceWithoutAnAddressOut, ioctl,
                   "`NetworkInterface()`, `SIOCGIFADDR`", "logs `Cant get info about ...`; the interface is not listed",
                   EADDRNOTAVAIL, ENODEV)
{
    EXPECT_IN_FRESH_PROCESS({
        const LogCapture log;
        const Interposed asking(interpose::ioctl, refusing(SIOCGIFADDR, "eth0", error()));
        const NetworkInterface enumeration;
        EXPECT_THAT(log.texts(), ElementsAre("Cant get info about eth0\n"));
        EXPECT_THAT(addressed(), ElementsAre("eth1"));
    });
}

FAULT_TEST_BY_HAND(InterfacesFaultTest, listsAnInterfaceWithoutItsHardware, ioctl,
                   "`NetworkInterface()`, `SIOCGIFHWADDR`",
                   "logs `Cant get mac!` and lists the interface with zeros; not in the physical list", ENODEV, EPERM)
{
    EXPECT_IN_FRESH_PROCESS({
        const LogCapture log;
        const Interposed asking(interpose::ioctl, refusing(SIOCGIFHWADDR, "eth1", error()));
        const NetworkInterface enumeration;
        EXPECT_THAT(log.texts(), ElementsAre("Cant get mac!\n"));
        EXPECT_THAT(addressed(), ElementsAre("eth0", "eth1"));
        EXPECT_THAT(physical(), ::testing::Not(::testing::Contains("eth1")));
    });
}

FAULT_TEST(InterfacesFaultTest, listsNoHardwareWithoutTheLinks, getifaddrs, "`NetworkInterface()`",
           "prints `Cannot enumerate i/s`; the physical list stays as it was", EMFILE, ENFILE, ENOBUFS, ENOMEM, EACCES)
{
    EXPECT_IN_FRESH_PROCESS({
        MadeUpInterfaces machine;
        addTwo(machine);
        machine.hasLinks = false;
        EXPECT_EQ(printedBy([] { const NetworkInterface enumeration; }), "Cannot enumerate i/s\n");
        EXPECT_THAT(addressed(), ElementsAre("eth0", "eth1"));
        EXPECT_THAT(physical(), IsEmpty());
    });
}

FAULT_TEST_BY_HAND(InterfacesFaultTest, listsAllTheSame, close, "`NetworkInterface()`", "goes on", EIO, EINTR)
{
    EXPECT_IN_FRESH_PROCESS({
        const Interposed closing(interpose::close, interpose::failsWith(error()));
        const Interposed asking(interpose::ioctl, refusing(0, "", 0));
        const NetworkInterface enumeration;
        EXPECT_THAT(addressed(), ElementsAre("eth0", "eth1"));
    });
}

}  // namespace
