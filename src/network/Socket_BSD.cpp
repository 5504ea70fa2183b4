// Sockets on the BSD calls, and the option of TcpSocket that is one of those calls.
#include "Socket.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Check.h"
#include "TcpSocket.h"
#include "network/Descriptor.h"

namespace Murn {

namespace {

// Room for a socket address of either family.
union SocketAddress {
    sockaddr_in6 ipv6;
    sockaddr_in ipv4;
    sockaddr any;
};
static_assert(sizeof(SocketAddress) == 28, "the room that the platform is told of");

using NameCall = int (*)(int, sockaddr*, socklen_t*);

// Asks for the socket's own or its peer's address, whichever the call gives.
bool getName(NameCall call, int fd, SocketAddress& address)
{
    address = {};
    socklen_t length = sizeof address;
    return call(fd, &address.any, &length) == 0;
}

sockaddr_in withPort(sockaddr_in address, unsigned short port)
{
    address.sin_port = htons(port);
    return address;
}

sockaddr_in6 withPort(sockaddr_in6 address, unsigned short port)
{
    address.sin6_port = htons(port);
    return address;
}

template <typename Address>
const sockaddr* generic(const Address& address)
{
    return reinterpret_cast<const sockaddr*>(&address);
}

// Gives the fatal checks below the short name that their text promises.
int Error()
{
    return Socket::Error();
}

// All options but the memberships end the process when the platform refuses them.
template <typename Value>
void setOption(int fd, int level, int option, const Value& value)
{
    if (::setsockopt(fd, level, option, &value, sizeof value) != 0)
        MURN_CHECK(!Error());
}

// The value keeps what the call does not write.
template <typename Value>
void getOption(int fd, int level, int option, Value& value)
{
    socklen_t length = sizeof value;
    if (::getsockopt(fd, level, option, &value, &length) != 0)
        MURN_CHECK(!Error());
}

int getIntOption(int fd, int level, int option)
{
    int value = 0;
    getOption(fd, level, option, value);
    return value;
}

template <typename Membership>
bool setMembership(int fd, int level, int option, const Membership& membership)
{
    return ::setsockopt(fd, level, option, &membership, sizeof membership) == 0;
}

}  // namespace

Socket::Socket(int fd) : _family(static_cast<Family>(0)), _socket(fd) {}

Socket::Socket(Family family, Type type) : _family(family), _socket(::socket(family, type, 0))
{
    MURN_CHECK(_socket != -1);
}

Socket::~Socket()
{
    close();
}

bool Socket::close()
{
    const int fd = takeDescriptor(_socket);
    if (fd == -1)
        return false;
    ::shutdown(fd, SHUT_RDWR);  // refused on a socket that is not connected, which does not matter
    return ::close(fd) == 0;
}

bool Socket::connect(const HostAddress& server, unsigned short port)
{
    if (_family == IPv4) {
        MURN_CHECK(server.type() == HostAddress::IPv4);
        const sockaddr_in address = withPort(server._address.ipv4, port);
        return ::connect(_socket, generic(address), sizeof address) == 0;
    }
    if (_family == IPv6) {
        MURN_CHECK(server.type() == HostAddress::IPv6);
        const sockaddr_in6 address = withPort(server._address.ipv6, port);
        return ::connect(_socket, generic(address), sizeof address) == 0;
    }
    return false;
}

bool Socket::bind(const HostAddress& address, unsigned short port)
{
    if (_family == IPv4) {
        MURN_CHECK(address.type() == HostAddress::IPv4);
        const sockaddr_in local = withPort(address._address.ipv4, port);
        return ::bind(_socket, generic(local), sizeof local) == 0;
    }
    if (_family == IPv6) {
        MURN_CHECK(address.type() == HostAddress::IPv6);
        const sockaddr_in6 local = withPort(address._address.ipv6, port);
        return ::bind(_socket, generic(local), sizeof local) == 0;
    }
    return false;
}

bool Socket::listen()
{
    return ::listen(_socket, 128) == 0;
}

TcpSocket* Socket::accept()
{
    const int fd = acceptFd();
    if (fd == -1)
        return nullptr;
    // The new socket opens a descriptor, which is then overwritten and stays open: kept on purpose.
    TcpSocket* const accepted = new TcpSocket(_family);
    static_cast<Socket*>(accepted)->_socket = fd;
    return accepted;
}

int Socket::acceptFd()
{
    return ::accept(_socket, nullptr, nullptr);
}

long Socket::recv(void* buffer, std::size_t length)
{
    return ::recv(_socket, buffer, length, 0);
}

long Socket::send(const void* data, std::size_t length)
{
    return ::send(_socket, data, length, 0);
}

long Socket::sendto(const void* data, std::size_t length, const HostAddress& to, unsigned short port)
{
    const int fd = readDescriptor(_socket);
    if (_family == IPv4) {
        MURN_CHECK(to.type() == HostAddress::IPv4);
        const sockaddr_in address = withPort(to._address.ipv4, port);
        return ::sendto(fd, data, length, 0, generic(address), sizeof address);
    }
    if (_family == IPv6) {
        MURN_CHECK(to.type() == HostAddress::IPv6);
        const sockaddr_in6 address = withPort(to._address.ipv6, port);
        return ::sendto(fd, data, length, 0, generic(address), sizeof address);
    }
    return 0;
}

long Socket::recvfrom(void* buffer, std::size_t length, HostAddress* from, unsigned short* port)
{
    const int fd = readDescriptor(_socket);
    if (from == nullptr)
        return ::recvfrom(fd, buffer, length, 0, nullptr, nullptr);

    // Bytes that the new kind of address does not use are to be zero, so an address of another kind goes first.
    const HostAddress::Type type = _family == IPv4 ? HostAddress::IPv4 : HostAddress::IPv6;
    if (from->_type != type)
        from->_address = {};

    socklen_t room = sizeof from->_address;
    auto* const sender = reinterpret_cast<sockaddr*>(&from->_address);
    const long received = ::recvfrom(fd, buffer, length, 0, sender, &room);
    // A failed call leaves the room as it was, and one without a sender's address makes it 0.
    if (room != 0 && room < sizeof from->_address)
        std::memset(reinterpret_cast<char*>(sender) + room, 0, sizeof from->_address - room);

    // Set whatever came of the call, on purpose.
    from->_type = type;
    if (port != nullptr)
        *port = ntohs(from->_address.ipv4.sin_port);  // at the same place in both families
    return received;
}

HostAddress Socket::localAddress() const
{
    SocketAddress address;
    return getName(::getsockname, _socket, address) ? HostAddress(&address.any) : HostAddress();
}

HostAddress Socket::remoteAddress() const
{
    SocketAddress address;
    return getName(::getpeername, _socket, address) ? HostAddress(&address.any) : HostAddress();
}

unsigned short Socket::localPort() const
{
    SocketAddress address;
    return getName(::getsockname, _socket, address) ? GetPort(&address.any) : static_cast<unsigned short>(0);
}

unsigned short Socket::remotePort() const
{
    SocketAddress address;
    return getName(::getpeername, _socket, address) ? GetPort(&address.any) : static_cast<unsigned short>(0);
}

void Socket::setSocketBroadcast(bool on)
{
    setOption(_socket, SOL_SOCKET, SO_BROADCAST, static_cast<int>(on));
}

bool Socket::socketBroadcast() const
{
    return getIntOption(_socket, SOL_SOCKET, SO_BROADCAST) != 0;
}

void Socket::setSocketReuseAddr(bool on)
{
    setOption(_socket, SOL_SOCKET, SO_REUSEADDR, static_cast<int>(on));
}

bool Socket::socketReuseAddr() const
{
    return getIntOption(_socket, SOL_SOCKET, SO_REUSEADDR) != 0;
}

void Socket::setSendBufferSize(int size)
{
    const int before = getSendBufferSize();
    setOption(_socket, SOL_SOCKET, SO_SNDBUF, size >> 1);  // the platform doubles what it is given
    std::printf("%%%%Set Send buffer %d, %d => %d\n", size, before, getSendBufferSize());
}

int Socket::getSendBufferSize() const
{
    return getIntOption(_socket, SOL_SOCKET, SO_SNDBUF);
}

void Socket::setReceiveBufferSize(int size)
{
    const int before = getReceiveBufferSize();
    setOption(_socket, SOL_SOCKET, SO_RCVBUF, size >> 1);  // the platform doubles what it is given
    std::printf("%%%%Set Receive buffer %d, %d => %d\n", size, before, getReceiveBufferSize());
}

int Socket::getReceiveBufferSize() const
{
    return getIntOption(_socket, SOL_SOCKET, SO_RCVBUF);
}

int Socket::getSendBufferEnRoute() const
{
    int queued = 0;
    const int error = ::ioctl(_socket, SIOCOUTQ, &queued);
    MURN_CHECK(!error);
    return queued;
}

// The widths and forms of the multicast options below are kept on purpose: the hops in 16 bits, the loop flag in one
// byte, an IPv6 interface as an address and not as an index.

void Socket::setMulticastOutputInterface(const HostAddress& localAddress)
{
    if (_family == IPv4) {
        MURN_CHECK(localAddress.type() == HostAddress::IPv4);
        setOption(_socket, IPPROTO_IP, IP_MULTICAST_IF, localAddress._address.ipv4.sin_addr);
    } else if (_family == IPv6) {
        MURN_CHECK(localAddress.type() == HostAddress::IPv6);
        setOption(_socket, IPPROTO_IPV6, IPV6_MULTICAST_IF, localAddress._address.ipv6.sin6_addr);
    } else {
        MURN_CHECK(0);
    }
}

HostAddress Socket::multicastOutputInterface() const
{
    HostAddress address(HostAddress::Null);
    if (_family == IPv4) {
        address._type = HostAddress::IPv4;
        getOption(_socket, IPPROTO_IP, IP_MULTICAST_IF, address._address.ipv4.sin_addr);
    } else if (_family == IPv6) {
        address._type = HostAddress::IPv6;
        getOption(_socket, IPPROTO_IPV6, IPV6_MULTICAST_IF, address._address.ipv6.sin6_addr);
    }
    return address;
}

void Socket::setMulticastTTL(short ttl)
{
    if (_family == IPv4)
        setOption(_socket, IPPROTO_IP, IP_MULTICAST_TTL, ttl);
    else if (_family == IPv6)
        setOption(_socket, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, ttl);
    else
        MURN_CHECK(0);
}

short Socket::multicastTTL() const
{
    short ttl = -1;  // all ones, of which the platform may replace only a part
    if (_family == IPv4)
        getOption(_socket, IPPROTO_IP, IP_MULTICAST_TTL, ttl);
    else if (_family == IPv6)
        getOption(_socket, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, ttl);
    else
        MURN_CHECK(0);
    return ttl;
}

void Socket::setMulticastLoop(bool on)
{
    const auto flag = static_cast<unsigned char>(on);
    if (_family == IPv4)
        setOption(_socket, IPPROTO_IP, IP_MULTICAST_LOOP, flag);
    else if (_family == IPv6)
        setOption(_socket, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, flag);
    else
        MURN_CHECK(0);
}

bool Socket::multicastLoop() const
{
    unsigned char flag = 0;
    if (_family == IPv4)
        getOption(_socket, IPPROTO_IP, IP_MULTICAST_LOOP, flag);
    else if (_family == IPv6)
        getOption(_socket, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, flag);
    else
        MURN_CHECK(0);
    return flag != 0;
}

bool Socket::addMulticastMembership(const HostAddress& groupAddress, const HostAddress& localAddress)
{
    if (_family == IPv4) {
        MURN_CHECK(groupAddress.type() == HostAddress::IPv4);
        MURN_CHECK(localAddress.type() == HostAddress::IPv4);
        const ip_mreq membership{groupAddress._address.ipv4.sin_addr, localAddress._address.ipv4.sin_addr};
        return setMembership(_socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, membership);
    }
    if (_family == IPv6) {
        MURN_CHECK(groupAddress.type() == HostAddress::IPv6);
        MURN_CHECK(localAddress.type() == HostAddress::IPv6);
        const ipv6_mreq membership{groupAddress._address.ipv6.sin6_addr, 0};
        return setMembership(_socket, IPPROTO_IPV6, IPV6_JOIN_GROUP, membership);
    }
    return false;
}

bool Socket::dropMulticastMembership(const HostAddress& groupAddress, const HostAddress& localAddress)
{
    if (_family == IPv4) {
        MURN_CHECK(groupAddress.type() == HostAddress::IPv4 && localAddress.type() == HostAddress::IPv4);
        const ip_mreq membership{groupAddress._address.ipv4.sin_addr, localAddress._address.ipv4.sin_addr};
        return setMembership(_socket, IPPROTO_IP, IP_DROP_MEMBERSHIP, membership);
    }
    if (_family == IPv6) {
        MURN_CHECK(groupAddress.type() == HostAddress::IPv6 && localAddress.type() == HostAddress::IPv6);
        const ipv6_mreq membership{groupAddress._address.ipv6.sin6_addr, 0};
        return setMembership(_socket, IPPROTO_IPV6, IPV6_LEAVE_GROUP, membership);
    }
    return false;
}

int Socket::setSocketNonBlocking(bool on)
{
    int flags = ::fcntl(_socket, F_GETFL);
    if (flags == -1)
        flags = 0;
    return ::fcntl(_socket, F_SETFL, on ? flags | O_NONBLOCK : flags & ~O_NONBLOCK);
}

bool Socket::socketNonBlocking() const
{
    const int flags = ::fcntl(_socket, F_GETFL);
    return flags != -1 && (flags & O_NONBLOCK) != 0;
}

int Socket::Error()
{
    const int error = errno;
    if (error != 0) {
        std::printf("socket Error :%s\n", std::strerror(error));
        errno = error;  // whatever became of the line, so that asking again gives the same
    }
    return error;
}

unsigned short Socket::GetPort(const sockaddr* address)
{
    if (address->sa_family == AF_INET)
        return ntohs(reinterpret_cast<const sockaddr_in*>(address)->sin_port);
    if (address->sa_family == AF_INET6)
        return ntohs(reinterpret_cast<const sockaddr_in6*>(address)->sin6_port);
    return 0;
}

Socket::Family Socket::AddressFamily(const HostAddress& address)
{
    switch (address.type()) {
        case HostAddress::IPv4:
            return IPv4;
        case HostAddress::IPv6:
            return IPv6;
        default:
            return static_cast<Family>(0);
    }
}

std::string Socket::HostName()
{
    char name[512] = {};
    ::gethostname(name, sizeof name);
    // A name that fills the buffer comes without a terminator.
    return std::string(name, ::strnlen(name, sizeof name));
}

void TcpSocket::setLowDelay(bool on)
{
    setOption(_socket, IPPROTO_TCP, TCP_NODELAY, static_cast<int>(on));
}

}  // namespace Murn
