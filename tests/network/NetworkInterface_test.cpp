// The lists of network interfaces, of interfaces that are made up.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/NetworkInterface.h>

#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "Capture.h"
#include "FreshProcess.h"
#include "InterfaceLists.h"
#include "LogCapture.h"
#include "MadeUpInterfaces.h"

using Murn::HostAddress;
using Murn::NetworkInterface;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

namespace {

const Bytes ethernet{2, 0xfc, 0, 0, 0, 1};
constexpr int levelError = 2;  // what Logger::Error() logs at

// The 40 bytes of a query with nothing but a name in it.
Bytes blankQuery(const std::string& name)
{
    Bytes query(name.begin(), name.end());
    query.resize(40, 0);
    return query;
}

}  // namespace

TEST(NetworkInterface, hasNoFields)
{
    static_assert(std::is_empty<NetworkInterface>::value, "all that it knows belongs to the process");
    static_assert(!std::is_polymorphic<NetworkInterface>::value, "it has nothing to override");
}

TEST(NetworkInterface, listsWhatHasAnAddress)
{
    MadeUpInterfaces machine;
    machine.add("eth0", "192.0.2.7", ethernet);

    const InterfaceList added = enumerate().interfaces;

    ASSERT_THAT(added, SizeIs(1));
    EXPECT_EQ(added[0].name, "eth0");
    EXPECT_EQ(macOf(added[0]), (Bytes{2, 0xfc, 0, 0, 0, 1, 0, 0}));
    EXPECT_EQ(added[0].address, HostAddress(std::string("192.0.2.7")));
    EXPECT_EQ(added[0].extraAddress.type(), HostAddress::Unspecified);
}

TEST(NetworkInterface, listsPhysicalOnesWithTheirHardwareAddressOnly)
{
    MadeUpInterfaces machine;
    machine.add("eth0", "192.0.2.7", ethernet);

    const InterfaceList added = enumerate().physical;

    ASSERT_THAT(added, SizeIs(1));
    EXPECT_EQ(added[0].name, "eth0");
    EXPECT_EQ(macOf(added[0]), (Bytes{2, 0xfc, 0, 0, 0, 1, 0, 0}));
    EXPECT_EQ(added[0].address.type(), HostAddress::Unspecified);
    EXPECT_EQ(added[0].extraAddress.type(), HostAddress::Unspecified);
}

