// The lists of network interfaces on real ones: this machine's own, compared with what other ways to ask say, and
// virtual ones in a private network, where everything about them is known.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Capture.h"
#include "FreshProcess.h"
#include "InterfaceLists.h"
#include "LogCapture.h"
#include "PrivateNetwork.h"

using Murn::HostAddress;
using Murn::NetworkInterface;
using Murn::NetworkInterfaceInfo;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAreArray;

namespace {

using Names = std::vector<std::string>;
using NamedAddress = std::pair<std::string, std::string>;

// Names and IPv4 addresses as `getifaddrs` has them.
std::vector<NamedAddress> addressesIPv4()
{
    std::vector<NamedAddress> found;
    ifaddrs* list = nullptr;
    EXPECT_EQ(::getifaddrs(&list), 0);
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET)
            found.emplace_back(entry->ifa_name, HostAddress(entry->ifa_addr).toString());
    }
    ::freeifaddrs(list);
    return found;
}

Names deviceNames()
{
    Names names;
    struct if_nameindex* const all = ::if_nameindex();
    EXPECT_NE(all, nullptr);
    for (const struct if_nameindex* device = all; device != nullptr && device->if_index != 0; ++device)
        names.emplace_back(device->if_name);
    ::if_freenameindex(all);
    return names;
}

std::vector<NamedAddress> namesAndAddresses(const InterfaceList& list)
{
    std::vector<NamedAddress> found;
    for (const NetworkInterfaceInfo& info : list)
        found.emplace_back(info.name, info.address.toString());
    return found;
}

std::vector<int> openDescriptors()
{
    std::vector<int> open;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        open.push_back(std::stoi(entry.path().filename()));
    std::erase_if(open, [](int fd) { return ::fcntl(fd, F_GETFD) == -1; });  // the iterator's own
    return open;
}

const Bytes mac0{2, 0, 0, 0, 0, 0x10, 0, 0};
const Bytes mac1{2, 0, 0, 0, 0, 0x11, 0, 0};

// Adds lan1 and then lan0, both with an address, to a network with a loopback device.
void addTwoDevices()
{
    privatenetwork::ip("link set lo up");
    privatenetwork::addDevice("lan1", "02:00:00:00:00:11");
    privatenetwork::addDevice("lan0", "02:00:00:00:00:10");
    privatenetwork::ip("addr add 198.51.100.1/24 dev lan1");
    privatenetwork::ip("addr add 192.0.2.1/24 dev lan0");
}

class NetworkInterfaceInAPrivateNetwork : public ::testing::Test {
protected:
    void SetUp() override
    {
        const std::string obstacle = privatenetwork::obstacle();
        if (!obstacle.empty())
            GTEST_SKIP() << obstacle;
    }
};

// Runs the statement in a network of its own.
#define EXPECT_IN_PRIVATE_NETWORK(statement) \
    EXPECT_IN_FRESH_PROCESS({                \
        privatenetwork::enter();             \
        statement;                           \
    })

}  // namespace

TEST(NetworkInterfaceOnThisMachine, findsWhatOtherWaysToAskFind)
{
    // Again if the machine changes meanwhile.
    std::vector<NamedAddress> addresses;
    Names devices;
    Added added;
    do {
        addresses = addressesIPv4();
        devices = deviceNames();
        added = enumerate();
    } while (addresses != addressesIPv4() || devices != deviceNames());

    Names named;
    for (const NamedAddress& address : addresses) {
        if (address.first != "lo")
            named.push_back(address.first);
    }
    EXPECT_THAT(namesOf(added.interfaces), UnorderedElementsAreArray(named));
    for (const NamedAddress& found : namesAndAddresses(added.interfaces))
        EXPECT_THAT(addresses, Contains(found));

    // Devices without a hardware address, such as tun devices, are no physical interfaces.
    for (const std::string& name : namesOf(added.physical))
        EXPECT_THAT(devices, Contains(name));
    EXPECT_THAT(namesOf(added.physical), Not(Contains("lo")));
    EXPECT_TRUE(std::is_sorted(added.physical.begin(), added.physical.end(),
                               [](const auto& one, const auto& other) { return one.name < other.name; }));
}

