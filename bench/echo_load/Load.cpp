// Clients that keep an echo server busy.
#include "Load.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace {

[[noreturn]] void giveUp(const char* what)
{
    std::perror(what);
    std::exit(1);
}

int connectTo(unsigned short port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (fd == -1 || ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0 ||
        ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        giveUp("echo_load: cannot connect");
    return fd;
}

// Letters from a to z, so that a piece in the wrong place shows.
std::string alphabet(std::size_t size)
{
    std::string text(size, '\0');
    for (std::size_t at = 0; at < size; ++at)
        text[at] = static_cast<char>('a' + at % 26);
    return text;
}

}  // namespace

Load::Load(unsigned short port, std::size_t connections, std::size_t messageSize)
    : _message(alphabet(messageSize)), _part(messageSize, '\0'), _poller(::epoll_create1(EPOLL_CLOEXEC)), _busy(0)
{
    for (std::size_t index = 0; index < connections; ++index) {
        _connections.push_back({connectTo(port), 0, {}});
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = index;
        if (::epoll_ctl(_poller, EPOLL_CTL_ADD, _connections.back().fd, &event) != 0)
            giveUp("echo_load: cannot watch a connection");
    }
}

Load::~Load()
{
    for (const Connection& connection : _connections)
        ::close(connection.fd);
    ::close(_poller);
}

void Load::run(Clock::duration duration, bool warmUp)
{
    const auto timesBefore = static_cast<std::ptrdiff_t>(_times.size());
    const Clock::time_point begin = Clock::now();
    for (Connection& connection : _connections)
        send(connection);
    std::array<epoll_event, 256> events{};
    for (std::size_t inFlight = _connections.size(); inFlight > 0;) {
        const int ready = ::epoll_wait(_poller, events.data(), events.size(), 10000);
        if (ready <= 0)
            giveUp("echo_load: no answer for ten seconds");
        const bool goesOn = Clock::now() - begin < duration;
        for (int index = 0; index < ready; ++index) {
            Connection& connection = _connections[events[static_cast<std::size_t>(index)].data.u64];
            if (!receive(connection))
                continue;
            if (goesOn)
                send(connection);
            else
                --inFlight;
        }
    }
    if (warmUp)
        _times.erase(_times.begin() + timesBefore, _times.end());
    else
        _busy += Clock::now() - begin;
}

void Load::send(Connection& connection)
{
    connection.received = 0;
    connection.sentAt = Clock::now();
    const ssize_t sent = ::send(connection.fd, _message.data(), _message.size(), MSG_NOSIGNAL);
    if (sent != static_cast<ssize_t>(_message.size()))
        giveUp("echo_load: cannot send");
}

// Returns whether the answer is complete now.
bool Load::receive(Connection& connection)
{
    const std::size_t missing = _message.size() - connection.received;
    const ssize_t count = ::recv(connection.fd, _part.data(), missing, 0);
    if (count <= 0)
        giveUp("echo_load: a connection has ended");
    const auto size = static_cast<std::size_t>(count);
    if (_message.compare(connection.received, size, _part, 0, size) != 0) {
        static_cast<void>(std::fprintf(stderr, "echo_load: an answer is not the echo\n"));
        std::exit(1);
    }
    connection.received += size;
    if (connection.received < _message.size())
        return false;
    _times.push_back(std::chrono::duration<float, std::micro>(Clock::now() - connection.sentAt).count());
    return true;
}

double Load::requestsPerSecond() const
{
    return static_cast<double>(_times.size()) / std::chrono::duration<double>(_busy).count();
}

double Load::microseconds(double share)
{
    const auto place = static_cast<std::ptrdiff_t>(share * static_cast<double>(_times.size() - 1));
    std::nth_element(_times.begin(), _times.begin() + place, _times.end());
    return static_cast<double>(_times[static_cast<std::size_t>(place)]);
}

StuckClients::StuckClients(unsigned short port, std::size_t connections)
{
    const std::string data = alphabet(std::size_t{1024} * 1024);
    for (std::size_t index = 0; index < connections; ++index) {
        const int fd = connectTo(port);
        _fds.push_back(fd);
        pollfd writable{fd, POLLOUT, 0};
        while (::poll(&writable, 1, 300) == 1) {
            if (::send(fd, data.data(), data.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0 && errno != EAGAIN)
                giveUp("echo_load: a client that does not read was dropped already");
        }
    }
}

StuckClients::~StuckClients()
{
    for (const int fd : _fds)
        ::close(fd);
}
