// The lists of network interfaces, from the platform's interface queries.
#include "NetworkInterface.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>

#include "Logger.h"

namespace Murn {

namespace {

// Shared by the whole process without a lock: whoever constructs, resets and reads keeps these apart. The lists are
// never destroyed, since a process may end while its other threads still read them.
bool enumerated = false;
std::vector<NetworkInterfaceInfo>& interfaceCache = *new std::vector<NetworkInterfaceInfo>;
std::vector<NetworkInterfaceInfo>& physicalInterfaceCache = *new std::vector<NetworkInterfaceInfo>;

constexpr std::size_t ethernetBytes = 6;

static_assert(sizeof(ifreq) == 40, "what the configuration is made of, entry by entry");

// One query. The platform's own structure ends before an IPv6 address does, so there is room behind it.
union Request {
    ifreq asked;
    char room[offsetof(ifreq, ifr_addr) + sizeof(sockaddr_in6)];
};

// Takes at most 16 bytes of the name; one that fills them has no terminator.
Request requestFor(const std::string& name)
{
    Request request;
    std::memset(&request, 0, sizeof request);
    name.copy(request.asked.ifr_name, sizeof request.asked.ifr_name);
    return request;
}

bool isLoopback(const std::string& name)
{
    return name == "lo";  // whole names only: an alias of it, such as lo:1, is listed
}

// Asks for one interface of the configuration, and adds it to the list unless its address cannot be had.
void addAddressed(int fd, const std::string& name)
{
    Request request = requestFor(name);
    if (::ioctl(fd, SIOCGIFADDR, &request) != 0) {
        Logger::Error("NetworkIf", "Cant get info about %s\n", name.c_str());
        return;
    }
    const auto* const address = reinterpret_cast<const sockaddr*>(request.room + offsetof(ifreq, ifr_addr));
    if (address->sa_family != AF_INET && address->sa_family != AF_INET6) {
        Logger::Error("NetworkIf", "unknown family for device %s\n", name.c_str());
        return;
    }

    NetworkInterfaceInfo info;
    info.name = name;
    info.address = HostAddress(address);
    if (::ioctl(fd, SIOCGIFHWADDR, &request) != 0)
        Logger::Error("NetworkIf", "Cant get mac!\n");  // listed all the same: its address is of use without one
    else
        std::memcpy(info.mac, request.asked.ifr_hwaddr.sa_data, sizeof info.mac);
    interfaceCache.push_back(info);
}

void enumerateAddressed()
{
    alignas(ifreq) char configuration[16384] = {};
    ifconf query{};
    query.ifc_len = sizeof configuration;
    query.ifc_buf = configuration;

    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    if (::ioctl(fd, SIOCGIFCONF, &query) != 0) {
        Logger::Error("NetworkInterfac", "ioctl(SIOCGIFCONF)\n");
        return;  // without closing the socket, on purpose
    }

    // No more than there is room for, whatever the platform says.
    const auto length = static_cast<std::size_t>(std::clamp(query.ifc_len, 0, static_cast<int>(sizeof configuration)));
    for (std::size_t at = 0; at + sizeof(ifreq) <= length; at += sizeof(ifreq)) {
        const char* const field = configuration + at + offsetof(ifreq, ifr_name);
        const std::string name(field, ::strnlen(field, IFNAMSIZ));
        if (!isLoopback(name))
            addAddressed(fd, name);
    }
    ::close(fd);  // nothing was written that a failure could lose
}

bool isPhysical(const ifaddrs& entry)
{
    return entry.ifa_addr != nullptr && entry.ifa_addr->sa_family == AF_PACKET && entry.ifa_data != nullptr &&
           !isLoopback(entry.ifa_name);
}

void addPhysical(int fd, const std::string& name)
{
    Request request = requestFor(name);
    if (::ioctl(fd, SIOCGIFHWADDR, &request) != 0)
        return;
    NetworkInterfaceInfo info;
    info.name = name;
    std::memcpy(info.mac, request.asked.ifr_hwaddr.sa_data, ethernetBytes);
    physicalInterfaceCache.push_back(info);
}

void enumeratePhysical()
{
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        std::printf("Cannot enumerate i/s\n");
        return;
    }

    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);  // stays open for the rest of the process, on purpose
    std::vector<std::string> names;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (isPhysical(*entry))
            names.emplace_back(entry->ifa_name);
    }
    ::freeifaddrs(list);

    std::sort(names.begin(), names.end());
    for (const std::string& name : names)
        addPhysical(fd, name);
}

}  // namespace

NetworkInterface::NetworkInterface()
{
    if (enumerated)
        return;
    enumerated = true;
    enumerateAddressed();
    enumeratePhysical();
}

void NetworkInterface::reset()
{
    enumerated = false;  // the lists stay, and the next enumeration appends to them, on purpose
}

bool NetworkInterface::getInterfaces(std::vector<NetworkInterfaceInfo>& out)
{
    out = interfaceCache;
    return true;
}

bool NetworkInterface::getAllPhysicalInterfaces(std::vector<NetworkInterfaceInfo>& out)
{
    out = physicalInterfaceCache;
    return true;
}

}  // namespace Murn