TEST(NetworkInterface, asksInThisOrderAndNoMore)
{
    MadeUpInterfaces machine;
    machine.add("lo", "127.0.0.1", Bytes(6, 0));
    machine.add("eth1", "192.0.2.1", ethernet);
    machine.add("eth0", "198.51.100.1", ethernet);
    const LogCapture log;

    enumerate();

    // Of the two sockets the second one is never closed.
    EXPECT_THAT(machine.calls(),
                ElementsAre("socket(2, 2, 0) = 4711", "ioctl(4711, 0x8912, 16384 bytes)", "ioctl(4711, 0x8915, eth1)",
                            "ioctl(4711, 0x8927, eth1)", "ioctl(4711, 0x8915, eth0)", "ioctl(4711, 0x8927, eth0)",
                            "close(4711)", "getifaddrs", "socket(2, 2, 0) = 4712", "freeifaddrs",
                            "ioctl(4712, 0x8927, eth0)", "ioctl(4712, 0x8927, eth1)"));
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(NetworkInterface, asksWithTheNameInAZeroedRequest)
{
    MadeUpInterfaces machine;
    machine.add("eth0", "192.0.2.7", ethernet);

    enumerate();

    EXPECT_THAT(machine.queries().at("0x8915 eth0"), ElementsAre(blankQuery("eth0")));
    // The hardware address is asked for with the answer of the query before, and for the other list anew.
    Bytes answered = blankQuery("eth0");
    const Bytes address = socketAddress("192.0.2.7");
    std::copy(address.begin(), address.end(), answered.begin() + 16);
    EXPECT_THAT(machine.queries().at("0x8927 eth0"), ElementsAre(answered, blankQuery("eth0")));
}

TEST(NetworkInterface, findsNothingOnAMachineWithLoopbackOnly)
{
    MadeUpInterfaces machine;
    machine.add("lo", "127.0.0.1", Bytes(6, 0));

    const Added added = enumerate();

    EXPECT_THAT(added.interfaces, IsEmpty());
    EXPECT_THAT(added.physical, IsEmpty());
}

TEST(NetworkInterface, leavesOutLoopbackByItsWholeNameOnly)
{
    MadeUpInterfaces machine;
    machine.add("lo", "127.0.0.1", Bytes(6, 0));
    machine.add("lo:1", "127.0.0.2", Bytes(6, 0));
    machine.add("lo0", "192.0.2.1", ethernet);
    machine.add("l", "192.0.2.2", ethernet);

    const Added added = enumerate();

    EXPECT_THAT(namesOf(added.interfaces), ElementsAre("lo:1", "lo0", "l"));
    EXPECT_THAT(namesOf(added.physical), ElementsAre("l", "lo0", "lo:1"));
    EXPECT_EQ(added.interfaces[0].address.toString(), "127.0.0.2");
}

TEST(NetworkInterface, keepsThePlatformsOrderOfAddressedOnes)
{
    MadeUpInterfaces machine;
    machine.add("wlan0", "192.0.2.3", ethernet);
    machine.add("eth1", "192.0.2.2", ethernet);
    machine.add("eth0", "192.0.2.1", ethernet);

    EXPECT_THAT(namesOf(enumerate().interfaces), ElementsAre("wlan0", "eth1", "eth0"));
}

TEST(NetworkInterface, sortsPhysicalOnesByName)
{
    MadeUpInterfaces machine;
    for (const char* const name : {"eth1", "eth0", "wlan0"})
        machine.add(name, "192.0.2.1", ethernet);

    EXPECT_THAT(namesOf(enumerate().physical), ElementsAre("eth0", "eth1", "wlan0"));
}

TEST(NetworkInterface, sortsBytesAndPutsTheShorterNameFirst)
{
    MadeUpInterfaces machine;
    for (const char* const name : {"eth10", "eth1", "\xc3\xa9th", "eth0", "eth2", "Eth3"})
        machine.add(name, "192.0.2.1", ethernet);

    EXPECT_THAT(namesOf(enumerate().physical), ElementsAre("Eth3", "eth0", "eth1", "eth10", "eth2", "\xc3\xa9th"));
}

TEST(NetworkInterface, takesEightBytesOfHardwareAddressInOneListAndSixInTheOther)
{
    MadeUpInterfaces machine;
    machine.add("ib0", "192.0.2.1", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10});

    const Added added = enumerate();

    EXPECT_EQ(macOf(added.interfaces.at(0)), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(macOf(added.physical.at(0)), (Bytes{1, 2, 3, 4, 5, 6, 0, 0}));
}

TEST(NetworkInterface, keepsInOneListWhatHasNoHardwareAddress)
{
    MadeUpInterfaces machine;
    machine.add("tun0", "192.0.2.1", {});
    machine.devices["tun0"].hardware.reset();
    machine.add("eth0", "192.0.2.2", ethernet);
    const LogCapture log("NetworkIf");

    const Added added = enumerate();

    EXPECT_THAT(namesOf(added.interfaces), ElementsAre("tun0", "eth0"));
    EXPECT_EQ(macOf(added.interfaces[0]), Bytes(8, 0));
    EXPECT_EQ(added.interfaces[0].address.toString(), "192.0.2.1");
    EXPECT_THAT(namesOf(added.physical), ElementsAre("eth0"));
    ASSERT_THAT(log.texts(), ElementsAre("Cant get mac!\n"));  // silent about the other list
    EXPECT_EQ(log.messages()[0].level, levelError);
}

TEST(NetworkInterface, skipsWhatHasNoAddress)
{
    MadeUpInterfaces machine;
    machine.add("eth0", "192.0.2.1", ethernet);
    machine.devices["eth0"].address.reset();
    machine.add("eth1", "192.0.2.2", ethernet);
    const LogCapture log("NetworkIf");

    const Added added = enumerate();

    EXPECT_THAT(namesOf(added.interfaces), ElementsAre("eth1"));
    EXPECT_THAT(namesOf(added.physical), ElementsAre("eth0", "eth1"));
    ASSERT_THAT(log.texts(), ElementsAre("Cant get info about eth0\n"));
    EXPECT_EQ(log.messages()[0].level, levelError);
    EXPECT_THAT(machine.calls(), Not(Contains("ioctl(4711, 0x8927, eth0)")));
}

TEST(NetworkInterface, skipsWhatHasAnAddressOfAnotherFamily)
{
    MadeUpInterfaces machine;
    machine.add("ax0", "192.0.2.1", ethernet);
    machine.devices["ax0"].address = emptyAddress(AF_AX25);
    machine.add("none0", "192.0.2.1", ethernet);
    machine.devices["none0"].address = emptyAddress(AF_UNSPEC);
    machine.add("eth1", "192.0.2.2", ethernet);
    const LogCapture log("NetworkIf");

    const Added added = enumerate();

    EXPECT_THAT(namesOf(added.interfaces), ElementsAre("eth1"));
    ASSERT_THAT(log.texts(), ElementsAre("unknown family for device ax0\n", "unknown family for device none0\n"));
    EXPECT_EQ(log.messages()[0].level, levelError);
    EXPECT_THAT(machine.calls(), Not(Contains("ioctl(4711, 0x8927, ax0)")));
}

TEST(NetworkInterface, takesAnIPv6AddressWhole)
{
    MadeUpInterfaces machine;
    machine.add("eth0", "2001:db8:1:2:3:4:5:6", {1, 2, 3, 4, 5, 6, 0, 0});

    const InterfaceList added = enumerate().interfaces;

    ASSERT_THAT(added, SizeIs(1));
    EXPECT_EQ(added[0].address, HostAddress(std::string("2001:db8:1:2:3:4:5:6")));
    EXPECT_EQ(macOf(added[0]), (Bytes{1, 2, 3, 4, 5, 6, 0, 0}));
}

TEST(NetworkInterface, takesANameThatFillsItsField)
{
    const std::string name = "sixteen_letters_";
    ASSERT_THAT(name, SizeIs(16));
    MadeUpInterfaces machine;
    machine.add("eth0", "192.0.2.1", ethernet);
    machine.add(name, "192.0.2.2", ethernet);
    machine.add("eth1", "192.0.2.3", ethernet);

    const Added added = enumerate();

    EXPECT_THAT(namesOf(added.interfaces), ElementsAre("eth0", name, "eth1"));
    EXPECT_THAT(machine.queries().at("0x8915 " + name), ElementsAre(blankQuery(name)));
    EXPECT_THAT(namesOf(added.physical), ElementsAre("eth0", "eth1", name));
}

TEST(NetworkInterface, cutsALongerNameOnlyToAskForIt)
{
    MadeUpInterfaces machine;
    machine.links.push_back({"more_than_sixteen_letters"});
    machine.devices["more_than_sixtee"].hardware = ethernet;

    const InterfaceList added = enumerate().physical;

    ASSERT_THAT(namesOf(added), ElementsAre("more_than_sixteen_letters"));
    EXPECT_EQ(macOf(added[0]), (Bytes{2, 0xfc, 0, 0, 0, 1, 0, 0}));
}

TEST(NetworkInterface, takesAsManyAsThePlatformHasRoomFor)
{
    MadeUpInterfaces machine;
    for (int number = 0; number < 409; ++number)
        machine.add("eth" + std::to_string(number), "192.0.2.1", ethernet);

    const Added added = enumerate();

    ASSERT_THAT(added.interfaces, SizeIs(409));
    EXPECT_EQ(added.interfaces.back().name, "eth408");
    EXPECT_THAT(added.physical, SizeIs(409));
}

TEST(NetworkInterface, readsWholeEntriesOnly)
{
    MadeUpInterfaces machine;
    machine.add("eth0", "192.0.2.1", ethernet);
    machine.extraLength = 39;
    const LogCapture log("NetworkIf");

    EXPECT_THAT(namesOf(enumerate().interfaces), ElementsAre("eth0"));
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST(NetworkInterface, readsNoMoreThanThereIsRoomForWhateverThePlatformSays)
{
    for (const int extra : {16384, std::numeric_limits<int>::max() - 40, -41, std::numeric_limits<int>::min()}) {
        MadeUpInterfaces machine;
        machine.add("eth0", "192.0.2.1", ethernet);
        machine.extraLength = extra;
        const LogCapture log("NetworkIf");

        // There is room for 409 entries, of which only the first one has a name.
        EXPECT_EQ(enumerate().interfaces.size(), extra > 0 ? 1U : 0U) << extra;
        EXPECT_EQ(log.texts().size(), extra > 0 ? 408U : 0U) << extra;
    }
}

TEST(NetworkInterface, closesTheSocketWhenThereIsNothingToAskFor)
{
    MadeUpInterfaces machine;
    const LogCapture log;

    const Added added = enumerate();

    EXPECT_THAT(machine.calls(), ElementsAre("socket(2, 2, 0) = 4711", "ioctl(4711, 0x8912, 16384 bytes)",
                                             "close(4711)", "getifaddrs", "socket(2, 2, 0) = 4712", "freeifaddrs"));
    EXPECT_THAT(added.interfaces, IsEmpty());
    EXPECT_THAT(added.physical, IsEmpty());
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(NetworkInterface, leavesTheSocketOpenWhenThereIsNoConfiguration)
{
    MadeUpInterfaces machine;
    machine.add("eth0", "192.0.2.1", ethernet);
    machine.hasConfiguration = false;
    const LogCapture log("NetworkInterfac");

    const Added added = enumerate();

    EXPECT_THAT(machine.calls(), ElementsAre("socket(2, 2, 0) = 4711", "ioctl(4711, 0x8912, 16384 bytes)", "getifaddrs",
                                             "socket(2, 2, 0) = 4712", "freeifaddrs", "ioctl(4712, 0x8927, eth0)"));
    EXPECT_THAT(added.interfaces, IsEmpty());
    EXPECT_THAT(namesOf(added.physical), ElementsAre("eth0"));
    ASSERT_THAT(log.texts(), ElementsAre("ioctl(SIOCGIFCONF)\n"));
    EXPECT_EQ(log.messages()[0].level, levelError);
}

TEST(NetworkInterface, addsNothingWithoutADescriptor)
{
    MadeUpInterfaces machine;
    machine.add("eth0", "192.0.2.1", ethernet);
    machine.hasDescriptors = false;
    const LogCapture log("NetworkInterfac");

    const Added added = enumerate();

    EXPECT_THAT(added.interfaces, IsEmpty());
    EXPECT_THAT(added.physical, IsEmpty());
    EXPECT_THAT(log.texts(), ElementsAre("ioctl(SIOCGIFCONF)\n"));
}

TEST(NetworkInterface, takesLinkLayerEntriesWithStatisticsOnly)
{
    MadeUpInterfaces machine;
    machine.links = {{"noaddr0", std::nullopt},
                     {"ipv4", AF_INET},
                     {"ipv6", AF_INET6},
                     {"nodata0", AF_PACKET, false},
                     {"lo"},
                     {"eth0"}};
    for (const MadeUpInterfaces::Link& link : machine.links)
        machine.devices[link.name].hardware = ethernet;

    EXPECT_THAT(namesOf(enumerate().physical), ElementsAre("eth0"));
}

TEST(NetworkInterface, printsThatItCannotEnumerate)
{
    MadeUpInterfaces machine;
    machine.add("eth0", "192.0.2.1", ethernet);
    machine.hasLinks = false;
    const LogCapture log;

    Added added;
    const std::string printed = printedBy([&] { added = enumerate(); });

    EXPECT_EQ(printed, "Cannot enumerate i/s\n");
    EXPECT_THAT(log.messages(), IsEmpty());
    EXPECT_THAT(namesOf(added.interfaces), ElementsAre("eth0"));
    EXPECT_THAT(added.physical, IsEmpty());
    EXPECT_EQ(machine.calls().back(), "getifaddrs");  // no socket, and nothing to free
}

TEST(NetworkInterface, printsNothingWhenAllGoesWell)
{
    MadeUpInterfaces machine;
    machine.add("eth0", "192.0.2.1", ethernet);

    EXPECT_EQ(printedBy([] { enumerate(); }), "");
}

TEST(NetworkInterface, hasEmptyListsBeforeTheFirstConstruction)
{
    EXPECT_IN_FRESH_PROCESS({
        InterfaceList list(3);
        EXPECT_TRUE(NetworkInterface::getInterfaces(list));
        EXPECT_THAT(list, IsEmpty());
        list.resize(3);
        EXPECT_TRUE(NetworkInterface::getAllPhysicalInterfaces(list));
        EXPECT_THAT(list, IsEmpty());
    });
}

TEST(NetworkInterface, asksNothingBeforeTheFirstConstruction)
{
    EXPECT_IN_FRESH_PROCESS({
        const MadeUpInterfaces machine;
        interfaces();
        physicalInterfaces();
        NetworkInterface::reset();
        EXPECT_THAT(machine.calls(), IsEmpty());
    });
}

TEST(NetworkInterface, enumeratesAtTheFirstConstruction)
{
    EXPECT_IN_FRESH_PROCESS({
        MadeUpInterfaces machine;
        machine.add("eth0", "192.0.2.1", ethernet);
        const NetworkInterface first;
        EXPECT_THAT(namesOf(interfaces()), ElementsAre("eth0"));
        EXPECT_THAT(namesOf(physicalInterfaces()), ElementsAre("eth0"));
    });
}

TEST(NetworkInterface, enumeratesOnce)
{
    MadeUpInterfaces machine;
    machine.add("eth0", "192.0.2.1", ethernet);
    enumerate();
    const std::size_t before = interfaces().size();
    const std::size_t physicalBefore = physicalInterfaces().size();
    const std::vector<std::string> calls = machine.calls();

    machine.add("eth1", "192.0.2.2", ethernet);
    const NetworkInterface second;
    const NetworkInterface third;

    EXPECT_THAT(interfaces(), SizeIs(before));
    EXPECT_THAT(physicalInterfaces(), SizeIs(physicalBefore));
    EXPECT_EQ(machine.calls(), calls);
}

TEST(NetworkInterface, countsAFailedEnumerationToo)
{
    MadeUpInterfaces machine;
    machine.hasConfiguration = false;
    machine.hasLinks = false;
    const LogCapture log("NetworkInterfac");
    printedBy([] { enumerate(); });
    const std::vector<std::string> calls = machine.calls();

    machine.hasConfiguration = true;
    machine.hasLinks = true;
    const NetworkInterface second;

    EXPECT_EQ(machine.calls(), calls);
}

TEST(NetworkInterface, appendsASecondCopyAfterReset)
{
    EXPECT_IN_FRESH_PROCESS({
        MadeUpInterfaces machine;
        machine.add("eth1", "192.0.2.1", ethernet);
        machine.add("eth0", "192.0.2.2", ethernet);
        const NetworkInterface first;
        NetworkInterface::reset();
        EXPECT_THAT(interfaces(), SizeIs(2));  // reset() alone changes nothing
        const NetworkInterface second;
        EXPECT_THAT(namesOf(interfaces()), ElementsAre("eth1", "eth0", "eth1", "eth0"));
        EXPECT_THAT(namesOf(physicalInterfaces()), ElementsAre("eth0", "eth1", "eth0", "eth1"));
    });
}

TEST(NetworkInterface, emptiesTheCallersListFirst)
{
    MadeUpInterfaces machine;
    machine.add("eth0", "192.0.2.1", ethernet);
    enumerate();
    const std::size_t before = interfaces().size();
    const std::size_t physicalBefore = physicalInterfaces().size();

    NetworkInterface enumeration;
    InterfaceList list(5);
    EXPECT_TRUE(enumeration.getInterfaces(list));
    EXPECT_TRUE(enumeration.getInterfaces(list));
    EXPECT_THAT(list, SizeIs(before));
    EXPECT_TRUE(enumeration.getAllPhysicalInterfaces(list));
    EXPECT_THAT(list, SizeIs(physicalBefore));
}

TEST(NetworkInterface, handsOutCopies)
{
    MadeUpInterfaces machine;
    machine.add("eth0", "192.0.2.1", ethernet);
    enumerate();

    InterfaceList mine = interfaces();
    mine.back().name = "renamed";
    mine.pop_back();

    EXPECT_EQ(interfaces().back().name, "eth0");
}
