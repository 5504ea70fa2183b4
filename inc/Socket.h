// One BSD socket and its options.
#ifndef MURN_SOCKET_H
#define MURN_SOCKET_H

#include <cstddef>
#include <string>

#include "Export.h"
#include "HostAddress.h"

struct sockaddr;

namespace Murn {

class TcpSocket;

/// Owns one socket descriptor and gives the BSD calls addresses and types of this library. Hosts mostly use
/// TcpSocket, TcpServer and UdpSocket, which know which type of socket they need.
///
/// Failures: calls that connect, bind and move data return them and leave `errno` to the caller. An address of
/// another kind than the socket's family, and an option that the platform refuses, are mistakes in the program: they
/// end the process through a fatal check. A refused option prints "socket Error :" and the reason first.
///
/// A socket made from a descriptor has the family 0: it sends and receives, but what depends on the family (connect,
/// bind, sendto, multicast) treats it as neither IPv4 nor IPv6.
///
/// Ports are in host byte order everywhere. One thread at a time, not locked; one thread may send while another
/// receives.
class MURN_API Socket {
public:
    /// The address family of a socket; the values are the platform's.
    enum Family : int {
        IPv4 = 2,  ///< `AF_INET`
        IPv6 = 10  ///< `AF_INET6`
    };

    /// The type of a socket; the values are the platform's.
    enum Type : int {
        Stream = 1,   ///< `SOCK_STREAM`: TCP.
        Datagram = 2  ///< `SOCK_DGRAM`: UDP.
    };

    /// Wraps an existing descriptor; the family is 0.
    /// @param fd  the socket owns it from now on; -1 gives a closed socket
    Socket(int fd);
    /// Makes a new descriptor (`socket`). A failure, too many open descriptors for one, ends the process through a
    /// fatal check.
    /// @param family  the family of the addresses to be used with it
    /// @param type    the type of socket
    Socket(Family family, Type type);
    /// Closes the socket.
    virtual ~Socket();

    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    /// Shuts the socket down in both directions and closes its descriptor; it cannot be used any more.
    /// @return whether the descriptor was closed without an error; false for a socket that is closed already
    bool close();

    /// Connects (`connect`). A blocking socket waits for the answer.
    /// @param server  of the socket's family, or a fatal check ends the process
    /// @param port    the server's port
    /// @return whether the call succeeded; false for a socket of family 0, without a call
    bool connect(const HostAddress& server, unsigned short port);
    /// Takes a local address and port (`bind`).
    /// @param address  of the socket's family, or a fatal check ends the process
    /// @param port     0 for one that the system chooses, see localPort()
    /// @return whether the call succeeded; false for a socket of family 0, without a call
    bool bind(const HostAddress& address, unsigned short port);
    /// Begins to queue up to 128 connections (`listen`).
    /// @return whether the call succeeded
    bool listen();
    /// Accepts a connection (`accept`). The socket that it returns opens a descriptor of its own before it takes
    /// over the accepted one, and that first descriptor stays open for good. This is kept on purpose, for programs
    /// that rely on the order of descriptors; others use acceptFd() or TcpServer::acceptStream(). On a socket of
    /// family 0, and when the accepted one was the last descriptor that the process may have, that first descriptor
    /// cannot be opened, which ends the process through a fatal check.
    /// @return a socket of this socket's family, which the caller owns; null when the call failed
    TcpSocket* accept();
    /// Accepts a connection (`accept`) as a bare descriptor.
    /// @return the descriptor, which the caller owns; -1 when the call failed
    int acceptFd();

    /// Receives what is there (`recv` with flags 0).
    /// @param buffer  where it goes
    /// @param length  the room in bytes
    /// @return the number of bytes; 0 at the end of a stream; -1 when the call failed
    long recv(void* buffer, std::size_t length);
    /// Sends on a connected socket (`send` with flags 0). A stream whose peer has gone raises SIGPIPE, which ends the
    /// process by default: hosts ignore that signal themselves.
    /// @param data    what to send
    /// @param length  its size in bytes
    /// @return the number of bytes taken, which may be fewer; -1 when the call failed
    long send(const void* data, std::size_t length);
    /// Sends one datagram (`sendto` with flags 0).
    /// @param data    what to send
    /// @param length  its size in bytes
    /// @param to      of the socket's family, or a fatal check ends the process
    /// @param port    the receiver's port
    /// @return the number of bytes; -1 when the call failed; 0 for a socket of family 0, which sends nothing
    long sendto(const void* data, std::size_t length, const HostAddress& to, unsigned short port);
    /// Receives one datagram and its sender (`recvfrom` with flags 0).
    /// @param buffer  where the data goes
    /// @param length  the room in bytes
    /// @param from    gets the sender, or null. Its kind is always set, also when the call failed: to IPv4 on a socket
    ///                of family IPv4, and to IPv6 on every other one, also one of family 0.
    /// @param port    gets the port of `from`, or null; without `from` it gets nothing
    /// @return the number of bytes; -1 when the call failed
    long recvfrom(void* buffer, std::size_t length, HostAddress* from, unsigned short* port);

