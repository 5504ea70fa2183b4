// TCP connections as streams: connecting, forwarding to the socket, and peers of all manners.
#include <kxPAL/HostAddress.h>
#include <kxPAL/TcpServer.h>
#include <netinet/tcp.h>

#include <cerrno>
#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Capture.h"
#include "FatalTest.h"
#include "InterposeGlib.h"
#include "InterposeSockets.h"
#include "StreamTest.h"
#include "TcpStream.h"

using Murn::HostAddress;
using Murn::Socket;
using Murn::TcpStream;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace {

const HostAddress loopback = HostAddress::LoopbackIPv4;

// The descriptor of a stream's socket, at the place that is promised for it.
int fdOf(const TcpStream* stream)
{
    return fieldAt<int>(stream, 52);
}

template <typename Value>
Value optionOf(int fd, int level, int option)
{
    Value value{};
    socklen_t length = sizeof value;
    EXPECT_EQ(::getsockopt(fd, level, option, &value, &length), 0);
    return value;
}

// A port on 127.0.0.1 that refuses connections, as long as the object lives.
class RefusingPort {
public:
    RefusingPort() : _server(Socket::IPv4) { EXPECT_TRUE(_server.bind(loopback, 0)); }
    operator unsigned short() const { return _server.localPort(); }

private:
    Murn::TcpServer _server;
};

// A test with a way to receive what streams read.
class TcpStreamTest : public RuntimeTest {
protected:
    void armFor(Reader& reader, TcpStream& stream) { stream.asyncReadData(_buffer, sizeof _buffer, &reader); }
    Read got(long count) { return {_buffer, count}; }

    std::vector<std::string> lines()
    {
        std::vector<std::string> result;
        for (const LogMessage& message : logged())
            result.push_back(lineOf(message));
        return result;
    }

    Reader _reader;
    char _buffer[64] = {};
};

// A test with a stream of the main thread whose peer is in the test's hands.
class ConnectedTcpStreamTest : public TcpStreamTest {
protected:
    ConnectedTcpStreamTest()
    {
        TcpPair pair;
        _fd = pair.end.get();
        _peer = std::move(pair.peer);
        _stream = std::make_unique<TcpStream>(pair.end.release());
    }

    void TearDown() override
    {
        _stream.reset();
        TcpStreamTest::TearDown();
    }

    void arm() { armFor(_reader, *_stream); }

    // What the peer did is known here, though the loop has not seen it yet.
    void awaitPeer() { ASSERT_NE(awaitEvents(_fd, POLLIN) & POLLIN, 0); }
    void awaitReset() { ASSERT_NE(awaitEvents(_fd, 0) & POLLERR, 0); }

    void peerSends(const std::string& text)
    {
        ASSERT_TRUE(_peer.send(text));
        awaitPeer();
    }

    [[nodiscard]] bool awaitReads(std::size_t count)
    {
        return pumpUntil([&] { return _reader.count() >= count; });
    }

    int _fd = -1;
    Peer _peer;
    std::unique_ptr<TcpStream> _stream;
};

const std::string resetLine = "Stream 4: Error: Connection reset by peer";
constexpr long failed = -G_IO_CHANNEL_ERROR_FAILED;  // what GLib makes of ECONNRESET

// ---- What it is made of

TEST_F(ConnectedTcpStreamTest, keepsItsSocketBehindTheFieldsOfAStream)
{
    EXPECT_EQ(sizeof(TcpStream), 56U);
    EXPECT_NE(fieldAt<void*>(_stream.get(), 40), nullptr);  // the socket's virtual table
    EXPECT_EQ(fieldAt<int>(_stream.get(), 48), 0);          // of no family: it wraps a descriptor
    EXPECT_EQ(fdOf(_stream.get()), _fd);
}

TEST_F(ConnectedTcpStreamTest, belongsToTheThreadThatWrapsADescriptor)
{
    const StreamFields fields(_stream.get());

    EXPECT_EQ(fields.context(), contextOf(mainThread()));
    ASSERT_NE(fields.channel(), nullptr);
    EXPECT_EQ(g_io_channel_unix_get_fd(fields.channel()), _fd);
    EXPECT_EQ(fields.channel()->ref_count, 1);
    EXPECT_EQ(fields.handler(), nullptr);
}

TEST_F(TcpStreamTest, takesAnUnregisteredThreadThatWrapsADescriptorForAFatalError)
{
    TcpPair pair;
    EXPECT_FATAL(onForeignThread([&] { const TcpStream stream(pair.end.get()); }), "thread", "src/network/Stream.cpp");
}

TEST_F(TcpStreamTest, hasASocketButNoChannelBeforeItConnects)
{
    for (const Socket::Family family : {Socket::IPv4, Socket::IPv6}) {
        TcpStream stream(family);
        const StreamFields fields(&stream);

        EXPECT_EQ(fieldAt<int>(&stream, 48), family);
        EXPECT_EQ(optionOf<int>(fdOf(&stream), SOL_SOCKET, SO_DOMAIN), family);
        EXPECT_EQ(optionOf<int>(fdOf(&stream), SOL_SOCKET, SO_TYPE), SOCK_STREAM);
        EXPECT_EQ(fields.channel(), nullptr);
        EXPECT_EQ(fields.context(), nullptr);
        EXPECT_EQ(stream.writeData("abc", 3), -1);
        armFor(_reader, stream);
        EXPECT_EQ(fields.handler(), nullptr);
        EXPECT_EQ(stream.close(), -1);
    }
}

// ---- Connecting

// A form of connect.
struct Form {
    const char* name;
    bool (*connect)(TcpStream& stream, unsigned short port);

    friend std::ostream& operator<<(std::ostream& os, const Form& form) { return os << form.name; }
};

class ConnectingTcpStreamTest : public TcpStreamTest, public ::testing::WithParamInterface<Form> {
protected:
    static bool connect(TcpStream& stream, unsigned short port) { return GetParam().connect(stream, port); }

    void TearDown() override
    {
        _stream.close();
        TcpStreamTest::TearDown();
    }

    TcpStream _stream{Socket::IPv4};
    Listener _listener;
};

TEST_P(ConnectingTcpStreamTest, getsAChannelAndBelongsToTheCallingThread)
{
    Worker worker;

    worker.run([&] { EXPECT_TRUE(connect(_stream, _listener.port())); });

    const StreamFields fields(&_stream);
    EXPECT_EQ(fields.context(), contextOf(worker.thread()));
    ASSERT_NE(fields.channel(), nullptr);
    EXPECT_EQ(g_io_channel_unix_get_fd(fields.channel()), fdOf(&_stream));
    EXPECT_EQ(fields.channel()->ref_count, 1);
}

TEST_P(ConnectingTcpStreamTest, writesAndReads)
{
    ASSERT_TRUE(connect(_stream, _listener.port()));
    Peer peer(_listener.accept().release());

    EXPECT_EQ(_stream.writeData("abc", 3), 3);
    EXPECT_EQ(peer.receive(3), "abc");
    armFor(_reader, _stream);
    ASSERT_TRUE(peer.send("xy"));
    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));
    EXPECT_THAT(_reader.reads(), ElementsAre(got(2)));
}

