// IPv4 multicast on every network interface at once.
#ifndef MURN_MULTICAST_UDP_SOCKET_H
#define MURN_MULTICAST_UDP_SOCKET_H

#include <cstddef>
#include <list>
#include <vector>

#include "Export.h"
#include "HostAddress.h"
#include "NetworkInterfaceInfo.h"
#include "UdpSocket.h"

namespace Murn {

/// Sends IPv4 multicast datagrams out of every network interface of the machine, and receives those that arrive at any
/// of them. It has a UDP socket for each interface that NetworkInterface lists, which leaves out the loopback device: a
/// machine that has no other interface gets no sockets, and codes that say so.
///
///     Murn::MulticastUdpSocket socket;
///     Murn::HostAddress group(std::string("239.1.2.3"));
///     if (socket.registerOnMulticastGroup({&group}, 5000, false) != 0)
///         ...                                             // no interface, or none that took part
///     socket.sendto("hello", 5, 5000);                    // to the group, on each interface
///     long size = socket.recvfrom(buffer, sizeof buffer, &from, &port);  // waits
///
/// **Copies.** A datagram leaves once for each interface and group, and the sender gets its own datagrams too. Since
/// the sockets are bound to the wildcard address, Linux gives each of them what arrives at *any* interface of the
/// machine, for all groups that any of its programs has joined there. So a receiver that shares two networks with a
/// sender gets four copies of a datagram: two that arrive, each read from two sockets. Hosts number their datagrams,
/// skip what they have had, and say in them what they are about.
///
/// **Threads.** One thread at a time, not locked, but for this: one thread may receive while another sends, and any
/// thread may call wakeUp() and close() meanwhile. Registering and destroying must not overlap anything else: wake the
/// receiver and wait for its thread first.
///
/// **Failures** are result codes and warnings in the log, under "Multicast" for registering, sending and destroying,
/// "UdpMulticast" for receiving and "MultiCastUdp" for the wake-up pipe. What UdpSocket takes for a mistake of the
/// program still ends the process: a socket that cannot be created, and an option that the platform refuses.
class MURN_API MulticastUdpSocket {
public:
    /// Makes a socket for each interface that getNetworkInterfaces() gives, which may send to its own machine
    /// (`SO_REUSEADDR`, so that several programs can share a port, and `IP_MULTICAST_LOOP` are set), and then the
    /// wake-up pipe. Nothing is bound and no group is joined yet. The interfaces are those of the process's first look,
    /// see NetworkInterface; what changes afterwards is not noticed. Datagrams live one hop, the platform's default.
    MulticastUdpSocket();
    /// Closes all sockets, which leaves the groups, and the pipe. No thread may use the object any more.
    ///
    /// **A socket that is open and was never bound has its descriptor closed twice**, on purpose: first through a
    /// temporary socket that shares it and drops its memberships, then through its own. Sockets that are bound drop
    /// nothing and are closed once. A descriptor that another thread opens in between gets the same number, and the
    /// second close hits it. So a host with several threads calls close() before it destroys the object, after which
    /// there is nothing left to close here; or it destroys at a time when no other thread opens descriptors (files,
    /// sockets, pipes); or it knows that every socket is bound, as a registration without a warning leaves them.
    virtual ~MulticastUdpSocket();

    MulticastUdpSocket(const MulticastUdpSocket&) = delete;
    MulticastUdpSocket& operator=(const MulticastUdpSocket&) = delete;

    /// Lists the interfaces that sockets can bind to: constructs a NetworkInterface, which asks the platform at the
    /// first construction in the process, and copies its list. See there for what its threads have to keep to.
    /// @param out  emptied, then filled
    /// @return true
    bool getNetworkInterfaces(std::vector<NetworkInterfaceInfo>& out);

    /// One thread at a time, not locked; nobody may receive or send meanwhile. Joins groups on every interface, in the
    /// place of those that were registered before. Each socket that is not bound yet is bound to the wildcard address
    /// and the port, and keeps that port for good: a later registration with another port leaves it where it is.
    ///
    /// A failed registration leaves no group registered: the old ones were left before the new ones were tried. What
    /// the platform joined meanwhile it keeps, though. The same groups then count as refused at the next try, with the
    /// warning "addMulticastMembership failed"; a host that wants to try again makes a new MulticastUdpSocket.
    ///
    /// Linux refuses a group that stands twice in the list, and more than `net.ipv4.igmp_max_memberships` (20) groups.
    /// A group of another kind than an interface's address is not tried there and counts as not joined. An interface
    /// whose address is not IPv4, of which NetworkInterface lists none on Linux, is never bound, and ends the process
    /// through a fatal check when groups are replaced.
    /// @param groups  IPv4 multicast addresses, not null; they are copied and stay the caller's
    /// @param port    in host byte order; 0 gives each socket another one, which no sender knows
    /// @param ignoreBindFailure  whether to join also on interfaces whose socket cannot be bound, which then neither
    ///                           send nor receive
    /// @return 0 when all groups were joined on at least one interface; -1 when they were on none; 4 when there are no
    ///         interfaces, in which case nothing changes; 5 when no socket is bound
    int registerOnMulticastGroup(const std::list<HostAddress*>& groups, unsigned short port, bool ignoreBindFailure);

