// Replaceable functions: sockets, descriptors and name resolution. See Interpose.h.
#ifndef KXPAL_TESTS_INTERPOSE_SOCKETS_H
#define KXPAL_TESTS_INTERPOSE_SOCKETS_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Interpose.h"

#define KXPAL_INTERPOSE_SOCKETS(X)                                                                            \
    X(int, socket, (int domain, int type, int protocol), (domain, type, protocol), noexcept)                  \
    X(int, bind, (int fd, const sockaddr* address, socklen_t length), (fd, address, length), noexcept)        \
    X(int, connect, (int fd, const sockaddr* address, socklen_t length), (fd, address, length), )             \
    X(int, listen, (int fd, int backlog), (fd, backlog), noexcept)                                            \
    X(int, accept, (int fd, sockaddr* address, socklen_t* length), (fd, address, length), )                   \
    X(ssize_t, send, (int fd, const void* data, size_t length, int flags), (fd, data, length, flags), )       \
    X(ssize_t, recv, (int fd, void* buffer, size_t length, int flags), (fd, buffer, length, flags), )         \
    X(ssize_t, sendto,                                                                                        \
      (int fd, const void* data, size_t length, int flags, const sockaddr* address, socklen_t addressLength), \
      (fd, data, length, flags, address, addressLength), )                                                    \
    X(ssize_t, recvfrom,                                                                                      \
      (int fd, void* buffer, size_t length, int flags, sockaddr* address, socklen_t* addressLength),          \
      (fd, buffer, length, flags, address, addressLength), )                                                  \
    X(int, select, (int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* limit),      \
      (count, readable, writable, exceptional, limit), )                                                      \
    X(int, setsockopt, (int fd, int level, int option, const void* value, socklen_t length),                  \
      (fd, level, option, value, length), noexcept)                                                           \
    X(int, getsockopt, (int fd, int level, int option, void* value, socklen_t* length),                       \
      (fd, level, option, value, length), noexcept)                                                           \
    X(int, getsockname, (int fd, sockaddr* address, socklen_t* length), (fd, address, length), noexcept)      \
    X(int, getpeername, (int fd, sockaddr* address, socklen_t* length), (fd, address, length), noexcept)      \
    X(int, shutdown, (int fd, int how), (fd, how), noexcept)                                                  \
    X(int, pipe2, (int ends[2], int flags), (ends, flags), noexcept)                                          \
    X(ssize_t, write, (int fd, const void* data, size_t length), (fd, data, length), )                        \
    X(int, close, (int fd), (fd), )                                                                           \
    X(int, gethostname, (char* name, size_t length), (name, length), noexcept)                                \
    X(int, getaddrinfo, (const char* name, const char* service, const addrinfo* hints, addrinfo** result),    \
      (name, service, hints, result), )                                                                       \
    X(void, freeaddrinfo, (addrinfo * list), (list), noexcept)                                                \
    X(int, getifaddrs, (ifaddrs * *list), (list), noexcept)                                                   \
    X(void, freeifaddrs, (ifaddrs * list), (list), noexcept)                                                  \
    X(const char*, inet_ntop, (int family, const void* address, char* buffer, socklen_t length),              \
      (family, address, buffer, length), noexcept)

// The third argument of these two is optional and of any type; a replacement sees it as a pointer.
#define KXPAL_INTERPOSE_VARIADIC_SOCKETS(X)                  \
    X(int, fcntl, (int fd, int command, void* argument), , ) \
    X(int, ioctl, (int fd, unsigned long request, void* argument), , )

namespace interpose {
KXPAL_INTERPOSE_SOCKETS(KXPAL_INTERPOSE_DECLARE)
KXPAL_INTERPOSE_VARIADIC_SOCKETS(KXPAL_INTERPOSE_DECLARE)
}  // namespace interpose

#endif
