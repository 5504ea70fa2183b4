// Hardware addresses as text.
#ifndef INTERFACES_MAC_H
#define INTERFACES_MAC_H

#include <kxPAL/NetworkInterfaceInfo.h>

#include <cstdio>
#include <string>

/// @return the six bytes of an Ethernet address, such as "02:fc:00:00:00:01"
inline std::string macOf(const Murn::NetworkInterfaceInfo& info)
{
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", info.mac[0], info.mac[1], info.mac[2],
                  info.mac[3], info.mac[4], info.mac[5]);
    return text;
}

#endif
