// Addresses: parsing, printing, comparing, looking up.
#include <kxPAL/HostAddress.h>

#include <vector>

int main()
{
    // [values]
    const Murn::HostAddress server(std::string("192.168.1.10"));  // numeric text only
    const Murn::HostAddress loopback(Murn::HostAddress::LoopbackIPv6);
    const Murn::HostAddress mistake(std::string("no address"));

    const bool isGood = server.isValid() && server.type() == Murn::HostAddress::IPv4;
    const bool isBad = !mistake.isValid() && mistake.type() == Murn::HostAddress::Invalid;
    const std::string text = loopback.toString();  // "::1"
    // [end]

    // [look-up]
    const std::vector<Murn::HostAddress> all =
        Murn::HostAddress::ResolveHostName("localhost", Murn::HostAddress::Unspecified);
    const Murn::HostAddress first = Murn::HostAddress::FromHostName("127.0.0.1", Murn::HostAddress::IPv4);
    // [end]

    const bool isFound = first == Murn::HostAddress(Murn::HostAddress::LoopbackIPv4);
    return isGood && isBad && text == "::1" && isFound && all.size() < 1000 ? 0 : 1;
}
