// Network interfaces: both lists, and asking again.
#include <kxPAL/NetworkInterface.h>

#include <cstdio>
#include <vector>

int main()
{
    // [list]
    const Murn::NetworkInterface enumeration;  // the first one asks the system

    std::vector<Murn::NetworkInterfaceInfo> interfaces;
    Murn::NetworkInterface::getInterfaces(interfaces);
    for (const Murn::NetworkInterfaceInfo& info : interfaces)
        std::printf("%s has %s\n", info.name.c_str(), info.address.toString().c_str());

    std::vector<Murn::NetworkInterfaceInfo> devices;
    Murn::NetworkInterface::getAllPhysicalInterfaces(devices);
    for (const Murn::NetworkInterfaceInfo& info : devices)
        std::printf("%s is %02x:%02x:%02x:%02x:%02x:%02x\n", info.name.c_str(), info.mac[0], info.mac[1], info.mac[2],
                    info.mac[3], info.mac[4], info.mac[5]);
    // [end]

    // [again]
    const std::size_t old = interfaces.size();
    Murn::NetworkInterface::reset();
    const Murn::NetworkInterface again;
    Murn::NetworkInterface::getInterfaces(interfaces);
    interfaces.erase(interfaces.begin(), interfaces.begin() + static_cast<std::ptrdiff_t>(old));  // what was before
    // [end]

    // The machine is the same, unless somebody changed it meanwhile.
    const bool hasLoopback = !interfaces.empty() && interfaces.front().name == "lo";
    return interfaces.size() <= 409 && !hasLoopback ? 0 : 1;
}
