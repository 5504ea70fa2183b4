// Streams, and the server that makes them: each of their calls that fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/AsyncTcpServer.h>
#include <kxPAL/TcpStream.h>

#include <memory>
#include <string>

#include "../core/Runtime.h"
#include "Fault.h"
#include "FullDescriptorTable.h"
#include "InterposeGlib.h"
#include "InterposeSockets.h"
#include "Streams.h"

namespace {

using Murn::AsyncTcpServer;
using Murn::HostAddress;
using Murn::Socket;
using Murn::TcpStream;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// A server that counts its connections and closes them.
class CountingServer : public AsyncTcpServer {
public:
    CountingServer() : AsyncTcpServer(Socket::IPv4) { EXPECT_TRUE(bind(HostAddress::LoopbackIPv4, 0) && listen()); }

    void newConnection(TcpStream* stream) override
    {
        delete stream;
        ++connections;
    }

    int fd() const { return _socket; }
    int connections = 0;
};

class StreamFaultTest : public RuntimeTest {
protected:
    // Opens both ends of a connection.
    void connect()
    {
        TcpPair pair;
        _stream = std::make_unique<TcpStream>(pair.end.release());
        _peer = std::move(pair.peer);
    }

    void TearDown() override
    {
        _stream.reset();
        RuntimeTest::TearDown();
    }

    // Reads once data is there.
    void read()
    {
        _stream->asyncReadData(_buffer, sizeof _buffer, &_reader);
        ASSERT_TRUE(_peer.send("abc"));
        ASSERT_TRUE(pumpUntil([this] { return _reader.count() > 0 || !logged().empty(); }));
    }

    std::vector<std::string> texts()
    {
        std::vector<std::string> result;
        for (const LogMessage& message : logged())
            result.push_back(message.text);
        return result;
    }

