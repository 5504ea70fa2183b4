// Step: the network interfaces of this machine.
#include <kxPAL/NetworkInterface.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Steps.h"

namespace {

using Interfaces = std::vector<Murn::NetworkInterfaceInfo>;

// Names for the reader. Whoever named a device could talk to the terminal otherwise.
std::string list(const Interfaces& interfaces, bool withAddresses)
{
    std::string joined;
    for (const Murn::NetworkInterfaceInfo& info : interfaces) {
        std::string name = info.name;
        std::replace_if(
            name.begin(), name.end(), [](char c) { return c <= ' ' || c > '~'; }, '?');
        joined += (joined.empty() ? "" : ", ") + name + (withAddresses ? " with " + info.address.toString() : "");
    }
    return joined.empty() ? "none" : joined;
}

bool hasLoopback(const Interfaces& interfaces)
{
    return std::any_of(interfaces.begin(), interfaces.end(),
                       [](const Murn::NetworkInterfaceInfo& info) { return info.name == "lo"; });
}

bool isSorted(const Interfaces& interfaces)
{
    return std::is_sorted(interfaces.begin(), interfaces.end(),
                          [](const Murn::NetworkInterfaceInfo& one, const Murn::NetworkInterfaceInfo& other) {
                              return one.name < other.name;
                          });
}

Findings walk(Murn::Application&)
{
    Findings findings;

    const Murn::NetworkInterface enumeration;
    Interfaces addressed;
    Interfaces physical;
    Murn::NetworkInterface::getInterfaces(addressed);
    Murn::NetworkInterface::getAllPhysicalInterfaces(physical);
    say("Interfaces with an address: %s.", list(addressed, true).c_str());
    say("Physical interfaces: %s.", list(physical, false).c_str());
    findings.check(!hasLoopback(addressed) && !hasLoopback(physical), "neither list has the loopback device");
    findings.check(std::all_of(addressed.begin(), addressed.end(),
                               [](const Murn::NetworkInterfaceInfo& info) {
                                   return info.address.type() == Murn::HostAddress::IPv4;
                               }),
                   "all of the first kind have IPv4 addresses");
    findings.check(isSorted(physical), "the physical ones are sorted by name");

    const Murn::NetworkInterface another;
    Interfaces again;
    Murn::NetworkInterface::getInterfaces(again);
    findings.check(again.size() == addressed.size(), "the system is asked once, and another object has the same lists");
    return findings;
}

}  // namespace

const Step interfacesStep = {"Listing network interfaces", walk};
