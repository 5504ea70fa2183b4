// Addresses as text, and their comparison.
//
//   parse    HostAddress(text)      against inet_pton
//   print    HostAddress::toString  against inet_ntop and a std::string
//   compare  operator==             against memcmp
#include <arpa/inet.h>
#include <kxPAL/HostAddress.h>

#include <cstring>
#include <string>

#include "Ratio.h"

namespace {

const std::string textIPv4 = "192.168.100.200";
const std::string textIPv6 = "2001:db8:1234:5678:9abc:def0:1234:5678";

void libraryParse(benchmark::State& state, const std::string& text)
{
    bool all = true;
    for (auto _ : state) {
        const Murn::HostAddress address(text);
        all = address.isValid() && all;
    }
    require(all, "the text is an address");
}

template <int Family, typename Address>
void floorParse(benchmark::State& state, const std::string& text)
{
    bool all = true;
    for (auto _ : state) {
        Address address;
        all = ::inet_pton(Family, text.c_str(), &address) == 1 && all;
        benchmark::DoNotOptimize(address);
    }
    require(all, "the text is an address");
}

void libraryPrint(benchmark::State& state, const std::string& text)
{
    const Murn::HostAddress address(text);
    std::string printed;
    for (auto _ : state)
        printed = address.toString();
    require(printed == text, "the address prints as it was parsed");
}

template <int Family, typename Address, std::size_t Room>
void floorPrint(benchmark::State& state, const std::string& text)
{
    Address address;
    require(::inet_pton(Family, text.c_str(), &address) == 1, "the text is an address");
    std::string printed;
    for (auto _ : state) {
        char buffer[Room];
        printed = std::string(::inet_ntop(Family, &address, buffer, Room));
    }
    require(printed == text, "the address prints as it was parsed");
}

void libraryCompare(benchmark::State& state)
{
    Murn::HostAddress one(textIPv6);
    Murn::HostAddress other(textIPv6);
    bool all = true;
    for (auto _ : state) {
        benchmark::DoNotOptimize(one);
        benchmark::DoNotOptimize(other);
        all = one == other && all;
    }
    require(all, "the addresses are equal");
}

void floorCompare(benchmark::State& state)
{
    in6_addr one;
    in6_addr other;
    require(::inet_pton(AF_INET6, textIPv6.c_str(), &one) == 1, "the text is an address");
    other = one;
    bool all = true;
    for (auto _ : state) {
        benchmark::DoNotOptimize(one);
        benchmark::DoNotOptimize(other);
        all = std::memcmp(&one, &other, sizeof one) == 0 && all;
    }
    require(all, "the addresses are equal");
}

}  // namespace

int main(int argc, char** argv)
{
    RatioTable table;
    table.compare(
        "HostAddress: parse IPv4", [](auto& state) { libraryParse(state, textIPv4); },
        [](auto& state) { floorParse<AF_INET, in_addr>(state, textIPv4); });
    table.compare(
        "HostAddress: parse IPv6", [](auto& state) { libraryParse(state, textIPv6); },
        [](auto& state) { floorParse<AF_INET6, in6_addr>(state, textIPv6); });
    table.compare(
        "HostAddress: print IPv4", [](auto& state) { libraryPrint(state, textIPv4); },
        [](auto& state) { floorPrint<AF_INET, in_addr, INET_ADDRSTRLEN>(state, textIPv4); });
    table.compare(
        "HostAddress: print IPv6", [](auto& state) { libraryPrint(state, textIPv6); },
        [](auto& state) { floorPrint<AF_INET6, in6_addr, INET6_ADDRSTRLEN>(state, textIPv6); });
    table.compare("HostAddress: compare", libraryCompare, floorCompare);
    return table.run(argc, argv);
}
