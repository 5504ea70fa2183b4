// Clients that keep an echo server busy.
#ifndef KXPAL_BENCH_LOAD_H
#define KXPAL_BENCH_LOAD_H

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

/// A number of connections, each of which sends a message, waits for the whole echo and sends again. One thread
/// (`epoll`) drives all of them. Whatever goes wrong ends the program: a wrong answer is no measurement.
class Load {
public:
    using Clock = std::chrono::steady_clock;

    /// Connects.
    Load(unsigned short port, std::size_t connections, std::size_t messageSize);
    ~Load();

    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

    /// Keeps the server busy for a while, and counts unless told that it is to warm up.
    void run(Clock::duration duration, bool warmUp = false);

    double requestsPerSecond() const;
    /// @param share  0.5 for the median of the times from request to answer, 0.99 for what only one in 100 exceeds
    double microseconds(double share);

private:
    struct Connection {
        int fd;
        std::size_t received;
        Clock::time_point sentAt;
    };

    void send(Connection& connection);
    bool receive(Connection& connection);

    const std::string _message;
    std::string _part;
    int _poller;
    std::vector<Connection> _connections;
    std::vector<float> _times;  // in microseconds
    Clock::duration _busy;
};

/// Connections that send and never read.
class StuckClients {
public:
    /// Connects them and sends until each takes nothing more.
    StuckClients(unsigned short port, std::size_t connections);
    ~StuckClients();

    StuckClients(const StuckClients&) = delete;
    StuckClients& operator=(const StuckClients&) = delete;

private:
    std::vector<int> _fds;
};

#endif
