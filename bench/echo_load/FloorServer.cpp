// An echo server on bare system calls: what there is to reach.
#include "FloorServer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t bufferSize = 64 * 1024;

// Returns whether the connection goes on.
bool echoOnce(int fd, std::vector<char>& buffer)
{
    const ssize_t received = ::read(fd, buffer.data(), buffer.size());
    for (ssize_t sent = 0; sent < received;) {
        const ssize_t count = ::write(fd, buffer.data() + sent, static_cast<std::size_t>(received - sent));
        if (count <= 0)
            return false;
        sent += count;
    }
    return received > 0;
}

// Serves the connections whose descriptors come through the pipe.
void serve(int pipe)
{
    std::vector<char> buffer(bufferSize);
    std::vector<pollfd> polled{{pipe, POLLIN, 0}};
    for (;;) {
        ::poll(polled.data(), polled.size(), -1);
        for (std::size_t index = polled.size(); --index > 0;) {  // backwards, since the last one fills a gap
            if (polled[index].revents == 0 || echoOnce(polled[index].fd, buffer))
                continue;
            ::close(polled[index].fd);
            polled[index] = polled.back();
            polled.pop_back();
        }
        int fd = -1;
        if (polled[0].revents != 0 && ::read(pipe, &fd, sizeof fd) == sizeof fd)
            polled.push_back({fd, POLLIN, 0});
    }
}

// Returns the listening socket; -1 for a failure.
int listenAnywhere(unsigned short& port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (fd == -1 || ::bind(fd, generic, length) != 0 || ::listen(fd, SOMAXCONN) != 0 ||
        ::getsockname(fd, generic, &length) != 0)
        return -1;
    port = ntohs(address.sin_port);
    return fd;
}

}  // namespace

int serveFloor(unsigned int threads)
{
    unsigned short port = 0;
    const int listening = listenAnywhere(port);
    if (listening == -1) {
        std::perror("echo_load: the floor cannot listen");
        return 1;
    }
    std::vector<int> pipes;
    while (pipes.size() < threads) {
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) != 0) {
            std::perror("echo_load: the floor has no pipe");
            return 1;
        }
        std::thread(serve, ends[0]).detach();
        pipes.push_back(ends[1]);
    }
    std::printf("Listening on 127.0.0.1 port %u\n", port);
    std::fflush(stdout);

    for (std::size_t next = 0;; ++next) {
        const int fd = ::accept(listening, nullptr, nullptr);
        const int on = 1;
        if (fd == -1 || ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0 ||
            ::write(pipes[next % pipes.size()], &fd, sizeof fd) != sizeof fd) {
            std::perror("echo_load: the floor cannot accept");
            return 1;
        }
    }
}
