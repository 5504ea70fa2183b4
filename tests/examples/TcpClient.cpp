// A client on plain sockets, so that the library is not tested with itself.
#include "TcpClient.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <utility>

namespace {

constexpr timeval limit{30, 0};

union Address {
    sockaddr any;
    sockaddr_in ipv4;
    sockaddr_in6 ipv6;
};

// Fills in the loopback address of the family. Returns its length.
socklen_t loopback(Address& address, int family, unsigned short port)
{
    address = {};
    if (family == AF_INET6) {
        address.ipv6.sin6_family = AF_INET6;
        address.ipv6.sin6_addr = in6addr_loopback;
        address.ipv6.sin6_port = htons(port);
        return sizeof address.ipv6;
    }
    address.ipv4.sin_family = AF_INET;
    address.ipv4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.ipv4.sin_port = htons(port);
    return sizeof address.ipv4;
}

}  // namespace

TcpClient::TcpClient(unsigned short port) : TcpClient(port, AF_INET) {}

TcpClient::TcpClient(unsigned short port, int family, int receiveBuffer)
    : _fd(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    if (_fd == -1)
        return;
    ::setsockopt(_fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(_fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (receiveBuffer != 0)
        ::setsockopt(_fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    Address address;
    const socklen_t length = loopback(address, family, port);
    if (::connect(_fd, &address.any, length) != 0)
        close();
}

TcpClient::TcpClient(TcpClient&& other) noexcept : _fd(std::exchange(other._fd, -1)) {}

TcpClient::~TcpClient()
{
    close();
}

bool TcpClient::send(const std::string& data) const
{
    std::size_t sent = 0;
    while (sent < data.size()) {
        const ssize_t count = ::send(_fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

std::string TcpClient::receive(std::size_t size) const
{
    std::string data(size, '\0');
    std::size_t received = 0;
    while (received < size) {
        const ssize_t count = ::recv(_fd, data.data() + received, size - received, 0);
        if (count <= 0)
            break;
        received += static_cast<std::size_t>(count);
    }
    data.resize(received);
    return data;
}

bool TcpClient::echoes(const std::string& data) const
{
    return send(data) && receive(data.size()) == data;
}

std::size_t TcpClient::sendUntilStuck(const std::string& data) const
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds quiet(1);

    std::size_t taken = 0;
    auto lastProgress = Clock::now();
    while (Clock::now() - lastProgress < quiet) {
        const std::size_t at = taken % data.size();
        const ssize_t count = ::send(_fd, data.data() + at, data.size() - at, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count > 0) {
            taken += static_cast<std::size_t>(count);
            lastProgress = Clock::now();
        } else if (count == -1 && errno == EAGAIN) {
            pollfd writable{_fd, POLLOUT, 0};
            ::poll(&writable, 1, 100);
        } else {
            break;
        }
    }
    return taken;
}

void TcpClient::shutDownSending() const
{
    ::shutdown(_fd, SHUT_WR);
}

bool TcpClient::waitForEnd() const
{
    char part[16 * 1024];
    ssize_t count = 0;
    do
        count = ::recv(_fd, part, sizeof part, 0);
    while (count > 0);
    return count == 0 || errno != EAGAIN;
}

void TcpClient::reset()
{
    const linger abortive{1, 0};
    ::setsockopt(_fd, SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
    close();
}

void TcpClient::close()
{
    if (_fd != -1)
        ::close(_fd);
    _fd = -1;
}

bool hasLoopback(int family)
{
    const int fd = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    Address address;
    const socklen_t length = loopback(address, family, 0);
    const bool usable = fd != -1 && ::bind(fd, &address.any, length) == 0;
    if (fd != -1)
        ::close(fd);
    return usable;
}

std::string pattern(std::size_t size, unsigned int seed)
{
    std::string text(size, '\0');
    std::uint32_t state = seed * 2654435761U + 12345U;
    for (char& byte : text) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24);
    }
    return text;
}
