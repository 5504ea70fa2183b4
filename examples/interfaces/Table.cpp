// The lists of interfaces as a table.
#include <algorithm>

#include "Listing.h"
#include "Mac.h"

namespace {

using Interfaces = std::vector<Murn::NetworkInterfaceInfo>;

std::string printable(std::string name)
{
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return name;
}

std::string padded(std::string text, std::size_t width)
{
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

// One line for each interface, the names in a column. The caller has the last column.
template <typename LastColumn>
std::string linesFor(const Interfaces& interfaces, LastColumn lastColumn)
{
    if (interfaces.empty())
        return "  (none)\n";
    std::size_t width = 0;
    for (const Murn::NetworkInterfaceInfo& info : interfaces)
        width = std::max(width, info.name.size());
    std::string lines;
    for (const Murn::NetworkInterfaceInfo& info : interfaces)
        lines += "  " + padded(printable(info.name), width) + "  " + macOf(info) + lastColumn(info) + "\n";
    return lines;
}

}  // namespace

std::string asTable(const Listing& listing)
{
    const auto address = [](const Murn::NetworkInterfaceInfo& info) { return "  " + info.address.toString(); };
    const auto nothing = [](const Murn::NetworkInterfaceInfo&) { return ""; };
    return "Interfaces with an address:\n" + linesFor(listing.addressed, address) + "\nPhysical interfaces:\n" +
           linesFor(listing.physical, nothing);
}
