// TCP connections, and connecting with a limit.
#include "TcpSocket.h"

#include <sys/select.h>
#include <sys/socket.h>

#include "Check.h"

namespace Murn {

namespace {

// Waits until the descriptor can be written to; the result is that of `select`.
int waitWritable(int fd, long timeoutMs)
{
    fd_set writable;
    FD_ZERO(&writable);
    FD_SET(fd, &writable);
    timeval limit{timeoutMs / 1000, timeoutMs % 1000 * 1000};
    return ::select(FD_SETSIZE, nullptr, &writable, nullptr, timeoutMs == -1 ? nullptr : &limit);
}

}  // namespace

TcpSocket::TcpSocket(Socket::Family family) : Socket(family, Socket::Stream) {}

TcpSocket::TcpSocket(int fd) : Socket(fd) {}

TcpSocket::~TcpSocket() = default;

bool TcpSocket::connect(const HostAddress& address, unsigned short port)
{
    return Socket::connect(address, port);
}

bool TcpSocket::connect(const HostAddress& address, unsigned short port, long timeoutMs)
{
    const bool wasNonBlocking = socketNonBlocking();
    setSocketNonBlocking(true);
    Socket::connect(address, port);  // normally "in progress": the wait below decides

    int selectResult = -1;
    if (_socket != -1) {  // a closed socket has nothing to wait for
        // A descriptor set holds no larger descriptor; setting it would write behind the set.
        MURN_CHECK(_socket < FD_SETSIZE);
        selectResult = waitWritable(_socket, timeoutMs);
    }
    if (selectResult == 0)
        ::shutdown(_socket, SHUT_RDWR);
    else if (selectResult != -1)
        MURN_CHECK(selectResult == 1);

    setSocketNonBlocking(wasNonBlocking);
    // Writable counts as connected, on purpose: a refusal shows in the first send or recv.
    return selectResult > 0;
}

HostAddress TcpSocket::remoteAddress() const
{
    return Socket::remoteAddress();
}

unsigned short TcpSocket::remotePort() const
{
    return Socket::remotePort();
}

long TcpSocket::recv(void* buffer, unsigned long size)
{
    return Socket::recv(buffer, size);
}

long TcpSocket::send(const void* data, unsigned long size)
{
    return Socket::send(data, size);
}

}  // namespace Murn
