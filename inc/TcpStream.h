// A TCP connection as a stream.
#ifndef MURN_TCP_STREAM_H
#define MURN_TCP_STREAM_H

#include "Export.h"
#include "HostAddress.h"
#include "Socket.h"
#include "Stream.h"
#include "TcpSocket.h"

namespace Murn {

/// A Stream that owns a TCP socket. TcpServer::acceptStream() and AsyncTcpServer make them for accepted connections;
/// a client makes one from a family and connects it. close() ends reading and writing but leaves the connection open:
/// the peer sees its end when the stream is deleted. One thread at a time, not locked.
class MURN_API TcpStream : public Stream {
public:
    /// Wraps a connected socket and attaches the stream to the calling thread, which must be registered with the
    /// application, or a fatal check ends the process.
    /// @param fd  the descriptor; the stream owns it from now on
    TcpStream(int fd);
    /// Makes a socket that is not connected; the stream has no channel until connect() succeeds.
    /// @param family  of the addresses to connect to
    TcpStream(Socket::Family family);
    /// Ends the armed read and closes the socket. Allowed within IStreamReadHandler::readDone().
    ~TcpStream() override;

    /// Connects the socket, blocking, and attaches the stream to the calling thread, which must be registered with
    /// the application. A second success on one stream ends the process through a fatal check.
    /// @param address  of the socket's family, or a fatal check ends the process
    /// @param port     in host byte order
    /// @return whether the connection stands
    bool connect(const HostAddress& address, unsigned short port);
    /// The same with a limit; see TcpSocket::connect() for what counts as success.
    /// @param address    of the socket's family, or a fatal check ends the process
    /// @param port       in host byte order
    /// @param timeoutMs  the limit in milliseconds; -1 for none
    /// @return whether the connection stands, or failed before the limit
    bool connect(const HostAddress& address, unsigned short port, long timeoutMs);

    /// @return the peer, as Socket::remoteAddress() and Socket::remotePort() tell it
    HostAddress remoteAddress() const;
    unsigned short remotePort() const;
    /// The socket's own options: see Socket for what the setters print, and for the fatal check behind each.
    void setSendBufferSize(int size);
    void setReceiveBufferSize(int size);
    int getSendBufferSize() const;
    int getReceiveBufferSize() const;
    void setLowDelay(bool on);

private:
    TcpSocket _tcpSocket;
};

}  // namespace Murn

#endif
