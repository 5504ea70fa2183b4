// A network of the process's own.
#include "OwnNetwork.h"

#include "PrivateNetwork.h"

namespace {

void addInterface(const std::string& name, const std::string& hardwareAddress, const std::string& address)
{
    privatenetwork::addDevice(name, hardwareAddress);
    privatenetwork::ip("address add " + address + " dev " + name);
    privatenetwork::ip("link set far" + name + " up");
    privatenetwork::ip("link set " + name + " up");
}

}  // namespace

std::string enterOwnNetwork()
{
    std::string obstacle = privatenetwork::obstacle();
    if (obstacle.empty()) {
        privatenetwork::enter();
        privatenetwork::ip("link set lo up");
        addInterface("near0", "02:00:00:00:00:10", "10.80.0.1/24");
        addInterface("near1", "02:00:00:00:00:11", "10.81.0.1/24");
    }
    return obstacle;
}