    /// @return the socket's own address (`getsockname`); Unspecified when the call failed, Invalid for another family
    HostAddress localAddress() const;
    /// @return the peer's address (`getpeername`); Unspecified when the call failed, Invalid for another family
    HostAddress remoteAddress() const;
    /// @return the socket's own port (`getsockname`); 0 when it has none or the call failed
    unsigned short localPort() const;
    /// @return the peer's port (`getpeername`); 0 when the call failed
    unsigned short remotePort() const;

    /// @param on  whether datagrams may go to broadcast addresses (`SO_BROADCAST`)
    void setSocketBroadcast(bool on);
    bool socketBroadcast() const;
    /// @param on  whether bind() may reuse an address that old connections still hold (`SO_REUSEADDR`)
    void setSocketReuseAddr(bool on);
    bool socketReuseAddr() const;
    /// Asks for a send buffer (`SO_SNDBUF`) and prints a line with the size asked for, before and after to standard
    /// output. The platform is given half the size, since it doubles what it is given.
    /// @param size  bytes
    void setSendBufferSize(int size);
    /// @return bytes
    int getSendBufferSize() const;
    /// Asks for a receive buffer (`SO_RCVBUF`) in the way of setSendBufferSize().
    /// @param size  bytes
    void setReceiveBufferSize(int size);
    /// @return bytes
    int getReceiveBufferSize() const;
    /// How much of what was sent is still queued (`SIOCOUTQ`). A failure ends the process through a fatal check: a
    /// closed socket has no queue, and neither has one that listens, a server's.
    /// @return bytes
    int getSendBufferEnRoute() const;

    /// Chooses the interface that multicasts leave through. A socket of family 0 ends the process through a fatal
    /// check.
    /// @param localAddress  the interface's address, of the socket's family, or a fatal check ends the process. On an
    ///                      IPv6 socket its sixteen bytes are handed over although Linux reads an interface index from
    ///                      the first four, in host order: it takes those that are zero or happen to be an interface's.
    void setMulticastOutputInterface(const HostAddress& localAddress);
    /// @return the interface's address as the platform gives it, good for toString() and toBytes() but without the
    ///         family that connecting and binding need; Unspecified on a socket of family 0
    HostAddress multicastOutputInterface() const;
    /// Sets how many hops multicasts live. The value goes out in 16 bits, a width that is kept on purpose; Linux takes
    /// it on IPv4 sockets and refuses it on IPv6 sockets, which ends the process through a fatal check, as does a
    /// socket of family 0.
    /// @param ttl  hops, 0 to 255
    void setMulticastTTL(short ttl);
    /// Reads 16 bits, which are all ones at first, and returns what the platform made of them: Linux fills one byte on
    /// an IPv4 socket, so the hops are in the low byte. A socket of family 0 ends the process through a fatal check.
    /// @return hops
    short multicastTTL() const;
    /// Sets whether this machine gets its own multicasts. The value goes out in one byte, a width that is kept on
    /// purpose; Linux takes it on IPv4 sockets and refuses it on IPv6 sockets, which ends the process through a fatal
    /// check, as does a socket of family 0.
    /// @param on  whether it does
    void setMulticastLoop(bool on);
    /// A socket of family 0 ends the process through a fatal check.
    /// @return whether this machine gets its own multicasts
    bool multicastLoop() const;
    /// Joins a multicast group.
    /// @param groupAddress  the group, of the socket's family, or a fatal check ends the process
    /// @param localAddress  the address of the interface to join on, of the socket's family, or a fatal check ends the
    ///                      process; an IPv6 socket joins on the system's choice of interface whatever it is
    /// @return whether the platform joined; false for a socket of family 0, without a call
    bool addMulticastMembership(const HostAddress& groupAddress, const HostAddress& localAddress);
    /// Leaves a multicast group.
    /// @param groupAddress  as for addMulticastMembership()
    /// @param localAddress  as for addMulticastMembership()
    /// @return whether the platform left; false for a socket of family 0, without a call
    bool dropMulticastMembership(const HostAddress& groupAddress, const HostAddress& localAddress);

    /// @param on  whether calls return at once when they would have to wait (`O_NONBLOCK`)
    /// @return what the platform returned (`fcntl`): -1 for a failure
    int setSocketNonBlocking(bool on);
    /// @return whether calls return at once; false when the platform does not tell
    bool socketNonBlocking() const;

    /// Any thread. Tells the calling thread's last error, and prints it to standard output as "socket Error :" with
    /// its text. Asking again tells the same.
    /// @return `errno`; 0, without a line, when there is none
    static int Error();
    /// Any thread.
    /// @param address  not null
    /// @return the port of an `AF_INET` or `AF_INET6` address; 0 for any other
    static unsigned short GetPort(const sockaddr* address);
    /// Any thread.
    /// @param address  any
    /// @return the family of sockets that can use the address; 0 for an address that is not valid
    static Family AddressFamily(const HostAddress& address);
    /// Any thread.
    /// @return this machine's name (`gethostname`)
    static std::string HostName();

protected:
    Family _family;  ///< The family of the descriptor; 0 when it came from elsewhere.
    int _socket;     ///< The descriptor; -1 once closed.

private:
    friend class MulticastUdpSocket;  // waits for several descriptors at once
};

}  // namespace Murn

#endif
