// A client on plain sockets, so that the library is not tested with itself.
#ifndef KXPAL_TESTS_TCP_CLIENT_H
#define KXPAL_TESTS_TCP_CLIENT_H

#include <cstddef>
#include <string>

/// One blocking TCP connection to this machine. Waits are limited, generously: a call that would take longer fails.
class TcpClient {
public:
    /// Connects.
    /// @param family         `AF_INET` or `AF_INET6`, for 127.0.0.1 or ::1
    /// @param receiveBuffer  bytes; 0 for the platform's choice
    explicit TcpClient(unsigned short port, int family, int receiveBuffer = 0);
    explicit TcpClient(unsigned short port);
    ~TcpClient();

    TcpClient(TcpClient&& other) noexcept;
    TcpClient(const TcpClient&) = delete;
    TcpClient& operator=(const TcpClient&) = delete;

    bool isConnected() const { return _fd != -1; }
    int descriptor() const { return _fd; }

    /// @return whether everything was sent
    bool send(const std::string& data) const;
    /// @return `size` bytes, or fewer when the peer ended the connection or took too long
    std::string receive(std::size_t size) const;
    /// Sends and compares what comes back.
    bool echoes(const std::string& data) const;
    /// Sends the same data again and again without reading, until the connection takes nothing more.
    /// @return how many bytes it took
    std::size_t sendUntilStuck(const std::string& data) const;
    /// Ends the sending half.
    void shutDownSending() const;
    /// Waits for the end of what the peer sends, whatever comes before it.
    /// @return whether the connection ended, by its end or by a reset
    bool waitForEnd() const;
    /// Closes with a reset instead of an orderly end.
    void reset();
    void close();

private:
    int _fd;
};

/// @return whether 127.0.0.1 or ::1, by its family, can be used on this machine
bool hasLoopback(int family);

/// Makes text of a size in which a piece that is lost, doubled or misplaced shows.
std::string pattern(std::size_t size, unsigned int seed = 0);

#endif
