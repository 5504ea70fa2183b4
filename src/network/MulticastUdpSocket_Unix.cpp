// IPv4 multicast on every network interface: waiting for datagrams, and the pipe that ends the wait.
#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "Check.h"
#include "Logger.h"
#include "MulticastUdpSocket.h"
#include "network/Descriptor.h"

namespace Murn {

namespace {

// The descriptors that a receiver waits for, and then those of them that are ready.
class ReadSet {
public:
    ReadSet() : _highest(-1) { FD_ZERO(&_set); }

    void add(int descriptor)
    {
        // A set holds no larger descriptor; adding it would write behind the set.
        MURN_CHECK(descriptor < FD_SETSIZE);
        FD_SET(descriptor, &_set);
        _highest = std::max(_highest, descriptor);
    }

    // Returns what `select` does.
    int wait() { return ::select(_highest + 1, &_set, nullptr, nullptr, nullptr); }

    bool has(int descriptor) const { return descriptor != -1 && FD_ISSET(descriptor, &_set); }

private:
    fd_set _set;
    int _highest;
};

}  // namespace

long MulticastUdpSocket::recvfrom(void* buffer, std::size_t length, HostAddress* from, unsigned short* port)
{
    if (_pairs.empty())
        return 0;

    ReadSet ready;
    for (SocketHostPair* const pair : _pairs) {
        const int descriptor = readDescriptor(pair->socket._socket);
        if (descriptor == -1)
            return 0;
        ready.add(descriptor);
    }
    if (_wakeupPipe[0] != -1)
        ready.add(_wakeupPipe[0]);

    if (ready.wait() == -1) {
        Logger::Warning("UdpMulticast", " select failed");
        return 0;
    }
    if (ready.has(_wakeupPipe[0])) {
        std::puts("Abort");
        return -1;  // the byte stays in the pipe on purpose: once woken, nobody waits any more
    }
    for (SocketHostPair* const pair : _pairs) {
        const DescriptorUse use(pair->socket);
        // Asked for anew: the socket may have been closed meanwhile.
        if (ready.has(readDescriptor(pair->socket._socket)))
            return pair->socket.recvfrom(buffer, length, from, port);
    }
    Logger::Warning("UdpMulticast", " no data received in recvfrom");
    return 0;
}

bool MulticastUdpSocket::wakeUp()
{
    if (_wakeupPipe[1] == -1)
        return true;
    std::puts("Wakeup");
    const unsigned char wakeUpByte = 3;
    // A full pipe takes no more, but whoever waits is woken then, too.
    [[maybe_unused]] const ssize_t written = ::write(_wakeupPipe[1], &wakeUpByte, sizeof wakeUpByte);
    return true;
}

bool MulticastUdpSocket::close()
{
    wakeUp();
    for (SocketHostPair* const pair : _pairs) {
        const DescriptorEnd end(pair->socket, readDescriptor(pair->socket._socket));
        pair->socket.close();
    }
    return true;
}

void MulticastUdpSocket::implInit()
{
    _wakeupPipe[0] = _wakeupPipe[1] = -1;  // and stays so when there is no pipe
    // Not blocking: the bytes stay, so a host that wakes often would end up waiting itself.
    if (::pipe2(_wakeupPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        Logger::Warning("MultiCastUdp", "Cant create pipe!");
}

void MulticastUdpSocket::implClose()
{
    if (_wakeupPipe[0] == -1)
        return;
    ::close(_wakeupPipe[0]);
    ::close(_wakeupPipe[1]);
    _wakeupPipe[0] = _wakeupPipe[1] = -1;
}

}  // namespace Murn
