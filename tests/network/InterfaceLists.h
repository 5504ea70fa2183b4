// What tests of the lists of network interfaces share. The lists only ever grow, so a test looks at what an
// enumeration adds to them.
#ifndef KXPAL_TESTS_INTERFACE_LISTS_H
#define KXPAL_TESTS_INTERFACE_LISTS_H

#include <gtest/gtest.h>
#include <kxPAL/NetworkInterface.h>

#include <string>
#include <vector>

#include "Loopback.h"

using InterfaceList = std::vector<Murn::NetworkInterfaceInfo>;

inline InterfaceList interfaces()
{
    InterfaceList list;
    EXPECT_TRUE(Murn::NetworkInterface::getInterfaces(list));
    return list;
}

inline InterfaceList physicalInterfaces()
{
    InterfaceList list;
    EXPECT_TRUE(Murn::NetworkInterface::getAllPhysicalInterfaces(list));
    return list;
}

/// What one enumeration added to the two lists.
struct Added {
    InterfaceList interfaces;
    InterfaceList physical;
};

inline Added enumerate()
{
    const auto from = [](const InterfaceList& list, std::size_t begin) {
        return InterfaceList(list.begin() + static_cast<std::ptrdiff_t>(begin), list.end());
    };
    const std::size_t interfacesBefore = interfaces().size();
    const std::size_t physicalBefore = physicalInterfaces().size();
    Murn::NetworkInterface::reset();
    const Murn::NetworkInterface enumeration;
    return {from(interfaces(), interfacesBefore), from(physicalInterfaces(), physicalBefore)};
}

inline std::vector<std::string> namesOf(const InterfaceList& list)
{
    std::vector<std::string> names;
    for (const Murn::NetworkInterfaceInfo& info : list)
        names.push_back(info.name);
    return names;
}

inline Bytes macOf(const Murn::NetworkInterfaceInfo& info)
{
    return bytesOf(info.mac);
}

#endif
