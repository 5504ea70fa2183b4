// The lists of interfaces as text, for people and for programs.
#ifndef INTERFACES_LISTING_H
#define INTERFACES_LISTING_H

#include <kxPAL/NetworkInterfaceInfo.h>

#include <string>
#include <vector>

/// Both lists that the library has.
struct Listing {
    std::vector<Murn::NetworkInterfaceInfo> addressed;
    std::vector<Murn::NetworkInterfaceInfo> physical;
};

/// @return a table for people. Names are shown with a question mark for each byte that is not printable ASCII, since
///         whoever may name a device could otherwise talk to the terminal.
std::string asTable(const Listing& listing);

/// @return an object with the arrays "interfaces", whose elements have the strings "name", "mac" and "address", and
///         "physicalInterfaces", without addresses. Bytes of a name that are not UTF-8 become U+FFFD.
std::string asJson(const Listing& listing);

#endif
