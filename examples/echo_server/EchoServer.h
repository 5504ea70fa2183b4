// Accepts the clients of the echo server.
#ifndef ECHO_SERVER_ECHO_SERVER_H
#define ECHO_SERVER_ECHO_SERVER_H

#include <kxPAL/AsyncTcpServer.h>
#include <kxPAL/HostAddress.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

/// Accepts connections on the loop of the thread that starts it and hands each one out. One thread at a time, not
/// locked.
class EchoServer : public Murn::AsyncTcpServer {
public:
    /// @param address  of the kind to listen on later
    /// @param handOut  gets each new stream, attached to the thread that accepts
    EchoServer(const Murn::HostAddress& address, std::function<void(std::unique_ptr<Murn::TcpStream>)> handOut);

    /// Begins to listen.
    /// @param port  0 for one that the system chooses; see localPort()
    /// @return 0, or the error number of what failed
    int listenOn(const Murn::HostAddress& address, unsigned short port);
    /// Begins to accept on the calling thread's loop, or makes sure that it goes on: an accept that fails, for lack of
    /// descriptors for one, leaves a server idle until somebody arms it again.
    void acceptOn();

    /// @return how many connections were accepted
    std::uint64_t accepted() const { return _accepted; }

private:
    void newConnection(Murn::TcpStream* stream) override;

    std::function<void(std::unique_ptr<Murn::TcpStream>)> _handOut;
    std::uint64_t _accepted;
};

#endif
