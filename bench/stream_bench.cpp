// Streams and servers on the loop of the main application thread.
//
//   ping-pong of 64 bytes   TcpStream, readDone and writeData    against a watch, read and write on the same context
//   ping-pong of 64 KiB     the same                             against the same
//   accept                  AsyncTcpServer, armed anew           against a source that stays and accepts
//                           and the stream deleted               and the descriptor closed
#include <glib.h>
#include <kxPAL/Application.h>
#include <kxPAL/AsyncTcpServer.h>
#include <kxPAL/HostAddress.h>
#include <kxPAL/IStreamReadHandler.h>
#include <kxPAL/TcpStream.h>

#include <memory>
#include <vector>

#include "LoopContext.h"
#include "Loopback.h"
#include "Ratio.h"

namespace {

constexpr long roomInBuffer = 65536;

// The far end of a ping-pong, the same on both sides: sends a message, and reads it back while somebody pumps the loop.
template <typename Pump>
void pingPong(benchmark::State& state, int fd, long size, Pump pump)
{
    std::vector<char> message(static_cast<std::size_t>(size), 'x');
    for (auto _ : state) {
        long sent = 0;
        long received = 0;
        while (received < size) {
            if (sent < size)
                sent += std::max(0L, ::send(fd, message.data(), static_cast<std::size_t>(size - sent), MSG_DONTWAIT));
            if (received < sent)
                pump();
            received += std::max(0L, ::recv(fd, message.data(), static_cast<std::size_t>(size), MSG_DONTWAIT));
        }
    }
}

/// Sends back what it reads.
class Echo : public Murn::IStreamReadHandler {
public:
    explicit Echo(int fd) : _stream(fd), _buffer(roomInBuffer) { readMore(); }

    void readDone(void* buffer, long result) override
    {
        require(result > 0, "the stream reads");
        require(_stream.writeData(buffer, static_cast<unsigned long>(result)) == result, "the stream writes");
        echoed += result;
        readMore();
    }

    long echoed = 0;

private:
    void readMore() { _stream.asyncReadData(_buffer.data(), _buffer.size(), this); }

    Murn::TcpStream _stream;
    std::vector<char> _buffer;
};

template <long Size>
void libraryEcho(benchmark::State& state)
{
    const auto [far, near] = connectedPair();
    Echo echo(near);
    pingPong(state, far, Size, [] { Murn::Application::ProcessEvents(true); });
    require(echo.echoed == Size * static_cast<long>(state.iterations()), "every byte was echoed");
    ::close(far);
}

struct BareEcho {
    int fd;
    long echoed;
    std::vector<char> buffer;
};

gboolean echoBare(GIOChannel* /*channel*/, GIOCondition /*condition*/, gpointer data)
{
    auto* const echo = static_cast<BareEcho*>(data);
    const ssize_t count = ::read(echo->fd, echo->buffer.data(), echo->buffer.size());
    require(count > 0, "the descriptor reads");
    require(::write(echo->fd, echo->buffer.data(), static_cast<std::size_t>(count)) == count, "the descriptor writes");
    echo->echoed += count;
    return G_SOURCE_CONTINUE;
}

template <long Size>
void floorEcho(benchmark::State& state)
{
    const auto [far, near] = connectedPair();
    BareEcho echo = {near, 0, std::vector<char>(roomInBuffer)};
    GMainContext* const context = contextOfThisThread();
    GIOChannel* const channel = g_io_channel_unix_new(near);
    GSource* const watch =
        g_io_create_watch(channel, static_cast<GIOCondition>(G_IO_IN | G_IO_ERR | G_IO_HUP | G_IO_NVAL));
    g_source_set_callback(watch, G_SOURCE_FUNC(echoBare), &echo, nullptr);
    g_source_attach(watch, context);

    pingPong(state, far, Size, [context] { g_main_context_iteration(context, TRUE); });
    require(echo.echoed == Size * static_cast<long>(state.iterations()), "every byte was echoed");

    g_source_destroy(watch);
    g_source_unref(watch);
    g_io_channel_unref(channel);
    ::close(near);
    ::close(far);
}

class Acceptor : public Murn::AsyncTcpServer {
public:
    Acceptor() : AsyncTcpServer(Murn::Socket::IPv4)
    {
        require(bind(Murn::HostAddress(Murn::HostAddress::LoopbackIPv4), 0) && listen(), "the server listens");
        asyncAccept();
    }

    void newConnection(Murn::TcpStream* stream) override
    {
        delete stream;
        ++accepted;
        asyncAccept();
    }

    long accepted = 0;
};

// One connection after the other.
template <typename Pump>
void connectEach(benchmark::State& state, unsigned short port, const long& accepted, Pump pump)
{
    for (auto _ : state) {
        const int fd = connectedSocket(port);
        const long before = accepted;
        while (accepted == before)
            pump();
        ::close(fd);
    }
    require(accepted == static_cast<long>(state.iterations()), "every connection was accepted");
}

void libraryAccept(benchmark::State& state)
{
    Acceptor server;
    connectEach(state, server.localPort(), server.accepted, [] { Murn::Application::ProcessEvents(true); });
}

struct BareAcceptor {
    GSource source;
    GPollFD poll;
    long accepted;
};

gboolean prepareAccept(GSource* /*source*/, gint* timeoutMs)
{
    *timeoutMs = -1;
    return FALSE;
}

gboolean checkAccept(GSource* source)
{
    return (reinterpret_cast<BareAcceptor*>(source)->poll.revents & G_IO_IN) != 0 ? TRUE : FALSE;
}

gboolean dispatchAccept(GSource* source, GSourceFunc /*callback*/, gpointer /*data*/)
{
    auto* const acceptor = reinterpret_cast<BareAcceptor*>(source);
    const int fd = ::accept(acceptor->poll.fd, nullptr, nullptr);
    require(fd != -1, "a connection can be accepted");
    ::shutdown(fd, SHUT_RDWR);
    ::close(fd);
    ++acceptor->accepted;
    return G_SOURCE_CONTINUE;
}

GSourceFuncs acceptFuncs = {prepareAccept, checkAccept, dispatchAccept, nullptr, nullptr, nullptr};

void floorAccept(benchmark::State& state)
{
    GMainContext* const context = contextOfThisThread();
    const int server = listeningSocket();
    GSource* const source = g_source_new(&acceptFuncs, sizeof(BareAcceptor));
    auto* const acceptor = reinterpret_cast<BareAcceptor*>(source);
    acceptor->poll = {server, G_IO_IN, 0};
    acceptor->accepted = 0;
    g_source_add_poll(source, &acceptor->poll);
    g_source_attach(source, context);

    connectEach(state, portOf(server), acceptor->accepted, [context] { g_main_context_iteration(context, TRUE); });

    g_source_destroy(source);
    g_source_unref(source);
    ::close(server);
}

}  // namespace

int main(int argc, char** argv)
{
    Murn::Application application(argc, argv);
    RatioTable table;
    table.compare("TcpStream: ping-pong of 64 bytes", libraryEcho<64>, floorEcho<64>);
    table.compare("TcpStream: ping-pong of 64 KiB", libraryEcho<65536>, floorEcho<65536>);
    table.compare("AsyncTcpServer: accept and close", libraryAccept, floorAccept);
    return table.run(argc, argv);
}