TEST(NetworkInterfaceOnThisMachine, logsAndPrintsNothing)
{
    const LogCapture log;

    EXPECT_EQ(printedBy([] { enumerate(); }), "");
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST(NetworkInterfaceOnThisMachine, leavesOneDescriptorOpen)
{
    EXPECT_IN_FRESH_PROCESS({
        const std::vector<int> before = openDescriptors();
        const NetworkInterface enumeration;
        EXPECT_THAT(openDescriptors(), SizeIs(before.size() + 1));
        const NetworkInterface another;
        EXPECT_THAT(openDescriptors(), SizeIs(before.size() + 1));
    });
}

TEST_F(NetworkInterfaceInAPrivateNetwork, findsNothingOnLoopbackAlone)
{
    EXPECT_IN_PRIVATE_NETWORK({
        const LogCapture log;
        const Added down = enumerate();
        EXPECT_THAT(down.interfaces, IsEmpty());
        EXPECT_THAT(down.physical, IsEmpty());

        privatenetwork::ip("link set lo up");
        EXPECT_THAT(addressesIPv4(), ElementsAre(NamedAddress("lo", "127.0.0.1")));
        const Added up = enumerate();
        EXPECT_THAT(up.interfaces, IsEmpty());
        EXPECT_THAT(up.physical, IsEmpty());
        EXPECT_THAT(log.texts(), IsEmpty());
    });
}

TEST_F(NetworkInterfaceInAPrivateNetwork, findsDevicesWithTheirAddresses)
{
    EXPECT_IN_PRIVATE_NETWORK({
        addTwoDevices();
        const Added added = enumerate();
        EXPECT_THAT(namesAndAddresses(added.interfaces),
                    ElementsAre(NamedAddress("lan1", "198.51.100.1"), NamedAddress("lan0", "192.0.2.1")));
        EXPECT_EQ(macOf(added.interfaces.at(0)), mac1);
        EXPECT_EQ(macOf(added.interfaces.at(1)), mac0);
        EXPECT_THAT(namesOf(added.physical), ElementsAre("farlan0", "farlan1", "lan0", "lan1"));
        EXPECT_EQ(macOf(added.physical.at(2)), mac0);
        EXPECT_EQ(macOf(added.physical.at(3)), mac1);
    });
}

TEST_F(NetworkInterfaceInAPrivateNetwork, findsDevicesThatAreDown)
{
    EXPECT_IN_PRIVATE_NETWORK({
        addTwoDevices();
        privatenetwork::ip("link set lan0 up");
        privatenetwork::ip("link set lan0 down");
        EXPECT_THAT(namesOf(enumerate().interfaces), ElementsAre("lan1", "lan0"));
    });
}

TEST_F(NetworkInterfaceInAPrivateNetwork, findsLabelsAsInterfacesOfTheirOwn)
{
    EXPECT_IN_PRIVATE_NETWORK({
        addTwoDevices();
        privatenetwork::ip("addr add 127.0.0.2/8 dev lo label lo:1");
        privatenetwork::ip("addr add 192.0.2.2/24 dev lan0 label lan0:two");
        const Added added = enumerate();
        EXPECT_THAT(namesAndAddresses(added.interfaces),
                    ElementsAre(NamedAddress("lo:1", "127.0.0.2"), NamedAddress("lan1", "198.51.100.1"),
                                NamedAddress("lan0", "192.0.2.1"), NamedAddress("lan0:two", "192.0.2.2")));
        EXPECT_EQ(macOf(added.interfaces.at(0)), Bytes(8, 0));
        EXPECT_EQ(macOf(added.interfaces.at(3)), mac0);
        EXPECT_THAT(namesOf(added.physical), ElementsAre("farlan0", "farlan1", "lan0", "lan1"));
    });
}

TEST_F(NetworkInterfaceInAPrivateNetwork, findsTheFirstAddressAgainForEachOneWithoutALabel)
{
    EXPECT_IN_PRIVATE_NETWORK({
        addTwoDevices();
        privatenetwork::ip("addr add 192.0.2.2/24 dev lan0");
        EXPECT_THAT(namesAndAddresses(enumerate().interfaces),
                    ElementsAre(NamedAddress("lan1", "198.51.100.1"), NamedAddress("lan0", "192.0.2.1"),
                                NamedAddress("lan0", "192.0.2.1")));
    });
}

TEST_F(NetworkInterfaceInAPrivateNetwork, findsPhysicalOnesWhateverTheirAddresses)
{
    EXPECT_IN_PRIVATE_NETWORK({
        privatenetwork::ip("link add fifteen_letters type veth peer name far");
        privatenetwork::ip("link set fifteen_letters up");  // which may give it an IPv6 address
        const Added added = enumerate();
        EXPECT_THAT(added.interfaces, IsEmpty());
        EXPECT_THAT(namesOf(added.physical), ElementsAre("far", "fifteen_letters"));
    });
}

TEST_F(NetworkInterfaceInAPrivateNetwork, noticesChangesAfterResetOnly)
{
    EXPECT_IN_PRIVATE_NETWORK({
        addTwoDevices();
        const NetworkInterface first;
        privatenetwork::ip("link del lan1");
        privatenetwork::addDevice("lan2", "02:00:00:00:00:12");
        privatenetwork::ip("addr add 203.0.113.1/24 dev lan2");
        const NetworkInterface second;
        EXPECT_THAT(namesOf(interfaces()), ElementsAre("lan1", "lan0"));

        NetworkInterface::reset();
        const NetworkInterface third;
        EXPECT_THAT(namesOf(interfaces()), ElementsAre("lan1", "lan0", "lan0", "lan2"));
        EXPECT_THAT(namesOf(physicalInterfaces()),
                    ElementsAre("farlan0", "farlan1", "lan0", "lan1", "farlan0", "farlan2", "lan0", "lan2"));
    });
}
