// A TCP connection, blocking.
#ifndef MURN_TCP_SOCKET_H
#define MURN_TCP_SOCKET_H

#include "Export.h"
#include "HostAddress.h"
#include "Socket.h"

namespace Murn {

/// The client's or the accepted end of a TCP connection. TcpStream is the one that works on an event loop. One
/// thread at a time, not locked; one thread may send while another receives.
class MURN_API TcpSocket : public Socket {
public:
    /// A new socket that is not connected. A failure ends the process through a fatal check.
    /// @param family  of the addresses to connect to
    TcpSocket(Socket::Family family);
    /// Wraps an existing descriptor; such a socket has no family to connect() with: the plain form fails, and the one
    /// with a limit only waits until the socket is writable.
    /// @param fd  the socket owns it from now on
    TcpSocket(int fd);
    /// Closes the socket.
    ~TcpSocket() override;

    /// Connects, waiting as long as the platform does if the socket is blocking.
    /// @param address  of the socket's family, or a fatal check ends the process
    /// @param port     in host byte order
    /// @return whether the connection stands
    bool connect(const HostAddress& address, unsigned short port);
    /// Connects with a limit. Success means that the wait ended in time, not that the peer agreed: a refused connection
    /// and any other failure that shows before the limit count, on purpose, and the first send() or recv() fails then.
    /// After a time-out the socket is shut down and of no more use. Whether the socket blocks is the same afterwards as
    /// before.
    ///
    /// The wait is `select`'s: a descriptor of 1024 or more ends the process through a fatal check. A signal that
    /// comes in meanwhile ends the wait like any other error.
    /// @param address    of the socket's family, or a fatal check ends the process
    /// @param port       in host byte order
    /// @param timeoutMs  the limit in milliseconds; -1 for none; other negative values fail
    /// @return whether the connection stands, or failed before the limit; false for a time-out and for a wait that
    /// failed
    bool connect(const HostAddress& address, unsigned short port, long timeoutMs);

    HostAddress remoteAddress() const;
    unsigned short remotePort() const;

    /// Receives what is there; see Socket::recv().
    /// @param buffer  where it goes
    /// @param size    the room in bytes
    /// @return the number of bytes; 0 at the end of the stream; -1 when the call failed
    long recv(void* buffer, unsigned long size);
    /// Sends; see Socket::send(), also for the signal SIGPIPE, which hosts ignore themselves.
    /// @param data  what to send
    /// @param size  its size in bytes
    /// @return the number of bytes taken, which may be fewer; -1 when the call failed
    long send(const void* data, unsigned long size);

    /// Sets whether small packets leave at once (`TCP_NODELAY`). A refusal ends the process through a fatal check.
    /// @param on  whether they do
    void setLowDelay(bool on);

private:
    friend class TcpStream;  // its channel reads and writes the descriptor
};

}  // namespace Murn

#endif
