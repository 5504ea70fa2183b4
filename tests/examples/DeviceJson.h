// Network devices out of JSON, as programs read it: the list of interfaces' own and the ip tool's.
#ifndef KXPAL_TESTS_DEVICE_JSON_H
#define KXPAL_TESTS_DEVICE_JSON_H

#include <ostream>
#include <string>
#include <vector>

/// One device, or one address of it. What is not known is empty.
struct Device {
    std::string name;
    std::string mac;
    std::string address;

    auto operator<=>(const Device&) const = default;
};

inline std::ostream& operator<<(std::ostream& os, const Device& device)
{
    return os << "\"" << device.name << "\" " << device.mac << " " << device.address;
}

using Devices = std::vector<Device>;

/// What the list of interfaces prints with --json.
struct DeviceLists {
    Devices interfaces;
    Devices physical;
};

// All of these are strict: they throw when the text is not JSON in UTF-8, and when something is missing in it.

/// Throws also when there is more in it than there should be.
DeviceLists parseInterfaces(const std::string& json);

/// @param json  of `ip -json link`
/// @return devices with a hardware address, sorted, without the loopback device
Devices parseIpLink(const std::string& json);

/// @param json  of `ip -json -4 addr`
/// @return labels and addresses, sorted, without the loopback device's own
Devices parseIpAddr(const std::string& json);

#endif
