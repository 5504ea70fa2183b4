// Many connections at once over several loops, as a host serves them, with clients of all manners.
#include <kxPAL/Application.h>
#include <kxPAL/AsyncTcpServer.h>
#include <kxPAL/Event.h>
#include <kxPAL/HostAddress.h>
#include <kxPAL/IStreamReadHandler.h>
#include <kxPAL/Object.h>
#include <kxPAL/TcpStream.h>
#include <kxPAL/Thread.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "../core/Runtime.h"
#include "Streams.h"

using ::testing::AnyOf;
using ::testing::Each;
using ::testing::Eq;

namespace {

constexpr std::size_t loopCount = 3;

// Raises the soft limit of open descriptors. Returns whether so many are allowed.
bool allowDescriptors(rlim_t count)
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur >= count)
        return true;
    limit.rlim_cur = std::min(count, limit.rlim_max);
    return limit.rlim_cur == count && ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

// What the server's side counted.
struct Counters {
    std::atomic<std::size_t> accepted{0};
    std::atomic<std::size_t> ended{0};
    std::atomic<std::size_t> bytes{0};
};

class Connection;

// A loop that connections come to.
class Loop {
public:
    Loop()
    {
        _worker.run([this] { _hub = std::make_unique<Hub>(); });
    }
    ~Loop()
    {
        _worker.run([this] { _hub.reset(); });
    }

    Murn::Thread* thread() { return _worker.thread(); }

    /// Any thread. Lets the connection, whose stream belongs to this loop by now, begin here as soon as may be.
    void begin(Connection* connection)
    {
        Murn::Application::PostEvent(_hub.get(), new Murn::Event(beginType, connection));
    }

private:
    static constexpr unsigned beginType = 2;

    class Hub : public Murn::Object {
    public:
        void event(Murn::Event* event) override;
    };

    Worker _worker;
    std::unique_ptr<Hub> _hub;
};

// One connection: the owner of its stream and the handler of its reads. It lives on the loop of the stream and deletes
// itself there.
class Connection : public Murn::IStreamReadHandler {
public:
    Connection(Murn::TcpStream* stream, Counters& counters) : _stream(stream), _counters(counters)
    {
        ++_counters.accepted;
    }
    ~Connection() override
    {
        _stream.reset();
        ++_counters.ended;
    }

    virtual void begin() { arm(); }

    void readDone(void* buffer, long result) override
    {
        if (buffer != nullptr && result > 0 && echo(static_cast<std::size_t>(result)))
            goOn();
        else
            delete this;
    }

    Murn::TcpStream& stream() { return *_stream; }

protected:
    virtual void goOn() { arm(); }
    void arm() { _stream->asyncReadData(_buffer, sizeof _buffer, this); }

private:
    bool echo(std::size_t size)
    {
        _counters.bytes += size;
        for (std::size_t done = 0; done < size;) {
            const long part = _stream->writeData(_buffer + done, size - done);
            if (part <= 0)
                return false;
            done += static_cast<std::size_t>(part);
        }
        return true;
    }

    std::unique_ptr<Murn::TcpStream> _stream;
    Counters& _counters;
    char _buffer[512];
};

void Loop::Hub::event(Murn::Event* event)
{
    if (event->_type == beginType)
        static_cast<Connection*>(event->_data)->begin();
    else
        Object::event(event);
}

// Accepts on one loop and deals the connections out to all.
class EchoServer : public Murn::AsyncTcpServer {
public:
    using Maker = std::function<Connection*(Murn::TcpStream*, std::size_t loop)>;

    EchoServer(std::vector<Loop>& loops, Maker maker)
        : AsyncTcpServer(Murn::Socket::IPv4), _loops(loops), _maker(std::move(maker))
    {
        EXPECT_TRUE(bind(Murn::HostAddress::LoopbackIPv4, 0));
        EXPECT_TRUE(listen());
    }

    void newConnection(Murn::TcpStream* stream) override
    {
        asyncAccept();
        const std::size_t loop = _next++ % _loops.size();
        Connection* const connection = _maker(stream, loop);
        connection->stream().moveToThread(_loops[loop].thread());
        _loops[loop].begin(connection);
    }

private:
    std::vector<Loop>& _loops;
    Maker _maker;
    std::size_t _next = 0;
};

// The bytes that a client sends in one round; each round of each client has its own.
std::string message(std::size_t client, std::size_t round, std::size_t size)
{
    std::string text(size, '\0');
    for (std::size_t index = 0; index < size; ++index)
        text[index] = static_cast<char>(client * 31 + round * 7 + index);
    return text;
}

