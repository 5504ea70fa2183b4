// A TCP server on a thread's event loop, with an accept source of its own.
#include "AsyncTcpServer_Unix.h"

#include <glib.h>

#include "AsyncTcpServer.h"
#include "Check.h"
#include "TcpStream.h"
#include "Thread.h"
#include "core/ThreadImpl.h"

namespace Murn {

int AsyncTcpServerSource::DescriptorOf(const AsyncTcpServer* server)
{
    return server->_socket;
}

GSource*& AsyncTcpServerSource::TokenOf(AsyncTcpServer* server)
{
    return server->_token;
}

}  // namespace Murn

using Murn::AsyncTcpServer;
using Murn::AsyncTcpServerSource;

void DestroySourceFor(AsyncTcpServer* server)
{
    GSource*& token = AsyncTcpServerSource::TokenOf(server);
    g_source_destroy(token);
    g_source_unref(token);
    token = nullptr;
}

// GLib looks at the records of a context, under a lock of its own, when another thread adds a source to the context. So
// what is the same already is not written over and over.
template <typename Value>
static void keepOrSet(Value& place, Value value)
{
    if (place != value)
        place = value;
}

static void fillPollRecord(AsyncTcpServerSource* src)
{
    keepOrSet(src->pollfd.fd, AsyncTcpServerSource::DescriptorOf(src->server));
    keepOrSet<gushort>(src->pollfd.events, G_IO_IN);
    keepOrSet<gushort>(src->pollfd.revents, 0);
}

static gboolean AsyncTcpServerPrepare(GSource* source, gint* timeoutMs)
{
    fillPollRecord(reinterpret_cast<AsyncTcpServerSource*>(source));
    *timeoutMs = -1;
    return FALSE;
}

static gboolean AsyncTcpServerCheck(GSource* source)
{
    return (reinterpret_cast<AsyncTcpServerSource*>(source)->pollfd.revents & G_IO_IN) != 0 ? TRUE : FALSE;
}

static gboolean AsyncTcpServerDispatch(GSource* source, GSourceFunc /*callback*/, gpointer /*userData*/)
{
    auto* const src = reinterpret_cast<AsyncTcpServerSource*>(source);
    // A handler before this one that pumped the loop has polled anew. If somebody else took the connection meanwhile,
    // there is nothing to accept, and the server stays armed.
    const bool dispatchedByGlib = g_main_current_source() == source;
    if (dispatchedByGlib && (src->pollfd.revents & G_IO_IN) == 0)
        return TRUE;
    MURN_CHECK(src->pollfd.revents & G_IO_IN);

    // Disarmed first, so that the owner may arm again from within newConnection().
    AsyncTcpServer* const server = src->server;
    DestroySourceFor(server);
    // A connection that went away again is not reported, and the server stays idle: its owner decides.
    if (Murn::TcpStream* const stream = server->acceptStream())
        server->newConnection(stream);
    return FALSE;
}

// The library works on this table through a name of its own: a host may well have a global called `funcs`, which
// would take the exported name over.
static GSourceFuncs acceptFuncs = {
    AsyncTcpServerPrepare, AsyncTcpServerCheck, AsyncTcpServerDispatch, nullptr, nullptr, nullptr};
extern MURN_API GSourceFuncs funcs __attribute__((alias("_ZL11acceptFuncs")));

namespace Murn {

AsyncTcpServer::AsyncTcpServer(Socket::Family family) : TcpServer(family), _token(nullptr)
{
    setSocketNonBlocking(true);
}

AsyncTcpServer::~AsyncTcpServer()
{
    cleanup();
}

bool AsyncTcpServer::bind(const HostAddress& address, unsigned short port)
{
    return TcpServer::bind(address, port);
}

bool AsyncTcpServer::listen()
{
    return TcpServer::listen();
}

int AsyncTcpServer::asyncAccept()
{
    MURN_CHECK(_token == NULL);
    return asyncAccept(Thread::CurrentThread());
}

int AsyncTcpServer::asyncAccept(Thread* thread)
{
    MURN_CHECK(thread);
    MURN_CHECK(_token == NULL);

    GSource* const source = g_source_new(&acceptFuncs, sizeof(AsyncTcpServerSource));
    auto* const src = reinterpret_cast<AsyncTcpServerSource*>(source);
    src->server = this;
    // GLib wants a descriptor at once, although prepare fills the record before each poll.
    fillPollRecord(src);
    g_source_add_poll(source, &src->pollfd);
    // Kept before it is attached: from then on the thread may accept, disarm and delete this server.
    _token = source;
    return static_cast<int>(g_source_attach(source, ThreadImpl::Of(thread)->context()));
}

int AsyncTcpServer::reArm(Thread* thread)
{
    return asyncAccept(thread);
}

void AsyncTcpServer::cleanup()
{
    if (_token != nullptr)
        DestroySourceFor(this);
}

}  // namespace Murn