TEST_P(ConnectingTcpStreamTest, takesAnUnregisteredThreadForAFatalError)
{
    EXPECT_FATAL(onForeignThread([&] { connect(_stream, _listener.port()); }), "thread", "src/network/Stream.cpp");
}

INSTANTIATE_TEST_SUITE_P(
    TcpStream, ConnectingTcpStreamTest,
    ::testing::Values(
        Form{"plain", [](TcpStream& stream, unsigned short port) { return stream.connect(loopback, port); }},
        Form{"withALimit",
             [](TcpStream& stream, unsigned short port) { return stream.connect(loopback, port, patienceMs); }},
        Form{"withoutEnd", [](TcpStream& stream, unsigned short port) { return stream.connect(loopback, port, -1); }}),
    [](const auto& test) { return test.param.name; });

TEST_F(TcpStreamTest, getsNoChannelWhenItIsRefusedAndMayTryAgain)
{
    const RefusingPort refusing;
    Listener listener;
    TcpStream stream(Socket::IPv4);

    EXPECT_FALSE(stream.connect(loopback, refusing));

    EXPECT_EQ(StreamFields(&stream).channel(), nullptr);
    EXPECT_EQ(StreamFields(&stream).context(), nullptr);
    EXPECT_EQ(stream.writeData("abc", 3), -1);
    EXPECT_TRUE(stream.connect(loopback, listener.port()));
    EXPECT_EQ(stream.writeData("abc", 3), 3);
}