class ConnectionsStressTest : public RuntimeTest {
protected:
    void TearDown() override
    {
        _acceptor.run([this] { _server.reset(); });
        _acceptor.finish();
        _loops.clear();
        RuntimeTest::TearDown();
    }

    // Serves connections until the test ends.
    void serve(EchoServer::Maker maker)
    {
        _acceptor.run([&] {
            _server = std::make_unique<EchoServer>(_loops, std::move(maker));
            _server->asyncAccept();
        });
    }

    void serveEchoes()
    {
        serve([this](Murn::TcpStream* stream, std::size_t) { return new Connection(stream, _counters); });
    }

    // Any thread. Connects when the server is not too far behind: a full queue would cost seconds.
    Peer connectAPeer()
    {
        EXPECT_TRUE(waitUntil([this] { return _connecting < _counters.accepted + 64; }));
        ++_connecting;
        return Peer::connectedTo(_server->localPort());
    }

    // Runs the function once in each of several threads, with the thread's number.
    template <typename Function>
    static void inThreads(std::size_t count, Function function)
    {
        std::vector<std::thread> threads;
        for (std::size_t index = 0; index < count; ++index)
            threads.emplace_back(function, index);
        for (std::thread& thread : threads)
            thread.join();
    }

    [[nodiscard]] bool awaitEnds(std::size_t count)
    {
        return waitUntil([&] { return _counters.ended == count; });
    }

    const IgnoredSigpipe _ignored;
    Counters _counters;
    std::atomic<std::size_t> _connecting{0};
    std::vector<Loop> _loops = std::vector<Loop>(loopCount);
    Worker _acceptor;
    std::unique_ptr<EchoServer> _server;
};

TEST_F(ConnectionsStressTest, echoesAThousandConnectionsThatAreOpenAtOnce)
{
    constexpr std::size_t clients = 1000;
    constexpr std::size_t threads = 4;
    constexpr std::size_t rounds = 5;
    constexpr std::size_t size = 1200;
    if (!allowDescriptors(2 * clients + 200))
        GTEST_SKIP() << "this machine does not allow " << 2 * clients + 200 << " open descriptors";
    serveEchoes();
    std::atomic<std::size_t> wrongEchoes{0};
    std::atomic<std::size_t> lateEnds{0};

    inThreads(threads, [&](std::size_t thread) {
        std::vector<Peer> peers;
        while (peers.size() < clients / threads)
            peers.push_back(connectAPeer());
        EXPECT_TRUE(waitUntil([&] { return _counters.accepted == clients; }));

        // All send before any receives, so that all are under way at once.
        const std::size_t first = thread * peers.size();
        for (std::size_t round = 0; round < rounds; ++round) {
            for (std::size_t index = 0; index < peers.size(); ++index) {
                if (!peers[index].send(message(first + index, round, size)))
                    ++wrongEchoes;
            }
            for (std::size_t index = 0; index < peers.size(); ++index) {
                if (peers[index].receive(size) != message(first + index, round, size))
                    ++wrongEchoes;
            }
        }
        for (Peer& peer : peers)
            peer.endSending();
        for (Peer& peer : peers) {
            if (!peer.seesTheEnd())
                ++lateEnds;
        }
    });

    EXPECT_TRUE(awaitEnds(clients));
    EXPECT_EQ(wrongEchoes, 0U);
    EXPECT_EQ(lateEnds, 0U);
    EXPECT_EQ(_counters.bytes, clients * rounds * size);
    EXPECT_EQ(_counters.accepted, clients);
}

