// Two UDP sockets of one process talk over the loopback.
#include <kxPAL/HostAddress.h>
#include <kxPAL/UdpSocket.h>

#include <cstring>

int main()
{
    // [exchange]
    const Murn::HostAddress loopback(Murn::HostAddress::LoopbackIPv4);
    Murn::UdpSocket receiver(Murn::Socket::IPv4);
    Murn::UdpSocket sender(Murn::Socket::IPv4);
    if (!receiver.bind(loopback, 0) || !sender.bind(loopback, 0))  // port 0: the system chooses
        return 1;

    if (sender.sendto("ping", 4, loopback, receiver.localPort()) != 4)
        return 1;

    char buffer[1500];
    Murn::HostAddress from;
    unsigned short port = 0;
    const long received = receiver.recvfrom(buffer, sizeof buffer, &from, &port);  // waits: the socket is blocking
    // [end]

    const bool isWhole = received == 4 && std::memcmp(buffer, "ping", 4) == 0;
    return isWhole && from == loopback && port == sender.localPort() ? 0 : 1;
}
