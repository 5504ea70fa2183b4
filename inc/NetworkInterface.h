// The network interfaces of this machine.
#ifndef MURN_NETWORK_INTERFACE_H
#define MURN_NETWORK_INTERFACE_H

#include <vector>

#include "Export.h"
#include "NetworkInterfaceInfo.h"

namespace Murn {

/// Lists the network interfaces of this machine, the loopback device left out: those that have an IPv4 address, which
/// sockets can bind to, and the physical ones, which are the link-layer devices with their hardware addresses.
///
/// An object has no state of its own. Constructing the first one asks the platform, once for the whole process, and
/// fills two lists that the process keeps; the other operations copy them. What happens to the interfaces afterwards
/// is not noticed, until reset() and another construction.
///
/// One thread at a time for the whole process, not locked: construct the first object before other threads use the
/// lists, and let nobody read while reset() is called or an object is constructed after it. Once the lists are there,
/// any number of threads may read them at once.
class MURN_API NetworkInterface {
public:
    /// Asks the platform for both lists, unless that was done before; then it does nothing. Failures show in nothing
    /// but the lists: an interface that cannot be queried is missing, a list that cannot be had stays as it was.
    ///
    /// Addressed interfaces come from `ioctl(SIOCGIFCONF)`, `SIOCGIFADDR` and `SIOCGIFHWADDR`, in the platform's order;
    /// what fails is logged under the domains "NetworkInterfac" and "NetworkIf". An interface whose hardware address
    /// cannot be read stays in the list. Physical ones come from `getifaddrs` and `SIOCGIFHWADDR`, sorted by name; a
    /// failing `getifaddrs` prints "Cannot enumerate i/s" to standard output, and an interface whose hardware address
    /// cannot be read is left out. Each time the platform is asked a descriptor stays open for the rest of the process,
    /// unless `getifaddrs` fails; one more where `SIOCGIFCONF` fails.
    NetworkInterface();

    /// Lets the next construction ask the platform again. The lists are not emptied, neither here nor then: what is
    /// found is appended, so that an interface that is still there stands twice in them. Kept on purpose.
    static void reset();

    /// Copies the list of interfaces that have an IPv4 address. It does not ask the platform: construct an object
    /// first.
    /// @param out  emptied, then filled with the list, which has nothing in it before the first construction
    /// @return true
    static bool getInterfaces(std::vector<NetworkInterfaceInfo>& out);
    /// Copies the list of physical interfaces in the way of getInterfaces(). Their addresses are Unspecified.
    /// @param out  emptied, then filled with the list, which has nothing in it before the first construction
    /// @return true
    static bool getAllPhysicalInterfaces(std::vector<NetworkInterfaceInfo>& out);
};

}  // namespace Murn

#endif