TEST_F(ConnectionsStressTest, servesWellBehavedClientsAmongOthers)
{
    constexpr std::size_t rounds = 20;
    constexpr std::size_t groups = 4;
    constexpr std::size_t each = 20;  // of each manner in a group
    constexpr std::size_t manners = 5;
    constexpr std::size_t size = 900;
    if (!allowDescriptors(2 * groups * each * manners + 200))
        GTEST_SKIP() << "this machine does not allow enough open descriptors";
    serveEchoes();
    std::atomic<std::size_t> wrongEchoes{0};
    std::atomic<std::size_t> lateEnds{0};

    inThreads(groups, [&](std::size_t group) {
        std::vector<Peer> good;
        std::vector<Peer> silent;
        std::vector<Peer> halfClosing;
        for (std::size_t index = 0; index < each; ++index) {
            good.push_back(connectAPeer());
            silent.push_back(connectAPeer());
            halfClosing.push_back(connectAPeer());
        }
        for (std::size_t round = 0; round < rounds; ++round) {
            // The good ones are served all the time, while others come and go.
            for (std::size_t index = 0; index < each; ++index)
                good[index].send(message(group + index, round, size));
            Peer resetting = connectAPeer();
            resetting.send(message(0, round, size));
            Peer vanishing = connectAPeer();
            vanishing.send(message(0, round, 20 * size));
            halfClosing[round].send(message(group, round, size));
            halfClosing[round].endSending();
            resetting.reset();
            vanishing.leave();

            for (std::size_t index = 0; index < each; ++index) {
                if (good[index].receive(size) != message(group + index, round, size))
                    ++wrongEchoes;
            }
            if (halfClosing[round].receive(size) != message(group, round, size))
                ++wrongEchoes;
            if (!halfClosing[round].seesTheEnd())
                ++lateEnds;
        }
    });

    // The clients that were left, the silent ones among them, went with their threads.
    EXPECT_TRUE(awaitEnds(groups * each * manners));
    EXPECT_EQ(wrongEchoes, 0U);
    EXPECT_EQ(lateEnds, 0U);
    std::vector<std::string> texts;
    for (const LogMessage& message : logged())
        texts.push_back(message.text);
    // The last one is for a reset that poll() sees while the kernel is at it: the error is set, and nothing else yet.
    EXPECT_THAT(texts, Each(AnyOf(Eq("Error: Connection reset by peer"), Eq("Error !"), Eq("Unknown error !"))));
}

// A connection that leaves its loop for the next one with each read. The next loop uses it while the one before is
// still in the callback of the read.
class WanderingConnection : public Connection {
public:
    // What the loop does to which the connection comes.
    enum class Then { reads, ends };

    WanderingConnection(Murn::TcpStream* stream, Counters& counters, std::vector<Loop>& loops, std::size_t loop,
                        Then then)
        : Connection(stream, counters), _loops(loops), _loop(loop), _then(then)
    {
    }

    void begin() override
    {
        EXPECT_TRUE(_loops[_loop].thread()->isCurrentThread());
        if (_then == Then::ends && _moved)
            delete this;
        else
            arm();
    }

protected:
    void goOn() override
    {
        EXPECT_TRUE(_loops[_loop].thread()->isCurrentThread());
        _moved = true;
        _loop = (_loop + 1) % _loops.size();
        stream().moveToThread(_loops[_loop].thread());
        _loops[_loop].begin(this);
    }

private:
    std::vector<Loop>& _loops;
    std::size_t _loop;
    Then _then;
    bool _moved = false;
};

TEST_F(ConnectionsStressTest, movesStreamsToAnotherLoopWithEachRead)
{
    constexpr std::size_t clients = 20;
    constexpr std::size_t rounds = 500;
    constexpr std::size_t size = 100;
    serve([this](Murn::TcpStream* stream, std::size_t loop) {
        return new WanderingConnection(stream, _counters, _loops, loop, WanderingConnection::Then::reads);
    });
    std::vector<Peer> peers;
    while (peers.size() < clients)
        peers.push_back(connectAPeer());

    std::size_t wrongEchoes = 0;
    for (std::size_t round = 0; round < rounds; ++round) {
        for (std::size_t index = 0; index < clients; ++index)
            peers[index].send(message(index, round, size));
        for (std::size_t index = 0; index < clients; ++index) {
            if (peers[index].receive(size) != message(index, round, size))
                ++wrongEchoes;
        }
    }
    peers.clear();

    EXPECT_TRUE(awaitEnds(clients));
    EXPECT_EQ(wrongEchoes, 0U);
    EXPECT_EQ(_counters.bytes, clients * rounds * size);
}

TEST_F(ConnectionsStressTest, movesStreamsToALoopThatDeletesThemAtOnce)
{
    constexpr std::size_t clients = 1000;
    serve([this](Murn::TcpStream* stream, std::size_t loop) {
        return new WanderingConnection(stream, _counters, _loops, loop, WanderingConnection::Then::ends);
    });
    std::size_t wrongEchoes = 0;
    std::size_t lateEnds = 0;

    for (std::size_t index = 0; index < clients; ++index) {
        Peer peer = connectAPeer();
        peer.send("abc");
        if (peer.receive(3) != "abc")
            ++wrongEchoes;
        if (!peer.seesTheEnd())
            ++lateEnds;
    }

    EXPECT_TRUE(awaitEnds(clients));
    EXPECT_EQ(wrongEchoes, 0U);
    EXPECT_EQ(lateEnds, 0U);
}

}  // namespace
