// A listening TCP socket, blocking.
#ifndef MURN_TCP_SERVER_H
#define MURN_TCP_SERVER_H

#include "Export.h"
#include "HostAddress.h"
#include "Socket.h"

namespace Murn {

class TcpSocket;
class TcpStream;

/// Accepts TCP connections. AsyncTcpServer is the one that works on an event loop. One thread at a time, not locked.
class MURN_API TcpServer : public Socket {
public:
    /// A new socket that is neither bound nor listening. A failure ends the process through a fatal check.
    /// @param family  of the address to bind to
    TcpServer(Socket::Family family);
    /// Closes the socket.
    ~TcpServer() override;

    using Socket::bind;

    /// Begins to queue up to 128 connections.
    /// @return whether the call succeeded
    bool listen();
    /// Accepts a connection as a socket; see Socket::accept() for the descriptor that it leaves open on purpose.
    /// @return a socket that the caller owns; null when the call failed
    TcpSocket* accept();
    /// Accepts a connection as a stream that is attached to the calling thread, which must be registered with the
    /// application, or a fatal check ends the process.
    /// @return a stream that the caller owns; null when the call failed
    TcpStream* acceptStream();

    /// Asks for the send buffer that accepted connections begin with; see Socket::setSendBufferSize().
    /// @param bytes  the size
    void setSendBufferSize(int bytes);
    /// Asks for the receive buffer that accepted connections begin with; see Socket::setReceiveBufferSize().
    /// @param bytes  the size
    void setReceiveBufferSize(int bytes);
};

}  // namespace Murn

#endif
