// Accepts the clients of the echo server.
#include "EchoServer.h"

#include <kxPAL/TcpStream.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <utility>

EchoServer::EchoServer(const Murn::HostAddress& address, std::function<void(std::unique_ptr<Murn::TcpStream>)> handOut)
    : AsyncTcpServer(AddressFamily(address)), _handOut(std::move(handOut)), _accepted(0)
{
}

int EchoServer::listenOn(const Murn::HostAddress& address, unsigned short port)
{
    setSocketReuseAddr(true);  // else a restart has to wait for the connections of the last run to be forgotten

    // A stream blocks in writeData() while its peer takes nothing, and with it the loop and all other clients. On
    // Linux the accepted sockets inherit this limit; the shortest that there is comes to a tick or two of the clock.
    const timeval shortest{0, 1};
    if (::setsockopt(_socket, SOL_SOCKET, SO_SNDTIMEO, &shortest, sizeof shortest) != 0)
        return errno;
    if (!bind(address, port) || !listen())
        return errno;

    // The library asks for a queue of 128 connections. A crowd of clients fills it while this process waits for a
    // processor, and whoever finds it full tries again only after a second. So it is made as long as the system allows.
    return ::listen(_socket, SOMAXCONN) == 0 ? 0 : errno;
}

void EchoServer::acceptOn()
{
    cleanup();
    asyncAccept();
}

void EchoServer::newConnection(Murn::TcpStream* stream)
{
    asyncAccept();
    ++_accepted;
    stream->setLowDelay(true);  // each answer leaves at once
    _handOut(std::unique_ptr<Murn::TcpStream>(stream));
}
