// Bare sockets on the loopback, for the benchmarks of the network.
#ifndef KXPAL_BENCH_LOOPBACK_H
#define KXPAL_BENCH_LOOPBACK_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

#include "Ratio.h"

/// 127.0.0.1 with a port in host byte order.
inline sockaddr_in loopbackAddress(unsigned short port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

inline unsigned short portOf(int fd)
{
    sockaddr_in address{};
    socklen_t length = sizeof address;
    require(::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0, "a socket has an address");
    return ntohs(address.sin_port);
}

/// A new socket, bound to a port that the system chooses.
inline int boundSocket(int type)
{
    const int fd = ::socket(AF_INET, type, 0);
    const sockaddr_in address = loopbackAddress(0);
    require(fd != -1 && ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
            "a socket can be bound");
    return fd;
}

inline int listeningSocket()
{
    const int fd = boundSocket(SOCK_STREAM);
    require(::listen(fd, 128) == 0, "a socket can listen");
    return fd;
}

/// A client that waits for nothing when it is closed, so that no port stays taken, and sends small packets at once.
inline int connectedSocket(unsigned short port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in address = loopbackAddress(port);
    require(fd != -1 && ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
            "a server on the loopback can be connected to");
    const linger discard = {1, 0};
    const int one = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &discard, sizeof discard);
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    return fd;
}

/// The two ends of a TCP connection.
inline std::pair<int, int> connectedPair()
{
    const int server = listeningSocket();
    const int one = connectedSocket(portOf(server));
    const int other = ::accept(server, nullptr, nullptr);
    require(other != -1, "a connection can be accepted");
    ::close(server);
    return {one, other};
}

#endif