    /// One thread at a time, not locked. Sends a datagram out of every interface whose socket is bound, once for each
    /// registered group (`sendto`). One that cannot be sent is warned about, "sendto failed asked:%d, got %d. I/f=%d",
    /// with the size, the result and the interface's position in the list, and the others are sent all the same. On an
    /// interface where no group could be joined the system chooses where the datagram leaves.
    /// @param data    what to send
    /// @param length  its size in bytes
    /// @param port    the receivers' port, in host byte order
    /// @return 0 when the datagram left to all groups on at least one interface; -1 when it did on none, as
    ///         after close(); 3 when no group is registered; 4 when there are no interfaces; 5 when no socket is bound,
    ///         which cannot come about, since a registration without a bound socket registers nothing
    int sendto(const void* data, std::size_t length, unsigned short port);

    /// One thread at a time, not locked; see the class for what others may do meanwhile. Waits without a limit until a
    /// datagram is there (`select`), and receives it from the first of the sockets that have one, in the order of the
    /// interfaces (`recvfrom`). Before the first registration nothing arrives. A descriptor of 1024 or more, which
    /// `select` cannot wait for, ends the process through a fatal check.
    ///
    /// Once wakeUp() was called this and every later call returns -1 at once, datagrams or not, and prints "Abort" as a
    /// line on standard output: the wake-up stays in the pipe. implClose() and implInit() make it forgotten.
    /// @param buffer  where the data goes
    /// @param length  the room in bytes; what does not fit of a datagram is lost
    /// @param from    gets the sender's address, or null
    /// @param port    gets the sender's port in host byte order, or null; needs `from`
    /// @return the number of bytes, which is 0 for an empty datagram; -1 when it was woken, or the call failed; 0 when
    ///         there are no interfaces or the sockets are closed, both without waiting, so that a loop that receives
    ///         needs another reason to end than -1 alone where somebody may close(); when the wait failed, with the
    ///         warning " select failed", as a signal that the host handles on this thread makes it, and a close() right
    ///         before it; and when there was nothing to receive after all, with " no data received in recvfrom".
    long recvfrom(void* buffer, std::size_t length, HostAddress* from, unsigned short* port);

    /// Any thread. Makes the recvfrom() that waits, and all later ones, return -1: writes a byte to the wake-up pipe
    /// and prints "Wakeup" as a line on standard output. Without a pipe it does neither, and wakes nobody.
    /// @return true
    bool wakeUp();
    /// Any thread. Calls wakeUp(), and then closes every socket; the object stays, but can do nothing any more. The
    /// groups are not left one by one, closing does that; the pipe stays open.
    /// @return true
    bool close();

    /// One thread at a time, not locked. Makes the wake-up pipe (`pipe2`), for the constructor; a pipe that is there is
    /// forgotten without being closed. A failure is logged, "Cant create pipe!", and leaves the socket without one:
    /// then wakeUp() wakes no receiver. After implClose() it makes a new pipe, so that a socket that
    /// was woken can receive again.
    void implInit();
    /// One thread at a time, not locked; nobody may receive meanwhile. Closes the wake-up pipe, if there is one.
    void implClose();

protected:
    /// An interface and its socket.
    struct SocketHostPair {
        UdpSocket socket;                ///< IPv4
        NetworkInterfaceInfo interface;  ///< A copy of its entry in the list.
        bool bound;                      ///< Whether the socket was bound with success.
    };

    std::vector<SocketHostPair*> _pairs;  ///< One for each interface, in the order of the list; owned.
    int _wakeupPipe[2];                   ///< The end to read from and the end to write to; both -1 without a pipe.
    std::list<HostAddress*> _groups;      ///< The registered groups; owned copies.

private:
    MURN_LOCAL bool bindOnce(SocketHostPair& pair, unsigned short port);
    MURN_LOCAL bool joinGroups(SocketHostPair& pair);
    MURN_LOCAL void leaveGroups(SocketHostPair& pair);
    MURN_LOCAL void leaveGroupsUnbound(const SocketHostPair& pair);
    MURN_LOCAL void freeGroups();
    MURN_LOCAL bool sendToGroups(std::size_t index, const void* data, std::size_t length, unsigned short port);
};

}  // namespace Murn

#endif