TEST_F(TcpStreamTest, getsNoChannelWhenTheLimitIsOverOrTheWaitFails)
{
    Listener listener;
    for (const int outcome : {0, -1}) {
        const Interposed waits(interpose::select, [outcome](auto*, auto...) { return outcome; });
        TcpStream stream(Socket::IPv4);

        EXPECT_FALSE(stream.connect(loopback, listener.port(), 1));

        EXPECT_EQ(StreamFields(&stream).channel(), nullptr);
        EXPECT_EQ(StreamFields(&stream).context(), nullptr);
        EXPECT_EQ(stream.writeData("abc", 3), -1);
    }
}

TEST_F(TcpStreamTest, showsARefusalWithinALimitInTheFirstRead)
{
    const RefusingPort refusing;
    TcpStream stream(Socket::IPv4);

    EXPECT_TRUE(stream.connect(loopback, refusing, patienceMs));

    armFor(_reader, stream);
    EXPECT_TRUE(pumpUntil([&] { return _reader.count() == 1; }));
    EXPECT_THAT(_reader.reads(), ElementsAre(without(failed)));
    EXPECT_THAT(lines(), ElementsAre(StartsWith("Stream 4: Error: ")));
}

TEST_F(TcpStreamTest, takesASecondConnectionForAFatalError)
{
    Listener listener;
    TcpStream stream(Socket::IPv4);
    ASSERT_TRUE(stream.connect(loopback, listener.port()));

    // The plain form is refused by the platform; with a limit, a socket that can be written to counts as connected.
    EXPECT_FALSE(stream.connect(loopback, listener.port()));
    EXPECT_FATAL(stream.connect(loopback, listener.port(), patienceMs), "imp->_channel==NULL",
                 "src/network/Stream.cpp");
}

// ---- What it asks its socket

TEST_F(TcpStreamTest, knowsItsPeersAddressAndPort)
{
    Listener listener;
    TcpStream stream(Socket::IPv4);
    EXPECT_EQ(stream.remoteAddress().type(), HostAddress::Unspecified);
    EXPECT_EQ(stream.remotePort(), 0);

    ASSERT_TRUE(stream.connect(loopback, listener.port()));

    EXPECT_EQ(stream.remoteAddress(), loopback);
    EXPECT_EQ(stream.remotePort(), listener.port());
}

TEST_F(ConnectedTcpStreamTest, setsTheBufferSizesOfItsSocketAndPrintsThem)
{
    const int sendSize = _stream->getSendBufferSize();
    const int receiveSize = _stream->getReceiveBufferSize();
    EXPECT_EQ(sendSize, optionOf<int>(_fd, SOL_SOCKET, SO_SNDBUF));
    EXPECT_EQ(receiveSize, optionOf<int>(_fd, SOL_SOCKET, SO_RCVBUF));

    const std::string sendLine = printedBy([&] { _stream->setSendBufferSize(65536); });
    const std::string receiveLine = printedBy([&] { _stream->setReceiveBufferSize(32768); });

    EXPECT_EQ(_stream->getSendBufferSize(), 65536);
    EXPECT_EQ(_stream->getReceiveBufferSize(), 32768);
    EXPECT_EQ(sendLine, "%%Set Send buffer 65536, " + std::to_string(sendSize) + " => 65536\n");
    EXPECT_EQ(receiveLine, "%%Set Receive buffer 32768, " + std::to_string(receiveSize) + " => 32768\n");
}

TEST_F(ConnectedTcpStreamTest, turnsTheDelayOfItsSocketOffAndOn)
{
    _stream->setLowDelay(true);
    EXPECT_NE(optionOf<int>(_fd, IPPROTO_TCP, TCP_NODELAY), 0);

    _stream->setLowDelay(false);
    EXPECT_EQ(optionOf<int>(_fd, IPPROTO_TCP, TCP_NODELAY), 0);
}

// ---- The end

TEST_F(ConnectedTcpStreamTest, closesTheStreamThenTheSocketThenLetsItsThreadGo)
{
    arm();
    interpose::CallLog calls;
    {
        const Interposed context(interpose::g_main_context_unref, calls.noting("unref context"));
        const Interposed destroyed(interpose::g_source_destroy, calls.noting("destroy watch"));
        const Interposed watchDropped(interpose::g_source_unref, calls.noting("unref watch"));
        const Interposed channelDropped(interpose::g_io_channel_unref, calls.noting("unref channel"));
        const Interposed shutDown(interpose::shutdown, calls.noting("shut socket down"));
        const Interposed closed(interpose::close, calls.noting("close socket"));
        _stream.reset();
    }

    EXPECT_THAT(calls.calls(), ElementsAre("destroy watch", "unref watch", "unref channel", "shut socket down",
                                           "close socket", "unref context"));
    EXPECT_TRUE(_peer.seesTheEnd());
}

