// Datagram sockets.
#include "UdpSocket.h"

namespace Murn {

UdpSocket::UdpSocket(Socket::Family family) : Socket(family, Socket::Datagram) {}

UdpSocket::UdpSocket(Socket::Family family, int fd) : Socket(fd)
{
    _family = family;
}

UdpSocket::~UdpSocket() = default;

bool UdpSocket::bind(const HostAddress& address, unsigned short port)
{
    return Socket::bind(address, port);
}

long UdpSocket::sendto(const void* data, unsigned long size, const HostAddress& to, unsigned short port)
{
    return Socket::sendto(data, size, to, port);
}

long UdpSocket::recvfrom(void* buffer, unsigned long size, HostAddress* from, unsigned short* port)
{
    return Socket::recvfrom(buffer, size, from, port);
}

bool UdpSocket::addMulticastMembership(const HostAddress& group, const HostAddress& localAddress)
{
    return Socket::addMulticastMembership(group, localAddress);
}

bool UdpSocket::dropMulticastMembership(const HostAddress& group, const HostAddress& localAddress)
{
    return Socket::dropMulticastMembership(group, localAddress);
}

void UdpSocket::setMulticastOutputInterface(const HostAddress& address)
{
    Socket::setMulticastOutputInterface(address);
}

HostAddress UdpSocket::multicastOutputInterface() const
{
    return Socket::multicastOutputInterface();
}

void UdpSocket::setMulticastTTL(short ttl)
{
    Socket::setMulticastTTL(ttl);
}

short UdpSocket::multicastTTL() const
{
    return Socket::multicastTTL();
}

void UdpSocket::setMulticastLoop(bool on)
{
    Socket::setMulticastLoop(on);
}

bool UdpSocket::multicastLoop() const
{
    return Socket::multicastLoop();
}

}  // namespace Murn
