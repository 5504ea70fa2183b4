// Step: addresses from names and numbers.
#include <kxPAL/HostAddress.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Steps.h"

namespace {

using Murn::HostAddress;

// Joins addresses for the reader, leaving out the repeats that resolvers make.
std::string list(const std::vector<HostAddress>& addresses)
{
    std::vector<std::string> texts;
    for (const HostAddress& address : addresses) {
        if (std::find(texts.begin(), texts.end(), address.toString()) == texts.end())
            texts.push_back(address.toString());
    }
    std::string joined;
    for (const std::string& text : texts)
        joined += (joined.empty() ? "" : ", ") + text;
    return joined.empty() ? "nothing" : joined;
}

bool isLoopback(const HostAddress& address)
{
    const HostAddress network(HostAddress::LoopbackIPv4);
    const HostAddress mask(std::string("255.0.0.0"));
    return address == HostAddress(HostAddress::LoopbackIPv6) ||
           (address.type() == HostAddress::IPv4 && address.isInSameSubNetworkIPv4(network, mask));
}

Findings walk(Murn::Application&)
{
    Findings findings;

    const std::vector<HostAddress> local = HostAddress::ResolveHostName("localhost", HostAddress::Unspecified);
    say("The resolver says that localhost is %s.", list(local).c_str());
    findings.check(!local.empty() && std::all_of(local.begin(), local.end(), isLoopback),
                   "each of them is this machine itself");

    say("Numbers need no resolver.");
    const HostAddress here(std::string("192.168.1.10"));
    const HostAddress there(std::string("192.168.1.200"));
    const HostAddress six(std::string("fe80:0:0:0::1"));
    findings.check(here.type() == HostAddress::IPv4 && here.toString() == "192.168.1.10",
                   "192.168.1.10 is an IPv4 address");
    findings.check(six.type() == HostAddress::IPv6 && six.toString() == "fe80::1",
                   "fe80:0:0:0::1 is an IPv6 address, written fe80::1 for short");
    findings.check(!HostAddress(std::string("localhost")).isValid(), "a name is no number");
    findings.check(here.isInSameSubNetworkIPv4(there, HostAddress(std::string("255.255.255.0"))) &&
                       !here.isInSameSubNetworkIPv4(there, HostAddress(std::string("255.255.255.128"))),
                   "192.168.1.10 and .200 share a network of 256 addresses, but not one of 128");

    findings.figure(static_cast<long>(local.size()), "addresses of localhost");
    return findings;
}

}  // namespace

const Step addressesStep = {"Resolving addresses", walk};
