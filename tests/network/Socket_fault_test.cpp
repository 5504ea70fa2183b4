// Sockets and addresses: each of their calls to the system that fails.
#include <gtest/gtest.h>
#include <kxPAL/HostAddress.h>
#include <kxPAL/TcpServer.h>
#include <kxPAL/TcpSocket.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>

#include "Capture.h"
#include "FatalTest.h"
#include "Fault.h"
#include "InterposeSockets.h"
#include "Loopback.h"

namespace {

using Murn::HostAddress;
using Murn::Socket;
using Murn::TcpServer;
using Murn::TcpSocket;

constexpr const char* source = "src/network/Socket_BSD.cpp";

const HostAddress loopback(HostAddress::LoopbackIPv4);
const HostAddress group("239.1.2.3");

class SocketFaultTest : public ::testing::Test {
protected:
    // What Socket::Error() prints before the check.
    static std::string line(int error) { return std::string("socket Error :") + std::strerror(error) + "\n"; }

    // The first two have no descriptor of the system's: no call that these tests let through gets there.
    Fabricated<TcpSocket> _tcp{Socket::IPv4};
    Fabricated<Socket> _udp{Socket::IPv4};
    TcpServer _server{Socket::IPv4};
    char _buffer[8] = {};
};

FAULT_TEST(SocketFaultTest, endWithoutADescriptor, socket, "the constructors of all sockets",
           "end the process through the check `_socket != -1`", EMFILE, ENFILE, ENOBUFS, ENOMEM, EACCES, EAFNOSUPPORT)
{
    EXPECT_FATAL(const TcpSocket socket(Socket::IPv4), "_socket != -1", source);
}

FAULT_TEST(SocketFaultTest, acceptEndsWithoutASecondDescriptor, socket, "`Socket::accept`, which opens one more",
           "ends the process through the check `_socket != -1`", EMFILE, ENFILE)
{
    const Interposed accepting(interpose::accept, [](auto, auto...) { return fakeFd; });
    EXPECT_FATAL(_server.accept(), "_socket != -1", source);
}

FAULT_TEST(SocketFaultTest, doesNotConnect, connect, "`Socket::connect`, `TcpSocket::connect`",
           "returns false and leaves `errno`", ECONNREFUSED, ETIMEDOUT, ENETUNREACH, EHOSTUNREACH, EADDRNOTAVAIL,
           EADDRINUSE, EAGAIN, EINPROGRESS, EALREADY, EISCONN, EINTR, EACCES, EPERM)
{
    EXPECT_FALSE(_tcp.connect(loopback, 1));
    EXPECT_EQ(errno, error());
}

FAULT_TEST(SocketFaultTest, decidesAboutALimitedConnectByTheWait, connect, "`TcpSocket::connect` with a limit",
           "the wait decides: a socket that becomes writable counts as connected, and its first `send` or `recv` fails",
           ECONNREFUSED, ENETUNREACH, EHOSTUNREACH, EADDRNOTAVAIL, EINPROGRESS, EINTR)
{
    Open<TcpSocket> socket(Socket::IPv4);
    const Interposed waiting(interpose::select, [](auto, auto...) { return 1; });
    EXPECT_TRUE(socket.connect(loopback, 1, 10));
}

FAULT_TEST(SocketFaultTest, isNotBound, bind, "`Socket::bind`", "returns false and leaves `errno`", EADDRINUSE, EACCES,
           EADDRNOTAVAIL, EINVAL, ENOMEM)
{
    EXPECT_FALSE(_udp.bind(loopback, 1));
    EXPECT_EQ(errno, error());
}

FAULT_TEST(SocketFaultTest, doesNotListen, listen, "`Socket::listen`", "returns false and leaves `errno`", EADDRINUSE,
           EINVAL, EOPNOTSUPP)
{
    EXPECT_FALSE(_server.listen());
    EXPECT_EQ(errno, error());
}

FAULT_TEST(SocketFaultTest, acceptsNothing, accept, "`Socket::accept`, `Socket::acceptFd`, `TcpServer::acceptStream`",
           "returns null or -1 and leaves `errno`, and opens no descriptor", ECONNABORTED, EMFILE, ENFILE, ENOBUFS,
           ENOMEM, EAGAIN, EINTR, EPROTO, EPERM, ENETDOWN)
{
    interpose::CallLog calls;
    const Interposed opening(interpose::socket, calls.noting("socket"));
    EXPECT_EQ(_server.accept(), nullptr);
    EXPECT_EQ(errno, error());
    EXPECT_EQ(_server.acceptFd(), -1);
    EXPECT_EQ(errno, error());
    EXPECT_EQ(_server.acceptStream(), nullptr);
    EXPECT_EQ(errno, error());
    EXPECT_TRUE(calls.calls().empty());
}

FAULT_TEST(SocketFaultTest, sendsNothing, send, "`Socket::send`", "returns -1 and leaves `errno`", EPIPE, ECONNRESET,
           EAGAIN, EINTR, ENOBUFS, ENOMEM, ENOTCONN, EHOSTUNREACH)
{
    EXPECT_EQ(_tcp.send("x", 1), -1);
    EXPECT_EQ(errno, error());
}

FAULT_TEST(SocketFaultTest, receivesNothing, recv, "`Socket::recv`", "returns -1 and leaves `errno`", ECONNRESET,
           ECONNREFUSED, ETIMEDOUT, EAGAIN, EINTR, ENOMEM, ENOTCONN)
{
    EXPECT_EQ(_tcp.recv(_buffer, sizeof _buffer), -1);
    EXPECT_EQ(errno, error());
}

FAULT_TEST(SocketFaultTest, sendsNoDatagram, sendto, "`UdpSocket::sendto`", "returns -1 and leaves `errno`",
           ENETUNREACH, EHOSTUNREACH, ENETDOWN, ENOBUFS, ENOMEM, EMSGSIZE, EPERM, EACCES, EAGAIN, EINTR, ECONNREFUSED)
{
    EXPECT_EQ(_udp.sendto("x", 1, loopback, 1), -1);
    EXPECT_EQ(errno, error());
}

FAULT_TEST(SocketFaultTest, receivesNoDatagram, recvfrom, "`UdpSocket::recvfrom`",
           "returns -1 and leaves `errno`; the sender's kind is set all the same", EAGAIN, EINTR, ECONNREFUSED, ENOMEM,
           ENETDOWN)
{
    HostAddress from;
    unsigned short port = 9;
    EXPECT_EQ(_udp.recvfrom(_buffer, sizeof _buffer, &from, &port), -1);
    EXPECT_EQ(errno, error());
    EXPECT_EQ(from.type(), HostAddress::IPv4);
}

FAULT_TEST(SocketFaultTest, breaksALimitedConnectOff, select, "`TcpSocket::connect` with a limit",
           "returns false and leaves `errno`; the socket blocks or not as before, and is not shut down", EINTR, EBADF,
           EINVAL, ENOMEM)
{
    Open<TcpSocket> socket(Socket::IPv4);
    interpose::CallLog calls;
    const Interposed connecting(interpose::connect, interpose::failsWith(EINPROGRESS));
    {
        const Interposed shutting(interpose::shutdown, calls.noting("shutdown"));
        EXPECT_FALSE(socket.connect(loopback, 1, 10));
        EXPECT_EQ(errno, error());
    }
    EXPECT_TRUE(calls.calls().empty());
    EXPECT_FALSE(socket.socketNonBlocking());
}

FAULT_TEST(SocketFaultTest, endWhereAnOptionIsRefused, setsockopt, "all setters of options",
           "print `socket Error :` and the reason, and end the process through the check `!Error()`", ENOPROTOOPT,
           ENOBUFS, ENOMEM, ENODEV, EADDRNOTAVAIL, EPERM, EINVAL)
{
    EXPECT_FATAL_AFTER(_udp.setSocketReuseAddr(true), line(error()), "!Error()", source);
    EXPECT_FATAL_AFTER(_udp.setMulticastOutputInterface(loopback), line(error()), "!Error()", source);
    EXPECT_FATAL_AFTER(_tcp.setLowDelay(true), line(error()), "!Error()", source);
}

FAULT_TEST(SocketFaultTest, isNotAMember, setsockopt, "`addMulticastMembership`, `dropMulticastMembership`",
           "returns false and leaves `errno`", ENODEV, EADDRINUSE, EADDRNOTAVAIL, ENOBUFS, ENOMEM, EINVAL)
{
    EXPECT_FALSE(_udp.addMulticastMembership(group, loopback));
    EXPECT_EQ(errno, error());
    EXPECT_FALSE(_udp.dropMulticastMembership(group, loopback));
    EXPECT_EQ(errno, error());
}

FAULT_TEST(SocketFaultTest, endWhereAnOptionIsNotTold, getsockopt, "all getters of options",
           "print `socket Error :` and the reason, and end the process through the check `!Error()`", EBADF,
           ENOPROTOOPT, ENOTSOCK, ENOMEM)
{
    EXPECT_FATAL_AFTER(static_cast<void>(_udp.socketBroadcast()), line(error()), "!Error()", source);
    EXPECT_FATAL_AFTER(static_cast<void>(_udp.multicastTTL()), line(error()), "!Error()", source);
}

FAULT_TEST(SocketFaultTest, hasNoAddressOfItsOwn, getsockname, "`localAddress`, `localPort`",
           "returns an Unspecified address and port 0", EBADF, ENOBUFS, ENOTSOCK)
{
    EXPECT_EQ(_tcp.localAddress().type(), HostAddress::Unspecified);
    EXPECT_EQ(_tcp.localPort(), 0);
}

FAULT_TEST(SocketFaultTest, hasNoPeer, getpeername, "`remoteAddress`, `remotePort`",
           "returns an Unspecified address and port 0", ENOTCONN, EBADF, ENOBUFS)
{
    EXPECT_EQ(_tcp.remoteAddress().type(), HostAddress::Unspecified);
    EXPECT_EQ(_tcp.remotePort(), 0);
}

FAULT_TEST(SocketFaultTest, closesWhatCannotBeShutDown, shutdown, "`Socket::close`, the destructors",
           "closes the descriptor all the same", ENOTCONN, EINVAL, ENOBUFS)
{
    Open<TcpSocket> socket(Socket::IPv4);
    EXPECT_TRUE(socket.close());
    EXPECT_EQ(socket._socket, -1);
}

FAULT_TEST(SocketFaultTest, tellsOfAFailedClose, close, "`Socket::close`",
           "returns false and leaves `errno`; the descriptor is gone, and nothing closes its number again", EIO, EINTR,
           ENOSPC, EDQUOT)
{
    EXPECT_FALSE(_tcp.close());
    EXPECT_EQ(errno, error());
    EXPECT_EQ(_tcp._socket, -1);
    interpose::CallLog calls;
    const Interposed closing(interpose::close, calls.noting("close"));
    EXPECT_FALSE(_tcp.close());
    EXPECT_TRUE(calls.calls().empty());
}

FAULT_TEST(SocketFaultTest, tellsThatItMayBlock, fcntl, "`setSocketNonBlocking`, `socketNonBlocking`",
           "returns -1; counts as a socket that blocks", EBADF, EPERM, EINVAL)
{
    EXPECT_EQ(_tcp.setSocketNonBlocking(true), -1);
    EXPECT_EQ(errno, error());
    EXPECT_FALSE(_tcp.socketNonBlocking());
}

FAULT_TEST(SocketFaultTest, endsWhereTheQueueIsNotTold, ioctl, "`getSendBufferEnRoute`",
           "ends the process through the check `!error`", EBADF, EINVAL, ENOTTY)
{
    EXPECT_FATAL(static_cast<void>(_tcp.getSendBufferEnRoute()), "!error", source);
}

FAULT_TEST(SocketFaultTest, knowsNoNameOfTheHost, gethostname, "`Socket::HostName`", "returns an empty text",
           ENAMETOOLONG, EPERM, EFAULT)
{
    EXPECT_EQ(Socket::HostName(), "");
}

FAULT_TEST(SocketFaultTest, resolvesNothing, getaddrinfo, "`FromHostName`, `ResolveHostName`",
           "returns an Unspecified address or none, and frees nothing", EAI_AGAIN, EAI_FAIL, EAI_MEMORY, EAI_NONAME,
           EAI_NODATA, EAI_SYSTEM)
{
    interpose::CallLog calls;
    const Interposed resolving(interpose::getaddrinfo, [this](auto, auto...) { return error(); });
    const Interposed freeing(interpose::freeaddrinfo, calls.noting("free"));
    EXPECT_EQ(HostAddress::FromHostName("host.invalid", HostAddress::IPv4).type(), HostAddress::Unspecified);
    EXPECT_TRUE(HostAddress::ResolveHostName("host.invalid", HostAddress::IPv4).empty());
    EXPECT_TRUE(calls.calls().empty());
}

FAULT_TEST(SocketFaultTest, hasNoText, inet_ntop, "`HostAddress::toString`", "returns an empty text", ENOSPC,
           EAFNOSUPPORT)
{
    EXPECT_EQ(loopback.toString(), "");
}

// Standard output that takes nothing.
FAULT_TEST_FOR_REAL(SocketFaultTest, tellsTheErrorWithoutStandardOutput, printf, "`Socket::Error`, and all that prints",
                    "goes on without the line; `errno` stays", "standard output is closed")
{
    std::fflush(stdout);
    const int kept = ::dup(STDOUT_FILENO);
    ::close(STDOUT_FILENO);
    errno = ECONNRESET;
    const int first = Socket::Error();
    const int failed = std::fflush(stdout);
    errno = first;
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    const int second = Socket::Error();
    const int third = Socket::Error();
    std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
    ::dup2(kept, STDOUT_FILENO);
    ::close(kept);
    std::clearerr(stdout);
    EXPECT_EQ(failed, EOF) << "the descriptor is closed";
    EXPECT_EQ(first, ECONNRESET);
    EXPECT_EQ(second, ECONNRESET);
    EXPECT_EQ(third, ECONNRESET);
}

}  // namespace