TEST_F(ConnectedTcpStreamTest, isDestroyedThroughTheInterface)
{
    std::unique_ptr<Murn::IStream> stream = std::move(_stream);

    stream.reset();

    EXPECT_TRUE(_peer.seesTheEnd());
}

TEST_F(ConnectedTcpStreamTest, keepsTheConnectionWhenItIsOnlyClosed)
{
    EXPECT_EQ(_stream->close(), 0);
    EXPECT_EQ(_stream->close(), -1);
    EXPECT_EQ(_stream->writeData("abc", 3), -1);

    EXPECT_TRUE(isOpen(_fd));
    EXPECT_EQ(::send(_fd, "xy", 2, 0), 2);
    EXPECT_EQ(_peer.receive(2), "xy");
}

TEST_F(ConnectedTcpStreamTest, takesALostPrivateObjectForAFatalErrorWhenItIsDestroyed)
{
    EXPECT_FATAL(
        {
            takeImplAway(_stream.get());
            _stream.reset();
        },
        "imp", "src/network/Stream.cpp");
}

// ---- Peers

TEST_F(ConnectedTcpStreamTest, carriesALotInBothDirections)
{
    constexpr std::size_t total = 1'000'000;
    std::string sent(total, '\0');
    std::uint32_t seed = 1;
    for (char& byte : sent) {
        seed = seed * 1664525U + 1013904223U;
        byte = static_cast<char>(seed >> 24);
    }
    std::string received;
    const std::function<void()> take = [&] {
        received.append(_buffer, static_cast<std::size_t>(_reader.last().result));
        if (received.size() < total) {
            arm();
            _reader.then(take);
        }
    };
    _reader.then(take);
    arm();
    std::string echoed;
    std::thread peer([&] {
        EXPECT_TRUE(_peer.send(sent));
        echoed = _peer.receive(total);
    });

    EXPECT_TRUE(pumpUntil([&] { return received.size() == total; }));
    std::size_t written = 0;
    while (written < total) {
        const long part = _stream->writeData(received.data() + written, total - written);
        ASSERT_GT(part, 0);
        written += static_cast<std::size_t>(part);
    }
    peer.join();

    EXPECT_TRUE(received == sent);
    EXPECT_TRUE(echoed == sent);
}

TEST_F(ConnectedTcpStreamTest, waitsForAPeerThatSendsNothing)
{
    arm();
    ASSERT_NE(awaitEvents(_fd, POLLOUT), 0);

    EXPECT_EQ(pumpWhatIsReady(), 0);

    EXPECT_THAT(_reader.reads(), IsEmpty());
    EXPECT_EQ(StreamFields(_stream.get()).handler(), &_reader);
}

TEST_F(ConnectedTcpStreamTest, reportsTheEndOnceToOneRead)
{
    arm();
    _peer.leave();

    EXPECT_TRUE(awaitReads(1));
    pumpWhatIsReady();

    EXPECT_THAT(_reader.reads(), ElementsAre(without(0)));
    EXPECT_THAT(lines(), ElementsAre("Stream 4: No handler for data!!!", " 4: ->   data available"));
}

TEST_F(ConnectedTcpStreamTest, reportsTheEndToEachReadThatIsArmedAfterIt)
{
    _reader.then([&] { arm(); }).then([&] { arm(); });
    arm();
    _peer.leave();

    EXPECT_TRUE(awaitReads(3));

    EXPECT_THAT(_reader.reads(), ElementsAre(without(0), without(0), without(0)));
}

TEST_F(ConnectedTcpStreamTest, stillWritesToAPeerThatEndedItsSending)
{
    _reader.then([&] { arm(); });
    arm();
    ASSERT_TRUE(_peer.send("abc"));
    _peer.endSending();

    EXPECT_TRUE(awaitReads(2));

    EXPECT_THAT(_reader.reads(), ElementsAre(got(3), without(0)));
    EXPECT_EQ(_stream->writeData("xy", 2), 2);
    EXPECT_EQ(_peer.receive(2), "xy");
}

