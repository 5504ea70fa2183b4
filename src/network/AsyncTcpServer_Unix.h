// The accept source of AsyncTcpServer. Private.
#ifndef MURN_ASYNC_TCP_SERVER_UNIX_H
#define MURN_ASYNC_TCP_SERVER_UNIX_H

#include <glib.h>

#include "Export.h"

namespace Murn {

class AsyncTcpServer;

/// One armed accept, as GLib keeps it.
struct AsyncTcpServerSource {
    GSource source;
    AsyncTcpServer* server;  // not owned
    GPollFD pollfd;

    /// The server's descriptor as it is now; -1 once the server is closed.
    static int DescriptorOf(const AsyncTcpServer* server);
    /// Where a server keeps its armed source.
    static GSource*& TokenOf(AsyncTcpServer* server);
};

}  // namespace Murn

/// Disarms a server, which must be armed.
void DestroySourceFor(Murn::AsyncTcpServer* server);

/// The function table of the accept source. The library itself works on the same table under another name, so in a host
/// the functions in it tell an accept source, and not its address.
extern MURN_API GSourceFuncs funcs;

#endif
