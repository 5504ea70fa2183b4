// Multicast, from one interface to a group and back. A unit is one datagram of 64 bytes, so a second has a thousand
// million nanoseconds' worth of them.
//
//   sent               MulticastUdpSocket::sendto                against sendto on one socket, with nobody who listens
//   received           MulticastUdpSocket::recvfrom              against recvfrom on one socket
//   sent and received  both in turns                             against both on one socket
//
// It runs in a network namespace of its own where it may make one, and else on the machine's interfaces, where other
// machines get these datagrams too, and each socket receives what was sent on each interface.
#include <arpa/inet.h>
#include <kxPAL/MulticastUdpSocket.h>
#include <kxPAL/NetworkInterface.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "NetworkLab.h"
#include "Ratio.h"

namespace {

constexpr long messageSize = 64;
constexpr long batch = 64;  // fewer than a socket holds
constexpr unsigned short libraryPort = 5901;
constexpr unsigned short floorPort = 5902;
constexpr unsigned short silentPort = 5903;
const std::string group = "239.1.2.3";

std::vector<Murn::NetworkInterfaceInfo> listInterfaces()
{
    const Murn::NetworkInterface enumeration;
    std::vector<Murn::NetworkInterfaceInfo> interfaces;
    Murn::NetworkInterface::getInterfaces(interfaces);
    return interfaces;
}

/// A registered socket of the library, which sends what it is given on each interface.
class LibrarySocket {
public:
    LibrarySocket()
    {
        Murn::HostAddress address(group);
        require(_socket.registerOnMulticastGroup({&address}, libraryPort, false) == 0, "the group is joined");
    }

    bool send(unsigned short port) { return _socket.sendto(_message, messageSize, port) == 0; }
    long receive() { return _socket.recvfrom(_buffer, messageSize, &_from, &_fromPort); }

private:
    Murn::MulticastUdpSocket _socket;
    char _message[messageSize] = "message";
    char _buffer[messageSize] = {};
    Murn::HostAddress _from;
    unsigned short _fromPort = 0;
};

/// The same with bare calls on the first interface.
class FloorSocket {
public:
    FloorSocket() : _fd(::socket(AF_INET, SOCK_DGRAM, 0))
    {
        const int one = 1;
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(floorPort);
        ip_mreq membership{};
        std::size_t length = sizeof membership.imr_interface;
        require(listInterfaces().front().address.toBytes(&membership.imr_interface, length), "there is an interface");
        ::inet_pton(AF_INET, group.c_str(), &membership.imr_multiaddr);
        require(::setsockopt(_fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) == 0 &&
                    ::bind(_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                    ::setsockopt(_fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) == 0 &&
                    ::setsockopt(_fd, IPPROTO_IP, IP_MULTICAST_IF, &membership.imr_interface,
                                 sizeof membership.imr_interface) == 0,
                "a bare socket joins the group");
        _to.sin_family = AF_INET;
        _to.sin_addr = membership.imr_multiaddr;
    }
    ~FloorSocket() { ::close(_fd); }

    FloorSocket(const FloorSocket&) = delete;
    FloorSocket& operator=(const FloorSocket&) = delete;

    bool send(unsigned short port)
    {
        _to.sin_port = htons(port);
        return ::sendto(_fd, _message, messageSize, 0, reinterpret_cast<const sockaddr*>(&_to), sizeof _to) ==
               messageSize;
    }
    long receive()
    {
        socklen_t length = sizeof _from;
        return ::recvfrom(_fd, _buffer, messageSize, 0, reinterpret_cast<sockaddr*>(&_from), &length);
    }

private:
    int _fd;
    sockaddr_in _to{};
    sockaddr_in _from{};
    char _message[messageSize] = "message";
    char _buffer[messageSize] = {};
};

template <typename Socket>
void send(benchmark::State& state)
{
    Socket socket;
    bool all = true;
    for (auto _ : state)
        all = socket.send(silentPort) && all;
    require(all, "every datagram was sent");
}

template <typename Socket, unsigned short port>
void receive(benchmark::State& state)
{
    Socket socket;
    long received = 0;
    while (state.KeepRunningBatch(batch)) {
        state.PauseTiming();
        for (long number = 0; number < batch; ++number)
            require(socket.send(port), "every datagram was sent");
        state.ResumeTiming();
        for (long number = 0; number < batch; ++number)
            received += socket.receive();
    }
    require(received == messageSize * static_cast<long>(state.iterations()), "every datagram arrived");
}

template <typename Socket, unsigned short port>
void sendAndReceive(benchmark::State& state)
{
    Socket socket;
    long received = 0;
    for (auto _ : state) {
        socket.send(port);
        received += socket.receive();
    }
    require(received == messageSize * static_cast<long>(state.iterations()), "every datagram arrived");
}

}  // namespace

int main(int argc, char** argv)
{
    const NetworkLab lab({1, 1});
    if (lab.reason().empty())
        require(lab.enter(0), "the lab can be entered");
    else
        static_cast<void>(std::fprintf(stderr, "On this machine's own interfaces: %s.\n", lab.reason().c_str()));
    if (listInterfaces().empty()) {
        static_cast<void>(std::fprintf(stderr, "Multicast is not measured: this machine has no network interface.\n"));
        return 0;
    }

    RatioTable table;
    table.compare("MulticastUdpSocket: a datagram sent", send<LibrarySocket>, send<FloorSocket>);
    table.compare("MulticastUdpSocket: a datagram received", receive<LibrarySocket, libraryPort>,
                  receive<FloorSocket, floorPort>);
    table.compare("MulticastUdpSocket: a datagram sent and received", sendAndReceive<LibrarySocket, libraryPort>,
                  sendAndReceive<FloorSocket, floorPort>);
    return table.run(argc, argv);
}
