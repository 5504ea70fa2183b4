// What the tests of streams, and of the server that makes them, share.
#ifndef KXPAL_TESTS_NETWORK_STREAMS_H
#define KXPAL_TESTS_NETWORK_STREAMS_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/IStreamReadHandler.h>
#include <kxPAL/Thread.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Wait.h"

/// How long the kernel or another thread may take before a test gives up.
constexpr int patienceMs = 30'000;

/// Runs what is ready on the calling thread's loop. Returns how many iterations did something.
inline int pumpWhatIsReady()
{
    // The bound is for a loop that spins because of a defect.
    int iterations = 0;
    while (iterations < 1000 && Murn::Thread::CurrentThread()->processEvents(false))
        ++iterations;
    return iterations;
}

/// Runs the calling thread's loop until the predicate holds. Returns whether it came to hold.
template <typename Predicate>
[[nodiscard]] bool pumpUntil(Predicate predicate)
{
    return waitUntil([&predicate] {
        for (int iteration = 0; iteration < 1000 && !predicate(); ++iteration) {
            if (!Murn::Thread::CurrentThread()->processEvents(false))
                break;
        }
        return predicate();
    });
}

/// Waits until `poll` reports one of the events for the descriptor. Returns what it reported, 0 at the limit.
inline short awaitEvents(int fd, short events)
{
    pollfd record{fd, events, 0};
    return ::poll(&record, 1, patienceMs) == 1 ? record.revents : static_cast<short>(0);
}

/// Whether the number is that of an open descriptor.
inline bool isOpen(int fd)
{
    return ::fcntl(fd, F_GETFD, nullptr) != -1;
}

/// An owned descriptor.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : _fd(fd) {}
    ~Descriptor() { close(); }
    Descriptor(Descriptor&& other) noexcept : _fd(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(_fd, other._fd);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return _fd; }
    int release() { return std::exchange(_fd, -1); }
    void close()
    {
        if (_fd != -1)
            ::close(release());
    }

private:
    int _fd;
};

/// The other end of a stream's connection, driven by blocking system calls.
class Peer {
public:
    Peer() = default;
    explicit Peer(int fd) : _end(fd) {}

    /// Connects to a listening socket on 127.0.0.1.
    static Peer connectedTo(unsigned short port)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        Peer peer(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (::connect(peer.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("the peer cannot connect");
        return peer;
    }

    int fd() const { return _end.get(); }

    /// Returns whether all of the text went out.
    bool send(const std::string& text)
    {
        return ::send(fd(), text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
    }

    /// Receives so many bytes, or fewer when the connection ends or nothing comes.
    std::string receive(std::size_t size)
    {
        std::string text(size, '\0');
        std::size_t count = 0;
        while (count < size && awaitEvents(fd(), POLLIN) != 0) {
            const ssize_t part = ::recv(fd(), text.data() + count, size - count, 0);
            if (part <= 0)
                break;
            count += static_cast<std::size_t>(part);
        }
        text.resize(count);
        return text;
    }

    /// Waits for the end of the connection. Returns whether it came, and nothing before it.
    bool seesTheEnd()
    {
        char byte = 0;
        return awaitEvents(fd(), POLLIN) != 0 && ::recv(fd(), &byte, 1, 0) == 0;
    }

    /// Ends its own direction; the other one stays.
    void endSending() { ::shutdown(fd(), SHUT_WR); }
    /// Closes the connection.
    void leave() { _end.close(); }
    /// Aborts the connection, so that the other end sees a reset.
    void reset()
    {
        const linger abort{1, 0};
        ::setsockopt(fd(), SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
        _end.close();
    }

private:
    Descriptor _end;
};

/// A listening socket on 127.0.0.1, made by system calls alone.
class Listener {
public:
    Listener() : _socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::bind(_socket.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
            ::listen(_socket.get(), SOMAXCONN) != 0 ||
            ::getsockname(_socket.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0)
            throw std::runtime_error("no listening socket on 127.0.0.1");
        _port = ntohs(address.sin_port);
    }

    unsigned short port() const { return _port; }
    Descriptor accept() { return Descriptor(::accept(_socket.get(), nullptr, nullptr)); }
    void close() { _socket.close(); }

private:
    Descriptor _socket;
    unsigned short _port = 0;
};

/// Both ends of a TCP connection over 127.0.0.1.
struct TcpPair {
    TcpPair()
    {
        Listener listener;
        peer = Peer::connectedTo(listener.port());
        end = listener.accept();
    }

    Descriptor end;  ///< For the stream.
    Peer peer;
};

/// One call of a handler. Two are equal when they gave the same buffer and result.
struct Read {
    void* buffer = nullptr;
    long result = 0;

    friend bool operator==(const Read&, const Read&) = default;
    friend std::ostream& operator<<(std::ostream& os, const Read& read)
    {
        return os << "readDone(" << read.buffer << ", " << read.result << ")";
    }
};

/// A handler that records its calls, and does in each what the test asks for.
class Reader : public Murn::IStreamReadHandler {
public:
    using Action = std::function<void()>;

    /// Does this in the next call that has no action yet.
    Reader& then(Action action)
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        _actions.push_back(std::move(action));
        return *this;
    }

    void readDone(void* buffer, long result) override
    {
        Action action;
        {
            const std::lock_guard<std::mutex> lock(_mutex);
            _reads.push_back({buffer, result});
            _threads.push_back(Murn::Thread::CurrentThread());
            if (!_actions.empty()) {
                action = std::move(_actions.front());
                _actions.pop_front();
            }
        }
        if (action != nullptr)
            action();
    }

    /// The calls until now, in order.
    std::vector<Read> reads() const
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _reads;
    }

    /// The last one; there must be one.
    Read last() const
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _reads.back();
    }

    std::size_t count() const
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _reads.size();
    }

    /// The thread of each call.
    std::vector<Murn::Thread*> threads() const
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _threads;
    }

private:
    mutable std::mutex _mutex;
    std::deque<Action> _actions;          // guarded by _mutex
    std::vector<Read> _reads;             // guarded by _mutex
    std::vector<Murn::Thread*> _threads;  // guarded by _mutex
};

/// Ignores SIGPIPE as long as it lives, as hosts that write to sockets do.
class IgnoredSigpipe {
public:
    IgnoredSigpipe() : _previous(std::signal(SIGPIPE, SIG_IGN)) {}
    ~IgnoredSigpipe() { std::signal(SIGPIPE, _previous); }
    IgnoredSigpipe(const IgnoredSigpipe&) = delete;
    IgnoredSigpipe& operator=(const IgnoredSigpipe&) = delete;

private:
    void (*_previous)(int);
};

#endif
