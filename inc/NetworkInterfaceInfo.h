// What the library knows of one network interface.
#ifndef MURN_NETWORK_INTERFACE_INFO_H
#define MURN_NETWORK_INTERFACE_INFO_H

#include <cstdint>
#include <string>

#include "Export.h"
#include "HostAddress.h"

namespace Murn {

/// One entry of the lists that NetworkInterface hands out: a plain record that is copied whole. One thread at a time,
/// not locked.
struct MURN_API NetworkInterfaceInfo {
    /// The name as the platform gives it, such as "eth0"; an address with a label of its own comes under that label,
    /// such as "eth0:1".
    std::string name;
    /// The hardware address in wire order: the six bytes of Ethernet, then two that are zero. Of a longer address only
    /// what fits: eight bytes in the list of addressed interfaces, six in that of physical ones. Behind a shorter one,
    /// such as an IP tunnel's of four bytes, stands what the query left there. All zero when the platform did not tell,
    /// and for devices that have none, such as tun devices.
    unsigned char mac[8] = {};
    /// Nothing in the library fills or reads it; a copy carries it along.
    std::uint32_t reserved = 0;
    /// The address in the list of addressed interfaces; Unspecified in that of physical ones.
    HostAddress address;
    /// Nothing in the library fills or reads it; a copy carries it along.
    HostAddress extraAddress;
};

}  // namespace Murn

#endif
