// Network devices out of JSON, as programs read it.
#include "DeviceJson.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace {

using Json = nlohmann::json;

void require(bool holds, const char* what)
{
    if (!holds)
        throw std::runtime_error(what);
}

Devices parseArray(const Json& array, bool hasAddresses)
{
    require(array.is_array(), "a list is an array");
    Devices devices;
    for (const Json& object : array) {
        require(object.size() == (hasAddresses ? 3U : 2U), "an interface has its members and no others");
        Device device{object.at("name"), object.at("mac"), ""};
        if (hasAddresses)
            device.address = object.at("address");
        devices.push_back(device);
    }
    return devices;
}

}  // namespace

DeviceLists parseInterfaces(const std::string& json)
{
    const Json both = Json::parse(json);
    require(both.size() == 2, "there are two lists");
    return {parseArray(both.at("interfaces"), true), parseArray(both.at("physicalInterfaces"), false)};
}

Devices parseIpLink(const std::string& json)
{
    Devices devices;
    for (const Json& link : Json::parse(json)) {
        if (link.at("ifname") != "lo" && link.contains("address"))
            devices.push_back({link.at("ifname"), link.at("address"), ""});
    }
    std::sort(devices.begin(), devices.end());
    return devices;
}

Devices parseIpAddr(const std::string& json)
{
    Devices devices;
    for (const Json& device : Json::parse(json)) {
        if (!device.contains("addr_info"))
            continue;
        for (const Json& address : device.at("addr_info")) {
            const std::string name = address.contains("label") ? address.at("label") : device.at("ifname");
            if (name != "lo")
                devices.push_back({name, "", address.at("local")});
        }
    }
    std::sort(devices.begin(), devices.end());
    return devices;
}
