// The lists of network interfaces.
//
//   enumerate  NetworkInterface after reset()  against the system calls that it makes
//
// Each enumeration leaves a descriptor open, which both sides close: it has the same number each time.
#include <ifaddrs.h>
#include <kxPAL/NetworkInterface.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "Ratio.h"

namespace {

// The number that the next descriptor gets.
int nextDescriptor()
{
    const int fd = ::dup(STDIN_FILENO);
    require(fd != -1 && ::close(fd) == 0, "there is room for a descriptor");
    return fd;
}

std::size_t physicalCount()
{
    std::vector<Murn::NetworkInterfaceInfo> list;
    Murn::NetworkInterface::getAllPhysicalInterfaces(list);
    return list.size();
}

void libraryEnumerate(benchmark::State& state)
{
    const int leftOpen = nextDescriptor();
    const std::size_t before = physicalCount();
    for (auto _ : state) {
        Murn::NetworkInterface::reset();
        const Murn::NetworkInterface enumeration;
        benchmark::DoNotOptimize(enumeration);
        ::close(leftOpen);
    }
    // The lists only grow.
    const std::size_t added = physicalCount() - before;
    require(added % static_cast<std::size_t>(state.iterations()) == 0, "each enumeration finds the same");
    require(nextDescriptor() == leftOpen, "no descriptor is left");
}

bool ask(int fd, unsigned long request, ifreq& query)
{
    return ::ioctl(fd, request, &query) == 0;
}

bool askForAddresses()
{
    static char configuration[16384];
    ifconf list{};
    list.ifc_len = sizeof configuration;
    list.ifc_buf = configuration;
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    bool all = ::ioctl(fd, SIOCGIFCONF, &list) == 0;
    for (int at = 0; at < list.ifc_len; at += static_cast<int>(sizeof(ifreq))) {
        ifreq query{};
        std::memcpy(query.ifr_name, configuration + at, IFNAMSIZ);
        if (std::strcmp(query.ifr_name, "lo") != 0)
            all = ask(fd, SIOCGIFADDR, query) && ask(fd, SIOCGIFHWADDR, query) && all;
    }
    return ::close(fd) == 0 && all;
}

bool askForHardware()
{
    ifaddrs* list = nullptr;
    bool all = ::getifaddrs(&list) == 0;
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_PACKET || entry->ifa_data == nullptr ||
            std::strcmp(entry->ifa_name, "lo") == 0)
            continue;
        ifreq query{};
        std::memcpy(query.ifr_name, entry->ifa_name, std::strlen(entry->ifa_name));
        all = ask(fd, SIOCGIFHWADDR, query) && all;
    }
    ::freeifaddrs(list);
    return ::close(fd) == 0 && all;
}

void floorEnumerate(benchmark::State& state)
{
    bool all = true;
    for (auto _ : state)
        all = askForAddresses() && askForHardware() && all;
    require(all, "each interface has addresses");
}

}  // namespace

int main(int argc, char** argv)
{
    RatioTable table;
    table.compare("NetworkInterface: enumerate", libraryEnumerate, floorEnumerate);
    return table.run(argc, argv);
}