TEST_F(ConnectedTcpStreamTest, reportsAReset)
{
    arm();
    _peer.reset();
    awaitReset();

    EXPECT_TRUE(awaitReads(1));

    EXPECT_THAT(_reader.reads(), ElementsAre(without(failed)));
    EXPECT_THAT(lines(), ElementsAre(resetLine));
}

TEST_F(ConnectedTcpStreamTest, reportsTheResetByAPeerThatLeavesDataUnread)
{
    EXPECT_EQ(_stream->writeData("abc", 3), 3);
    ASSERT_NE(awaitEvents(_peer.fd(), POLLIN), 0);
    arm();

    _peer.leave();

    EXPECT_TRUE(awaitReads(1));
    EXPECT_THAT(_reader.reads(), ElementsAre(without(failed)));
    EXPECT_THAT(lines(), ElementsAre(resetLine));
}

TEST_F(ConnectedTcpStreamTest, readsWhatCameBeforeAResetAndReportsTheEndInTheSameTurn)
{
    peerSends("abc");
    _peer.reset();
    awaitReset();
    _reader.then([&] { arm(); });
    arm();

    EXPECT_TRUE(mainThread()->processEvents(true));

    EXPECT_THAT(_reader.reads(), ElementsAre(got(3), without(0)));
    EXPECT_THAT(lines(), ElementsAre("Stream 4: Error !"));
}

