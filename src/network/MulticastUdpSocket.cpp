// IPv4 multicast on every network interface: registering groups and sending to them.
#include "MulticastUdpSocket.h"

#include "Logger.h"
#include "NetworkInterface.h"
#include "network/Descriptor.h"

namespace Murn {

namespace {

// What registering and sending return.
constexpr int succeeded = 0;
constexpr int failedEverywhere = -1;
constexpr int noGroups = 3;
constexpr int noInterfaces = 4;
constexpr int noneBound = 5;

// Sends unless another thread has closed the socket.
long sendSafely(UdpSocket& socket, const void* data, std::size_t length, const HostAddress& to, unsigned short port)
{
    const DescriptorUse use(socket);
    return socket.sendto(data, length, to, port);
}

}  // namespace

MulticastUdpSocket::MulticastUdpSocket()
{
    std::vector<NetworkInterfaceInfo> interfaces;
    getNetworkInterfaces(interfaces);
    for (const NetworkInterfaceInfo& interface : interfaces) {
        auto* const pair = new SocketHostPair{{Socket::IPv4}, interface, false};
        pair->socket.setSocketReuseAddr(true);
        pair->socket.setMulticastLoop(true);
        _pairs.push_back(pair);
    }
    implInit();
}

MulticastUdpSocket::~MulticastUdpSocket()
{
    for (SocketHostPair* const pair : _pairs) {
        // The other way round on purpose: those that are bound leave their groups by being closed.
        if (!pair->bound)
            leaveGroupsUnbound(*pair);
        delete pair;
    }
    freeGroups();
    implClose();
}

bool MulticastUdpSocket::getNetworkInterfaces(std::vector<NetworkInterfaceInfo>& out)
{
    out.clear();
    const NetworkInterface enumeration;
    NetworkInterface::getInterfaces(out);
    return true;
}

int MulticastUdpSocket::registerOnMulticastGroup(const std::list<HostAddress*>& groups, unsigned short port,
                                                 bool ignoreBindFailure)
{
    if (_pairs.empty())
        return noInterfaces;

    for (SocketHostPair* const pair : _pairs)
        leaveGroups(*pair);
    freeGroups();
    for (const HostAddress* const group : groups)
        _groups.push_back(new HostAddress(*group));

    int result = failedEverywhere;
    bool anyBound = false;
    for (SocketHostPair* const pair : _pairs) {
        if (bindOnce(*pair, port))
            anyBound = true;
        else if (!ignoreBindFailure)
            continue;
        if (joinGroups(*pair))
            result = succeeded;
    }
    if (!anyBound)
        result = noneBound;
    if (result != succeeded)
        freeGroups();  // what was joined meanwhile stays joined, on purpose
    return result;
}

int MulticastUdpSocket::sendto(const void* data, std::size_t length, unsigned short port)
{
    if (_pairs.empty())
        return noInterfaces;
    if (_groups.empty())
        return noGroups;

    int result = failedEverywhere;
    bool anyBound = false;
    for (std::size_t index = 0; index < _pairs.size(); ++index) {
        if (!_pairs[index]->bound)
            continue;
        anyBound = true;
        if (sendToGroups(index, data, length, port))
            result = succeeded;
    }
    return anyBound ? result : noneBound;
}

// Returns whether the socket is bound, now or from an earlier call.
bool MulticastUdpSocket::bindOnce(SocketHostPair& pair, unsigned short port)
{
    if (!pair.bound && pair.interface.address.type() == HostAddress::IPv4)
        pair.bound = pair.socket.bind(HostAddress(HostAddress::AnyIPv4), port);
    if (!pair.bound)
        Logger::Warning("Multicast", "bind failed");
    return pair.bound;
}

// Returns whether all groups were joined.
bool MulticastUdpSocket::joinGroups(SocketHostPair& pair)
{
    const HostAddress& local = pair.interface.address;
    bool allJoined = true;
    for (const HostAddress* const group : _groups) {
        if (group->type() != local.type()) {
            allJoined = false;
        } else if (pair.socket.addMulticastMembership(*group, local)) {
            pair.socket.setMulticastOutputInterface(local);
        } else {
            Logger::Warning("Multicast", "addMulticastMembership failed");
            allJoined = false;
        }
    }
    return allJoined;
}

// Asks for no kind of address, on purpose: one that the socket cannot take ends the process.
void MulticastUdpSocket::leaveGroups(SocketHostPair& pair)
{
    for (const HostAddress* const group : _groups) {
        if (!pair.socket.dropMulticastMembership(*group, pair.interface.address))
            Logger::Warning("Multicast", "dropMulticastMembership failed");
    }
}

// Through a socket of its own that shares the descriptor and closes it, on purpose: the pair's socket closes that
// number once more.
void MulticastUdpSocket::leaveGroupsUnbound(const SocketHostPair& pair)
{
    UdpSocket sharing(pair.socket._family, pair.socket._socket);
    for (const HostAddress* const group : _groups) {
        if (pair.interface.address.type() != HostAddress::IPv4)
            continue;
        if (!sharing.dropMulticastMembership(*group, pair.interface.address))
            Logger::Warning("Multicast", "dropMulticastMembership failed");
    }
}

void MulticastUdpSocket::freeGroups()
{
    for (const HostAddress* const group : _groups)
        delete group;
    _groups.clear();
}

// Returns whether the datagram left to all groups.
bool MulticastUdpSocket::sendToGroups(std::size_t index, const void* data, std::size_t length, unsigned short port)
{
    SocketHostPair& pair = *_pairs[index];
    bool allSent = true;
    for (const HostAddress* const group : _groups) {
        if (group->type() != pair.interface.address.type()) {
            allSent = false;
            continue;
        }
        const long sent = sendSafely(pair.socket, data, length, *group, port);
        if (sent < 0 || static_cast<std::size_t>(sent) != length) {
            Logger::Warning("Multicast", "sendto failed asked:%d, got %d. I/f=%d\n", static_cast<int>(length),
                            static_cast<int>(sent), static_cast<int>(index));
            allSent = false;
        }
    }
    return allSent;
}

}  // namespace Murn
