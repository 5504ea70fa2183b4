// A TCP server on a thread's event loop.
#ifndef MURN_ASYNC_TCP_SERVER_H
#define MURN_ASYNC_TCP_SERVER_H

#include "Export.h"
#include "HostAddress.h"
#include "TcpServer.h"

struct _GSource;

namespace Murn {

class TcpStream;
class Thread;

/// Accepts connections on a thread's event loop instead of blocking. Each arming accepts one connection at most, so
/// a server that is to go on arms again, usually from within newConnection():
///
///     class Server : public Murn::AsyncTcpServer {
///     public:
///         Server() : AsyncTcpServer(Murn::Socket::IPv4) {}
///         void newConnection(Murn::TcpStream* stream) override
///         {
///             ...  // the stream is ours now
///             asyncAccept();
///         }
///     };
///
/// Arming, cleanup() and destruction belong on the thread whose loop accepts, or to a time when that loop cannot
/// dispatch. Call cleanup() before Socket::close(): close() knows nothing of the armed accept, which would hand GLib a
/// descriptor of -1, and GLib ends the process at that. One thread at a time, not locked.
class MURN_API AsyncTcpServer : public TcpServer {
public:
    /// An idle server with a non-blocking socket that is neither bound nor listening.
    /// @param family  of the address to bind to
    AsyncTcpServer(Socket::Family family);
    /// Disarms the server and closes the socket. Allowed within newConnection().
    ~AsyncTcpServer() override;

    /// Called with each accepted connection, on the thread whose loop accepts; the stream is attached to that thread.
    /// The server is idle by now. It may be armed, moved to another thread by arming it there, and deleted.
    /// @param stream  the callee owns it from now on
    virtual void newConnection(TcpStream* stream) = 0;

    /// @param address  of the server's family, or a fatal check ends the process
    /// @param port     in host byte order; 0 for one that the system chooses, see Socket::localPort()
    /// @return whether the address and port are the server's now
    bool bind(const HostAddress& address, unsigned short port);
    /// Begins to queue connections.
    /// @return whether it does
    bool listen();

    /// A registered thread. Arms an accept on the calling thread's loop. An armed server ends the process through a
    /// fatal check. An accept that fails, for want of descriptors or because the connection is gone again, leaves the
    /// server idle, and nothing tells: the owner must arm again. bind() and listen() come first: an armed server that
    /// does not listen keeps its loop busy for nothing.
    /// @return GLib's id of the accept source, greater than 0
    int asyncAccept();
    /// Arms an accept on another thread's loop; otherwise the same.
    /// @param thread  the thread whose loop accepts; null ends the process through a fatal check
    /// @return GLib's id of the accept source, greater than 0
    int asyncAccept(Thread* thread);
    /// asyncAccept(thread), by the name under which owners arm the next accept from within newConnection().
    /// @param thread  the thread whose loop accepts; null ends the process through a fatal check
    /// @return GLib's id of the accept source, greater than 0
    int reArm(Thread* thread);

    /// Disarms the server. Does nothing to an idle one.
    void cleanup();

private:
    friend struct AsyncTcpServerSource;

    _GSource* _token;  // the armed accept, one reference; null when idle
};

}  // namespace Murn

#endif