TEST_F(ConnectedTcpStreamTest, failsToWriteToAPeerThatIsGone)
{
    const IgnoredSigpipe ignored;
    const std::string text(100'000, 'x');
    _peer.reset();

    long written = 0;
    while (written >= 0)
        written = _stream->writeData(text.data(), text.size());

    EXPECT_EQ(written, -3);
    EXPECT_EQ(_stream->writeData("abc", 3), -3);
}

TEST_F(ConnectedTcpStreamTest, failsToWriteToAPeerThatLeavesDuringTheWrite)
{
    const IgnoredSigpipe ignored;
    const std::string text(1'000'000, 'x');
    std::thread peer([&] {
        _peer.receive(text.size());
        _peer.reset();
    });

    long written = 0;
    while (written >= 0)
        written = _stream->writeData(text.data(), text.size());
    peer.join();

    EXPECT_EQ(written, -3);
}

// ---- Handlers that do something to the stream, in the loop

// How a peer makes the loop call the handler.
struct Event {
    const char* name;
    void (*happen)(Peer&);

    friend std::ostream& operator<<(std::ostream& os, const Event& event) { return os << event.name; }
};

class TcpStreamHandlerTest : public ConnectedTcpStreamTest, public ::testing::WithParamInterface<Event> {
protected:
    void happen()
    {
        GetParam().happen(_peer);
        awaitPeer();
    }

    void TearDown() override
    {
        EXPECT_EQ(_reader.count(), 1U);
        logged();
        ConnectedTcpStreamTest::TearDown();
    }
};

TEST_P(TcpStreamHandlerTest, deletesTheStream)
{
    _reader.then([&] { _stream.reset(); });
    arm();

    happen();
    EXPECT_TRUE(awaitReads(1));

    EXPECT_EQ(pumpWhatIsReady(), 0);
    EXPECT_FALSE(isOpen(_fd));
}

TEST_P(TcpStreamHandlerTest, deletesTheStreamThatItArmedAgainAndPumpsTheLoop)
{
    _reader.then([&] {
        arm();
        _stream.reset();
        pumpWhatIsReady();
    });
    arm();

    happen();
    EXPECT_TRUE(awaitReads(1));

    EXPECT_EQ(pumpWhatIsReady(), 0);
    EXPECT_FALSE(isOpen(_fd));
}

TEST_P(TcpStreamHandlerTest, closesTheStreamThatItArmedAgain)
{
    _reader.then([&] {
        arm();
        EXPECT_EQ(_stream->close(), 0);
    });
    arm();

    happen();
    EXPECT_TRUE(awaitReads(1));

    EXPECT_EQ(pumpWhatIsReady(), 0);
    EXPECT_TRUE(isOpen(_fd));
}

TEST_P(TcpStreamHandlerTest, deletesTheStreamInALoopThatAnotherHandlerPumps)
{
    TcpPair pair;
    TcpStream outer(pair.end.release());
    Reader outerReader;
    _reader.then([&] { _stream.reset(); });
    outerReader.then([&] {
        happen();
        EXPECT_TRUE(awaitReads(1));
    });
    arm();
    armFor(outerReader, outer);

    ASSERT_TRUE(pair.peer.send("go"));
    EXPECT_TRUE(pumpUntil([&] { return outerReader.count() == 1; }));

    EXPECT_EQ(pumpWhatIsReady(), 0);
    EXPECT_FALSE(isOpen(_fd));
}

TEST_P(TcpStreamHandlerTest, deletesAnotherStreamWhoseHandlerPumpsTheLoop)
{
    TcpPair pair;
    const int outerFd = pair.end.get();
    auto outer = std::make_unique<TcpStream>(pair.end.release());
    Reader outerReader;
    _reader.then([&] { outer.reset(); });
    outerReader.then([&] {
        armFor(outerReader, *outer);
        happen();
        EXPECT_TRUE(awaitReads(1));
    });
    arm();
    armFor(outerReader, *outer);

    ASSERT_TRUE(pair.peer.send("go"));
    EXPECT_TRUE(pumpUntil([&] { return outerReader.count() == 1; }));

    EXPECT_FALSE(isOpen(outerFd));
}

TEST_P(TcpStreamHandlerTest, movesTheStreamToAnotherThreadThatArmsItAtOnce)
{
    Worker worker;
    Reader other;
    _reader.then([&] {
        _stream->moveToThread(worker.thread());
        worker.run([&] { armFor(other, *_stream); });
    });
    arm();

    happen();
    EXPECT_TRUE(awaitReads(1));

    _peer.send("more");
    _peer.endSending();
    EXPECT_TRUE(waitUntil([&] { return other.count() == 1; }));
    EXPECT_THAT(other.threads(), ElementsAre(worker.thread()));
    worker.run([&] { _stream.reset(); });
}

INSTANTIATE_TEST_SUITE_P(TcpStream, TcpStreamHandlerTest,
                         ::testing::Values(Event{"whenDataComes", [](Peer& peer) { peer.send("abc"); }},
                                           Event{"whenThePeerLeaves", [](Peer& peer) { peer.leave(); }},
                                           Event{"whenThePeerResets", [](Peer& peer) { peer.reset(); }},
                                           Event{"whenDataComesBeforeAReset",
                                                 [](Peer& peer) {
                                                     peer.send("abc");
                                                     peer.reset();
                                                 }}),
                         [](const auto& test) { return test.param.name; });

// ---- Streams that a server accepts

TEST_F(TcpStreamTest, comesFromAServerWithTheConnectionAndBelongsToTheCallingThread)
{
    Worker worker;
    Murn::TcpServer server(Socket::IPv4);
    ASSERT_TRUE(server.bind(loopback, 0));
    ASSERT_TRUE(server.listen());
    Peer peer = Peer::connectedTo(server.localPort());
    std::unique_ptr<TcpStream> stream;

    worker.run([&] {
        stream.reset(server.acceptStream());
        ASSERT_NE(stream, nullptr);
        armFor(_reader, *stream);
    });

    ASSERT_TRUE(peer.send("abc"));
    EXPECT_TRUE(waitUntil([&] { return _reader.count() == 1; }));
    EXPECT_THAT(_reader.reads(), ElementsAre(got(3)));
    EXPECT_THAT(_reader.threads(), ElementsAre(worker.thread()));
    worker.run([&] { stream.reset(); });
    EXPECT_TRUE(peer.seesTheEnd());
}

TEST_F(TcpStreamTest, doesNotComeFromANonBlockingServerThatNobodyConnectsTo)
{
    Murn::TcpServer server(Socket::IPv4);
    ASSERT_TRUE(server.bind(loopback, 0));
    ASSERT_TRUE(server.listen());
    server.setSocketNonBlocking(true);

    EXPECT_EQ(server.acceptStream(), nullptr);
}

TEST_F(TcpStreamTest, doesNotComeFromAServerThatCannotAccept)
{
    Murn::TcpServer server(Socket::IPv4);

    for (const int error : {EMFILE, ECONNABORTED, EINTR}) {
        const Interposed accepts(interpose::accept, interpose::failsWith(error));
        EXPECT_EQ(server.acceptStream(), nullptr);
    }
}

}  // namespace
