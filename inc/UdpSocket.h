// Datagrams and multicast.
#ifndef MURN_UDP_SOCKET_H
#define MURN_UDP_SOCKET_H

#include "Export.h"
#include "HostAddress.h"
#include "Socket.h"

namespace Murn {

/// A UDP socket. Each operation is the one of the same name in Socket, where the contract stands in full. One thread
/// at a time, not locked; one thread may send while another receives.
class MURN_API UdpSocket : public Socket {
public:
    /// A new socket that is not bound. A failure ends the process through a fatal check.
    /// @param family  of the addresses to be used with it
    UdpSocket(Socket::Family family);
    /// Closes the socket.
    ~UdpSocket() override;

    /// Takes a local address and port.
    /// @param address  of the socket's family, or a fatal check ends the process
    /// @param port     in host byte order; 0 for one that the system chooses
    /// @return whether the call succeeded
    bool bind(const HostAddress& address, unsigned short port);
    /// Sends one datagram.
    /// @param data  what to send
    /// @param size  its size in bytes
    /// @param to    of the socket's family, or a fatal check ends the process
    /// @param port  in host byte order
    /// @return the number of bytes; -1 when the call failed
    long sendto(const void* data, unsigned long size, const HostAddress& to, unsigned short port);
    /// Receives one datagram and its sender.
    /// @param buffer  where the data goes
    /// @param size    the room in bytes
    /// @param from    gets the sender's address, or null
    /// @param port    gets the sender's port in host byte order, or null; needs `from`
    /// @return the number of bytes; -1 when the call failed
    long recvfrom(void* buffer, unsigned long size, HostAddress* from, unsigned short* port);

    /// Joins a multicast group; see Socket::addMulticastMembership().
    /// @param group         the group, of the socket's family, or a fatal check ends the process
    /// @param localAddress  the interface's address, of the socket's family, or a fatal check ends the process
    /// @return whether the platform joined
    bool addMulticastMembership(const HostAddress& group, const HostAddress& localAddress);
    /// Leaves a multicast group.
    /// @param group         the group, of the socket's family, or a fatal check ends the process
    /// @param localAddress  the interface's address, of the socket's family, or a fatal check ends the process
    /// @return whether the platform left
    bool dropMulticastMembership(const HostAddress& group, const HostAddress& localAddress);
    /// Chooses the interface that multicasts leave through; see Socket::setMulticastOutputInterface().
    /// @param address  the interface's address, of the socket's family, or a fatal check ends the process
    void setMulticastOutputInterface(const HostAddress& address);
    /// @return the interface's address; see Socket::multicastOutputInterface() for what it is good for
    HostAddress multicastOutputInterface() const;
    /// Sets how many hops multicasts live; IPv4 sockets only, see Socket::setMulticastTTL().
    /// @param ttl  hops, 0 to 255
    void setMulticastTTL(short ttl);
    /// @return hops, in the low byte on an IPv4 socket; see Socket::multicastTTL()
    short multicastTTL() const;
    /// Sets whether this machine gets its own multicasts; IPv4 sockets only, see Socket::setMulticastLoop().
    /// @param on  whether it does
    void setMulticastLoop(bool on);
    bool multicastLoop() const;

private:
    friend class MulticastUdpSocket;

    // Shares a descriptor with the socket that owns it; both close it.
    MURN_LOCAL UdpSocket(Socket::Family family, int fd);
};

}  // namespace Murn

#endif
