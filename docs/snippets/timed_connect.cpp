// A connect with a limit, and how to tell a connection from a refusal.
#include <kxPAL/HostAddress.h>
#include <kxPAL/TcpServer.h>
#include <kxPAL/TcpSocket.h>

namespace {

// [connect]
bool connectWithin(Murn::TcpSocket& socket, const Murn::HostAddress& address, unsigned short port, long limitMs)
{
    if (!socket.connect(address, port, limitMs))
        return false;                 // timed out, or failed at once; the socket is of no more use
    return socket.remotePort() != 0;  // a refused connection counts as success but has no peer
}
// [end]

}  // namespace

int main()
{
    const Murn::HostAddress loopback(Murn::HostAddress::LoopbackIPv4);
    Murn::TcpServer server(Murn::Socket::IPv4);
    if (!server.bind(loopback, 0))
        return 1;

    Murn::TcpSocket tooEarly(Murn::Socket::IPv4);
    const bool wasRefused = !connectWithin(tooEarly, loopback, server.localPort(), 5000);
    if (!server.listen())
        return 1;
    Murn::TcpSocket socket(Murn::Socket::IPv4);
    const bool isConnected = connectWithin(socket, loopback, server.localPort(), 5000);
    return wasRefused && isConnected ? 0 : 1;
}