    const IgnoredSigpipe _sigpipe;
    std::unique_ptr<TcpStream> _stream;
    Peer _peer;
    Reader _reader;
    char _buffer[16] = {};
};

FAULT_TEST_BY_HAND(StreamFaultTest, staysIdleAfterARefusedAccept, accept, "`AsyncTcpServer`",
                   "is silent and leaves the server idle, without `newConnection`: its owner arms again", ECONNABORTED,
                   EMFILE, ENFILE, ENOBUFS, ENOMEM, EAGAIN, EINTR, EPROTO, EPERM)
{
    CountingServer server;
    server.asyncAccept();
    const Peer peer = Peer::connectedTo(server.localPort());
    int accepts = 0;
    const Interposed accepting(interpose::accept, [&](auto real, auto... arguments) {
        if (++accepts > 1)
            return real(arguments...);
        errno = error();
        return -1;
    });
    EXPECT_TRUE(pumpUntil([&] { return accepts == 1; }));
    EXPECT_EQ(pumpWhatIsReady(), 0) << "nothing is polled in vain";
    EXPECT_EQ(accepts, 1);
    EXPECT_EQ(server.connections, 0);
    EXPECT_THAT(logged(), IsEmpty());
    server.asyncAccept();
    EXPECT_TRUE(pumpUntil([&] { return server.connections == 1; })) << "the connection is still there";
}

TEST_F(StreamFaultTest, takesUpConnectionsAgainOnceThereAreDescriptors)
{
    CountingServer server;
    server.asyncAccept();
    const Peer peer = Peer::connectedTo(server.localPort());
    {
        const FullDescriptorTable full;
        ASSERT_NE(awaitEvents(server.fd(), POLLIN), 0);
        EXPECT_EQ(pumpWhatIsReady(), 1);
        EXPECT_EQ(pumpWhatIsReady(), 0) << "idle, although the connection waits";
        EXPECT_EQ(server.connections, 0);
    }
    server.asyncAccept();
    EXPECT_TRUE(pumpUntil([&] { return server.connections == 1; }));
}

FAULT_TEST(StreamFaultTest, isNotConnected, connect, "`TcpStream::connect`",
           "returns false and leaves `errno`; the stream stays without a channel", ECONNREFUSED, ETIMEDOUT, ENETUNREACH,
           EHOSTUNREACH, EADDRNOTAVAIL, EINTR)
{
    TcpStream stream(Socket::IPv4);
    EXPECT_FALSE(stream.connect(HostAddress::LoopbackIPv4, 1));
    EXPECT_EQ(errno, error());
    EXPECT_EQ(stream.writeData("x", 1), -1);
}

FAULT_TEST(StreamFaultTest, isNotConnectedInTime, select, "`TcpStream::connect` with a limit",
           "returns false and leaves `errno`; the stream stays without a channel", EINTR, ENOMEM)
{
    const Listener listener;
    TcpStream stream(Socket::IPv4);
    EXPECT_FALSE(stream.connect(HostAddress::LoopbackIPv4, listener.port(), -1));
    EXPECT_EQ(errno, error());
    EXPECT_EQ(stream.writeData("x", 1), -1);
}

FAULT_TEST_BY_HAND(StreamFaultTest, writesNothing, g_io_channel_write, "`Stream::writeData`",
                   "returns the negated error: -1, -2 or -3", G_IO_ERROR_AGAIN, G_IO_ERROR_INVAL, G_IO_ERROR_UNKNOWN)
{
    connect();
    const Interposed writing(interpose::g_io_channel_write, [this](auto, auto...) { return GIOError(error()); });
    EXPECT_EQ(_stream->writeData("abc", 3), -error());
}

FAULT_TEST(StreamFaultTest, writesNothingToADeadPeer, write, "`Stream::writeData`, through GLib", "returns -3", EPIPE,
           ECONNRESET, ETIMEDOUT, ENOBUFS, EIO, EHOSTUNREACH)
{
    connect();
    EXPECT_EQ(_stream->writeData("abc", 3), -3);
}

FAULT_TEST(StreamFaultTest, writesNothingNow, write,
           "`Stream::writeData` of a stream that does not block, through GLib", "returns -1", EAGAIN)
{
    connect();
    EXPECT_EQ(_stream->writeData("abc", 3), -1);
}

FAULT_TEST_BY_HAND(StreamFaultTest, writesOnAfterASignal, write, "`Stream::writeData`, through GLib", "tries again",
                   EINTR)
{
    connect();
    int writes = 0;
    const Interposed writing(interpose::write, [&](auto real, auto... arguments) {
        if (++writes > 1)
            return real(arguments...);
        errno = error();
        return ssize_t{-1};
    });
    EXPECT_EQ(_stream->writeData("abc", 3), 3);
    EXPECT_EQ(_peer.receive(3), "abc");
}

FAULT_TEST_BY_HAND(StreamFaultTest, hasWrittenAlready, g_io_channel_flush, "`Stream::writeData`",
                   "returns the bytes written: nothing waits in a channel without a buffer", G_IO_STATUS_EOF,
                   G_IO_STATUS_AGAIN)
{
    connect();
    const Interposed flushing(interpose::g_io_channel_flush, [this](auto, auto...) { return GIOStatus(error()); });
    EXPECT_EQ(_stream->writeData("abc", 3), 3);
}

FAULT_TEST_BY_HAND(StreamFaultTest, tellsTheHandlerOfAnError, g_io_channel_read_chars, "`Stream::readSome`, the watch",
                   "logs `Error: ...` and calls `readDone` with the negated code", G_IO_CHANNEL_ERROR_FAILED,
                   G_IO_CHANNEL_ERROR_IO, G_IO_CHANNEL_ERROR_INVAL, G_IO_CHANNEL_ERROR_NXIO)
{
    connect();
    const Interposed reading(interpose::g_io_channel_read_chars,
                             [this](auto, GIOChannel*, gchar*, gsize, gsize*, GError** result) {
                                 g_set_error_literal(result, G_IO_CHANNEL_ERROR, error(), "no luck");
                                 return G_IO_STATUS_ERROR;
                             });
    interpose::CallLog freed;
    const Interposed freeing(interpose::g_error_free, freed.noting("the error is freed"));
    read();
    EXPECT_THAT(freed.calls(), SizeIs(1));
    EXPECT_THAT(_reader.reads(), ElementsAre(Read{nullptr, -error()}));
    EXPECT_THAT(texts(), ElementsAre("Error: no luck"));
}

FAULT_TEST_BY_HAND(StreamFaultTest, losesTheReadThatFoundNothing, g_io_channel_read_chars,
                   "`Stream::readSome`, the watch",
                   "logs `EAGAIN: No data available :( !`; the read is lost, and its handler is not called",
                   G_IO_STATUS_AGAIN)
{
    connect();
    int reads = 0;
    const Interposed reading(interpose::g_io_channel_read_chars, [&](auto, auto...) {
        ++reads;
        return GIOStatus(error());
    });
    read();
    EXPECT_THAT(_reader.reads(), IsEmpty());
    EXPECT_EQ(texts().front(), "EAGAIN: No data available :( !");
    pumpWhatIsReady();
    EXPECT_EQ(reads, 1) << "and the loop does not spin";
    EXPECT_EQ(pumpWhatIsReady(), 0);
}

FAULT_TEST_FOR_REAL(
    StreamFaultTest, tellsTheHandlerOfAReset, g_io_channel_read_chars, "`Stream::readSome`, the watch",
    "logs `Error: ...` and calls `readDone` with a negative number once; unless it reads again, the watch "
    "logs `No handler for data!!!` and ends",
    "the peer resets the connection")
{
    connect();
    _stream->asyncReadData(_buffer, sizeof _buffer, &_reader);
    _peer.reset();
    ASSERT_TRUE(pumpUntil([this] { return _reader.count() > 0; }));
    EXPECT_EQ(_reader.last().buffer, nullptr);
    EXPECT_LT(_reader.last().result, 0);
    pumpWhatIsReady();
    EXPECT_EQ(_reader.count(), 1U);
    EXPECT_EQ(texts().at(1), "No handler for data!!!");
    EXPECT_EQ(pumpWhatIsReady(), 0) << "the loop does not spin";
}

FAULT_TEST_FOR_REAL(StreamFaultTest, writesNothingAfterAReset, g_io_channel_write, "`Stream::writeData`", "returns -3",
                    "the peer resets the connection")
{
    connect();
    _peer.reset();
    EXPECT_TRUE(waitUntil([this] { return _stream->writeData("x", 1) == -3; }));
}

}  // namespace
