// The TCP server on a thread's loop, and the accept source that it arms.
#include "AsyncTcpServer.h"

#include <dlfcn.h>
#include <kxPAL/HostAddress.h>
#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "FatalTest.h"
#include "InterposeGlib.h"
#include "InterposeSockets.h"
#include "Loopback.h"
#include "StreamTest.h"
#include "TcpStream.h"
#include "Timer.h"
#include "VirtualTable.h"
#include "network/AsyncTcpServer_Unix.h"

using Murn::AsyncTcpServer;
using Murn::AsyncTcpServerSource;
using Murn::HostAddress;
using Murn::Socket;
using Murn::TcpStream;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

const std::string source = "src/network/AsyncTcpServer_Unix.cpp";
const HostAddress loopback = HostAddress::LoopbackIPv4;

// A listening server that keeps the streams it is given, and does at each what the test asks for.
class Server : public AsyncTcpServer {
public:
    using Action = std::function<void()>;

    explicit Server(Action action = nullptr, Socket::Family family = Socket::IPv4)
        : AsyncTcpServer(family), _action(std::move(action))
    {
        EXPECT_TRUE(bind(loopbackOf(family), 0));
        EXPECT_TRUE(listen());
    }

    void newConnection(TcpStream* stream) override
    {
        {
            const std::lock_guard<std::mutex> lock(_mutex);
            _streams.emplace_back(stream);
            _threads.push_back(Murn::Thread::CurrentThread());
        }
        // A copy, because the action may delete the server.
        const Action action = _action;
        if (action != nullptr)
            action();
    }

    std::size_t count() const
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _streams.size();
    }

    /// The streams until now; with them the connections go.
    std::vector<std::unique_ptr<TcpStream>> takeStreams()
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return std::move(_streams);
    }

    /// The thread of each call.
    std::vector<Murn::Thread*> threads() const
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _threads;
    }

    Peer connectAPeer() const { return Peer::connectedTo(localPort()); }
    int fd() const { return _socket; }
    /// The armed source, at the place that is promised for it.
    GSource* token() const { return fieldAt<GSource*>(this, 16); }
    /// The record of the armed source.
    AsyncTcpServerSource* record() const { return reinterpret_cast<AsyncTcpServerSource*>(token()); }

private:
    mutable std::mutex _mutex;
    std::vector<std::unique_ptr<TcpStream>> _streams;  // guarded by _mutex
    std::vector<Murn::Thread*> _threads;               // guarded by _mutex
    Action _action;
};

class AsyncTcpServerTest : public RuntimeTest {
protected:
    // The loop has yet to see a connection that is there.
    static void awaitConnection(const Server& server) { ASSERT_NE(awaitEvents(server.fd(), POLLIN), 0); }

    interpose::CallLog _calls;
};

// ---- What it is made of

TEST_F(AsyncTcpServerTest, keepsItsTokenBehindTheFieldsOfASocket)
{
    Server server;
    EXPECT_EQ(sizeof(AsyncTcpServer), 24U);
    EXPECT_EQ(server.token(), nullptr);

    server.asyncAccept();

    ASSERT_NE(server.token(), nullptr);
    EXPECT_EQ(g_source_get_context(server.token()), contextOf(mainThread()));
}

TEST_F(AsyncTcpServerTest, addsOneSlotBehindTheDestructors)
{
    EXPECT_EQ(virtualSlot(&AsyncTcpServer::newConnection), 2U);
    EXPECT_TRUE(std::is_abstract_v<AsyncTcpServer>);
    EXPECT_FALSE(isVirtual(&AsyncTcpServer::bind));
    EXPECT_FALSE(isVirtual(&AsyncTcpServer::listen));
    EXPECT_FALSE(isVirtual(&AsyncTcpServer::cleanup));
    EXPECT_FALSE(isVirtual(&AsyncTcpServer::reArm));
}

TEST_F(AsyncTcpServerTest, doesNotBlock)
{
    EXPECT_TRUE(Server().socketNonBlocking());
}

TEST_F(AsyncTcpServerTest, reportsWhetherItGetsItsAddressAndListens)
{
    class Plain : public AsyncTcpServer {
    public:
        Plain() : AsyncTcpServer(Socket::IPv4) {}
        void newConnection(TcpStream* stream) override { delete stream; }
    };
    const Server first;
    Plain second;
    EXPECT_FALSE(second.bind(loopback, first.localPort()));
    EXPECT_TRUE(second.bind(loopback, 0));
    EXPECT_TRUE(second.listen());

    const Interposed refused(interpose::listen, interpose::failsWith(EADDRINUSE));
    EXPECT_FALSE(second.listen());
}

TEST_F(AsyncTcpServerTest, isDestroyedThroughItsBases)
{
    auto* const server = new Server;
    server->asyncAccept();
    const int fd = server->fd();

    delete static_cast<Socket*>(server);

    EXPECT_FALSE(isOpen(fd));
}

// ---- The accept source

TEST_F(AsyncTcpServerTest, keepsServerAndPollRecordRightBehindGlibsHeader)
{
    EXPECT_EQ(offsetof(AsyncTcpServerSource, server), sizeof(GSource));
    EXPECT_EQ(offsetof(AsyncTcpServerSource, pollfd), sizeof(GSource) + sizeof(void*));
    EXPECT_EQ(sizeof(AsyncTcpServerSource), sizeof(GSource) + sizeof(void*) + sizeof(GPollFD));
}

TEST_F(AsyncTcpServerTest, exportsATableOfThreeFunctions)
{
    EXPECT_NE(funcs.prepare, nullptr);
    EXPECT_NE(funcs.check, nullptr);
    EXPECT_NE(funcs.dispatch, nullptr);
    EXPECT_EQ(funcs.finalize, nullptr);
    EXPECT_EQ(funcs.closure_callback, nullptr);
    EXPECT_EQ(funcs.closure_marshal, nullptr);
    EXPECT_EQ(::dlsym(RTLD_DEFAULT, "funcs"), &funcs);
}

TEST_F(AsyncTcpServerTest, makesItsSourceFillsThePollRecordAddsItAndAttachesInThisOrder)
{
    Server server;
    const Interposed creation(interpose::g_source_new, [&](auto real, GSourceFuncs* table, guint size) {
        _calls.note("new");
        EXPECT_EQ(table, &funcs);
        EXPECT_EQ(size, sizeof(AsyncTcpServerSource));
        return real(table, size);
    });
    const Interposed polling(interpose::g_source_add_poll, [&](auto real, GSource* made, GPollFD* record) {
        _calls.note("add poll");
        EXPECT_EQ(record, &reinterpret_cast<AsyncTcpServerSource*>(made)->pollfd);
        EXPECT_EQ(reinterpret_cast<AsyncTcpServerSource*>(made)->server, &server);
        EXPECT_EQ(record->fd, server.fd());
        EXPECT_EQ(record->events, G_IO_IN);
        EXPECT_EQ(record->revents, 0);
        real(made, record);
    });
    const Interposed attaching(interpose::g_source_attach, [&](auto real, GSource* made, GMainContext* context) {
        _calls.note("attach");
        EXPECT_EQ(context, contextOf(mainThread()));
        return real(made, context);
    });

    server.asyncAccept();

    EXPECT_THAT(_calls.calls(), ElementsAre("new", "add poll", "attach"));
    EXPECT_EQ(server.token()->ref_count, 2U);  // the server's and the context's
}

TEST_F(AsyncTcpServerTest, returnsTheIdOfTheSource)
{
    Server server;

    const int id = server.asyncAccept();

    EXPECT_GT(id, 0);
    EXPECT_EQ(g_main_context_find_source_by_id(contextOf(mainThread()), static_cast<guint>(id)), server.token());
}

TEST_F(AsyncTcpServerTest, preparesThePollRecordAfreshWithTheDescriptorOfTheMoment)
{
    Server server;
    server.asyncAccept();
    AsyncTcpServerSource* const record = server.record();
    for (const int fd : {server.fd(), -1}) {
        if (fd == -1) {
            // A closed server is given up by its loop first; here nothing polls.
            g_source_remove_poll(server.token(), &record->pollfd);
            server.close();
        }
        record->pollfd.fd = 4711;
        record->pollfd.events = G_IO_OUT;
        record->pollfd.revents = G_IO_IN | G_IO_HUP;
        int timeoutMs = 17;

        EXPECT_FALSE(funcs.prepare(server.token(), &timeoutMs));

        EXPECT_EQ(timeoutMs, -1);
        EXPECT_EQ(record->pollfd.fd, fd);
        EXPECT_EQ(record->pollfd.events, G_IO_IN);
        EXPECT_EQ(record->pollfd.revents, 0);
    }
}

// When another thread adds a source to the context, GLib looks at the records that are there, under a lock that prepare
// does not have.
TEST_F(AsyncTcpServerTest, preparesARecordThatIsFreshWithoutWritingToIt)
{
    Server server;
    constexpr std::size_t size = 4096;
    void* const page = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(page, MAP_FAILED);
    auto* const record = static_cast<AsyncTcpServerSource*>(page);
    record->server = &server;
    gint timeoutMs = 0;
    funcs.prepare(&record->source, &timeoutMs);
    ASSERT_EQ(::mprotect(page, size, PROT_READ), 0);

    EXPECT_FALSE(funcs.prepare(&record->source, &timeoutMs));  // a write would end the test here

    EXPECT_EQ(record->pollfd.fd, server.fd());
    EXPECT_EQ(record->pollfd.events, G_IO_IN);
    EXPECT_EQ(record->pollfd.revents, 0);
    ::munmap(page, size);
}

TEST_F(AsyncTcpServerTest, isReadyWhenThereIsSomethingToAccept)
{
    Server server;
    server.asyncAccept();
    AsyncTcpServerSource* const record = server.record();
    for (const unsigned revents : {0U, 0U | G_IO_OUT, 0U | G_IO_ERR | G_IO_HUP | G_IO_NVAL}) {
        record->pollfd.revents = static_cast<gushort>(revents);
        EXPECT_FALSE(funcs.check(server.token()));
    }
    for (const unsigned revents : {0U | G_IO_IN, 0U | G_IO_IN | G_IO_ERR | G_IO_HUP}) {
        record->pollfd.revents = static_cast<gushort>(revents);
        EXPECT_TRUE(funcs.check(server.token()));
    }
}

TEST_F(AsyncTcpServerTest, takesADispatchWithoutAnythingToAcceptForAFatalError)
{
    Server server;
    server.asyncAccept();
    for (const unsigned revents : {0U, 0U | G_IO_ERR | G_IO_HUP | G_IO_NVAL}) {
        EXPECT_FATAL(
            {
                server.record()->pollfd.revents = static_cast<gushort>(revents);
                funcs.dispatch(server.token(), nullptr, nullptr);
            },
            "src->pollfd.revents & G_IO_IN", source);
    }
}

TEST_F(AsyncTcpServerTest, disarmsThenHandsTheConnectionOverAndRemovesTheSource)
{
    Server server([&] { _calls.note("new connection"); });
    server.asyncAccept();
    GSource* const armed = g_source_ref(server.token());
    const Peer peer = server.connectAPeer();
    awaitConnection(server);
    server.record()->pollfd.revents = G_IO_IN;
    {
        const Interposed destroyed(interpose::g_source_destroy, [&](auto real, GSource* what) {
            if (what == armed)
                _calls.note("destroy");
            real(what);
        });
        const Interposed accepted(interpose::accept, _calls.noting("accept"));

        EXPECT_FALSE(funcs.dispatch(armed, nullptr, nullptr));
    }

    EXPECT_THAT(_calls.calls(), ElementsAre("destroy", "accept", "new connection"));
    EXPECT_EQ(server.token(), nullptr);
    EXPECT_TRUE(g_source_is_destroyed(armed));
    EXPECT_EQ(armed->ref_count, 1U);
    g_source_unref(armed);
}

// ---- Arming

TEST_F(AsyncTcpServerTest, takesASecondArmingForAFatalError)
{
    Server server;
    server.asyncAccept();
    EXPECT_FATAL(server.asyncAccept(), "_token == NULL", source);
    EXPECT_FATAL(server.asyncAccept(mainThread()), "_token == NULL", source);
    EXPECT_FATAL(server.reArm(mainThread()), "_token == NULL", source);
}

TEST_F(AsyncTcpServerTest, takesNoThreadForAFatalError)
{
    Server server;
    EXPECT_FATAL(server.asyncAccept(nullptr), "thread", source);
    EXPECT_FATAL(server.reArm(nullptr), "thread", source);
}

TEST_F(AsyncTcpServerTest, looksAtTheThreadBeforeItLooksWhetherItIsArmed)
{
    Server server;
    server.asyncAccept();
    EXPECT_FATAL(server.asyncAccept(nullptr), "thread", source);
    EXPECT_FATAL(server.reArm(nullptr), "thread", source);
}

TEST_F(AsyncTcpServerTest, looksWhetherItIsArmedBeforeItLooksForTheCallingThread)
{
    Server server;
    server.asyncAccept();
    EXPECT_FATAL(onForeignThread([&] { server.asyncAccept(); }), "_token == NULL", source);
}

TEST_F(AsyncTcpServerTest, acceptsOnTheThreadThatArmsIt)
{
    Worker worker;
    Server server;
    worker.run([&] {
        const int id = server.asyncAccept();
        EXPECT_EQ(g_main_context_find_source_by_id(contextOf(worker.thread()), static_cast<guint>(id)), server.token());
    });

    const Peer peer = server.connectAPeer();

    EXPECT_TRUE(waitUntil([&] { return server.count() == 1; }));
    EXPECT_THAT(server.threads(), ElementsAre(worker.thread()));
    worker.run([&] { server.takeStreams(); });
}

// A way to arm an accept on another thread.
struct Arming {
    const char* name;
    int (*arm)(AsyncTcpServer& server, Murn::Thread* thread);

    friend std::ostream& operator<<(std::ostream& os, const Arming& arming) { return os << arming.name; }
};

class AsyncTcpServerOnAnotherThreadTest : public AsyncTcpServerTest, public ::testing::WithParamInterface<Arming> {};

TEST_P(AsyncTcpServerOnAnotherThreadTest, acceptsThereAndTheStreamBelongsThere)
{
    Worker worker;
    Server server;
    Reader reader;
    char buffer[8];

    EXPECT_GT(GetParam().arm(server, worker.thread()), 0);
    Peer peer = server.connectAPeer();

    EXPECT_TRUE(waitUntil([&] { return server.count() == 1; }));
    EXPECT_THAT(server.threads(), ElementsAre(worker.thread()));
    std::vector<std::unique_ptr<TcpStream>> streams = server.takeStreams();
    worker.run([&] {
        EXPECT_EQ(StreamFields(streams[0].get()).context(), contextOf(worker.thread()));
        streams[0]->asyncReadData(buffer, sizeof buffer, &reader);
    });
    ASSERT_TRUE(peer.send("abc"));
    EXPECT_TRUE(waitUntil([&] { return reader.count() == 1; }));
    EXPECT_THAT(reader.threads(), ElementsAre(worker.thread()));
    worker.run([&] { streams.clear(); });
}

TEST_P(AsyncTcpServerOnAnotherThreadTest, acceptsAConnectionThatWaitsAlready)
{
    Worker worker;
    Server server;
    for (std::size_t round = 1; round <= 200; ++round) {
        const Peer peer = server.connectAPeer();
        awaitConnection(server);

        // The worker may be through with it before this comes back.
        EXPECT_GT(GetParam().arm(server, worker.thread()), 0);

        ASSERT_TRUE(waitUntil([&] { return server.count() == 1; }));
        worker.run([&] { EXPECT_THAT(server.takeStreams(), SizeIs(1)); });
    }
    EXPECT_THAT(server.threads(), Each(worker.thread()));
}

INSTANTIATE_TEST_SUITE_P(AsyncTcpServer, AsyncTcpServerOnAnotherThreadTest,
                         ::testing::Values(Arming{"asyncAccept",
                                                  [](AsyncTcpServer& server, Murn::Thread* thread) {
                                                      return server.asyncAccept(thread);
                                                  }},
                                           Arming{"reArm", [](AsyncTcpServer& server,
                                                              Murn::Thread* thread) { return server.reArm(thread); }}),
                         [](const auto& test) { return test.param.name; });

TEST_F(AsyncTcpServerTest, acceptsOverIPv6)
{
    if (!hasIPv6Loopback())
        GTEST_SKIP() << "this machine has no ::1";
    Server server(nullptr, Socket::IPv6);
    TcpStream client(Socket::IPv6);
    server.asyncAccept();

    ASSERT_TRUE(client.connect(HostAddress::LoopbackIPv6, server.localPort()));

    EXPECT_TRUE(pumpUntil([&] { return server.count() == 1; }));
    const std::vector<std::unique_ptr<TcpStream>> streams = server.takeStreams();
    EXPECT_EQ(streams[0]->remoteAddress(), HostAddress(HostAddress::LoopbackIPv6));
    EXPECT_EQ(client.writeData("abc", 3), 3);
    Reader reader;
    char buffer[8];
    streams[0]->asyncReadData(buffer, sizeof buffer, &reader);
    EXPECT_TRUE(pumpUntil([&] { return reader.count() == 1; }));
    EXPECT_THAT(reader.reads(), ElementsAre(Read{buffer, 3}));
}

TEST_F(AsyncTcpServerTest, acceptsOneConnectionAnArming)
{
    Server server;
    const Peer first = server.connectAPeer();
    const Peer second = server.connectAPeer();
    awaitConnection(server);

    server.asyncAccept();
    EXPECT_TRUE(pumpUntil([&] { return server.count() == 1; }));
    EXPECT_EQ(pumpWhatIsReady(), 0);
    EXPECT_EQ(server.count(), 1U);
    EXPECT_EQ(server.token(), nullptr);

    server.asyncAccept();
    EXPECT_TRUE(pumpUntil([&] { return server.count() == 2; }));
    EXPECT_EQ(pumpWhatIsReady(), 0);
}

TEST_F(AsyncTcpServerTest, acceptsOneConnectionAfterAnotherWhenItArmsItselfAtEach)
{
    Server* self = nullptr;
    Server server([&] { self->reArm(mainThread()); });
    self = &server;
    server.asyncAccept();

    std::vector<Peer> peers;
    peers.reserve(20);
    for (int index = 0; index < 20; ++index)
        peers.push_back(server.connectAPeer());

    EXPECT_TRUE(pumpUntil([&] { return server.count() == 20; }));
    EXPECT_NE(server.token(), nullptr);
}

TEST_F(AsyncTcpServerTest, mayMoveToAnotherThreadAtEachConnection)
{
    Worker worker;
    Server* self = nullptr;
    Server server([&] { self->reArm(mainThread()->isCurrentThread() ? worker.thread() : mainThread()); });
    self = &server;
    server.asyncAccept();

    std::vector<Peer> peers;
    for (std::size_t count = 1; count <= 20; ++count) {
        peers.push_back(server.connectAPeer());
        ASSERT_TRUE(pumpUntil([&] { return server.count() == count; }));
    }

    std::vector<Murn::Thread*> threads;
    for (int index = 0; index < 10; ++index) {
        threads.push_back(mainThread());
        threads.push_back(worker.thread());
    }
    EXPECT_EQ(server.threads(), threads);
    pumpWhatIsReady();
    server.cleanup();
}

TEST_F(AsyncTcpServerTest, acceptsInALoopThatNewConnectionPumps)
{
    Server* self = nullptr;
    Peer second;
    Server server([&] {
        if (self->count() > 1)
            return;
        self->asyncAccept();
        second = self->connectAPeer();
        EXPECT_TRUE(pumpUntil([&] { return self->count() == 2; }));
    });
    self = &server;
    server.asyncAccept();

    const Peer first = server.connectAPeer();

    EXPECT_TRUE(pumpUntil([&] { return server.count() == 2; }));
    EXPECT_EQ(server.token(), nullptr);
}

// ---- Accepting that fails

TEST_F(AsyncTcpServerTest, isIdleAndSilentWhenAcceptingFails)
{
    for (const int error : {EAGAIN, ECONNABORTED, EMFILE}) {
        Server server;
        const Peer peer = server.connectAPeer();
        awaitConnection(server);
        server.asyncAccept();
        {
            const Interposed accepts(interpose::accept, [&](auto*, int fd, sockaddr*, socklen_t*) {
                EXPECT_EQ(fd, server.fd());
                _calls.note("accept");
                errno = error;
                return -1;
            });
            EXPECT_TRUE(pumpUntil([&] { return server.token() == nullptr; }));
            EXPECT_EQ(pumpWhatIsReady(), 0);
        }
        EXPECT_EQ(server.count(), 0U);

        // The connection is still there for whoever arms again.
        server.asyncAccept();
        EXPECT_TRUE(pumpUntil([&] { return server.count() == 1; }));
    }
    EXPECT_THAT(_calls.calls(), SizeIs(3));
}

TEST_F(AsyncTcpServerTest, acceptsAPeerThatIsGoneAgainAsAStreamThatEnds)
{
    Server server;
    Reader reader;
    char buffer[8];
    Peer peer = server.connectAPeer();
    peer.leave();

    server.asyncAccept();

    EXPECT_TRUE(pumpUntil([&] { return server.count() == 1; }));
    const std::vector<std::unique_ptr<TcpStream>> streams = server.takeStreams();
    streams[0]->asyncReadData(buffer, sizeof buffer, &reader);
    EXPECT_TRUE(pumpUntil([&] { return reader.count() == 1; }));
    EXPECT_THAT(reader.reads(), ElementsAre(without(0)));
}

// ---- Disarming

TEST_F(AsyncTcpServerTest, disarms)
{
    Server server;
    server.asyncAccept();
    GSource* const armed = g_source_ref(server.token());

    server.cleanup();

    EXPECT_EQ(server.token(), nullptr);
    EXPECT_TRUE(g_source_is_destroyed(armed));
    EXPECT_EQ(armed->ref_count, 1U);
    g_source_unref(armed);
    const Peer peer = server.connectAPeer();
    awaitConnection(server);
    EXPECT_EQ(pumpWhatIsReady(), 0);
    EXPECT_EQ(server.count(), 0U);
}

TEST_F(AsyncTcpServerTest, disarmsByDestroyingTheSourceAndThenReleasingIt)
{
    Server server;
    server.asyncAccept();
    const Interposed destroyed(interpose::g_source_destroy, _calls.noting("destroy"));
    const Interposed dropped(interpose::g_source_unref, _calls.noting("unref"));

    DestroySourceFor(&server);

    EXPECT_THAT(_calls.calls(), ElementsAre("destroy", "unref"));
    EXPECT_EQ(server.token(), nullptr);
}

TEST_F(AsyncTcpServerTest, disarmsNothingWhenItIsIdle)
{
    Server server;
    const Interposed destroyed(interpose::g_source_destroy, _calls.noting("destroy"));
    const Interposed dropped(interpose::g_source_unref, _calls.noting("unref"));

    server.cleanup();
    EXPECT_THAT(_calls.calls(), IsEmpty());

    server.asyncAccept();
    server.cleanup();
    server.cleanup();
    EXPECT_THAT(_calls.calls(), ElementsAre("destroy", "unref"));
}

TEST_F(AsyncTcpServerTest, mayBeArmedAgainAfterItWasDisarmed)
{
    Server server;
    server.asyncAccept();
    server.cleanup();
    server.asyncAccept();

    const Peer peer = server.connectAPeer();

    EXPECT_TRUE(pumpUntil([&] { return server.count() == 1; }));
}

TEST_F(AsyncTcpServerTest, mayBeClosedAfterItWasDisarmed)
{
    Server server;
    server.asyncAccept();
    server.cleanup();

    EXPECT_TRUE(server.close());

    EXPECT_EQ(pumpWhatIsReady(), 0);
}

TEST_F(AsyncTcpServerTest, acceptsNothingMoreOnceItIsDestroyed)
{
    auto server = std::make_unique<Server>();
    server->asyncAccept();
    GSource* const armed = g_source_ref(server->token());
    const int fd = server->fd();
    const Peer peer = server->connectAPeer();
    awaitConnection(*server);
    {
        const Interposed destroyed(interpose::g_source_destroy, _calls.noting("destroy source"));
        const Interposed closed(interpose::close, _calls.noting("close socket"));
        server.reset();
    }

    EXPECT_EQ(pumpWhatIsReady(), 0);

    EXPECT_THAT(_calls.calls(), ElementsAre("destroy source", "close socket"));
    EXPECT_TRUE(g_source_is_destroyed(armed));
    EXPECT_EQ(armed->ref_count, 1U);
    EXPECT_FALSE(isOpen(fd));
    g_source_unref(armed);
}

TEST_F(AsyncTcpServerTest, mayBeDestroyedAtAConnection)
{
    for (const bool armsFirst : {false, true}) {
        Server* server = nullptr;
        bool called = false;
        server = new Server([&] {
            called = true;
            if (armsFirst)
                server->asyncAccept();
            delete std::exchange(server, nullptr);
        });
        server->asyncAccept();

        const Peer peer = server->connectAPeer();

        EXPECT_TRUE(pumpUntil([&] { return called; }));
        EXPECT_EQ(server, nullptr);
        EXPECT_EQ(pumpWhatIsReady(), 0);
    }
}

TEST_F(AsyncTcpServerTest, mayBeDestroyedAtAConnectionThatItsLoopIsPumpedIn)
{
    Server* server = nullptr;
    bool called = false;
    server = new Server([&] {
        called = true;
        delete std::exchange(server, nullptr);
        pumpWhatIsReady();
    });
    server->asyncAccept();

    const Peer peer = server->connectAPeer();

    EXPECT_TRUE(pumpUntil([&] { return called; }));
}

TEST_F(AsyncTcpServerTest, staysArmedWhenAHandlerTookTheConnectionAndPumpedTheLoop)
{
    // Dispatched before the server in the same round, because it was attached first.
    class Taker : public Murn::Timer {
    public:
        explicit Taker(Server& server) : _server(server) {}
        void timeout() override
        {
            stop();
            taken = Descriptor(_server.acceptFd());
            pumpWhatIsReady();
        }
        Descriptor taken;

    private:
        Server& _server;
    };
    Server server;
    Taker taker(server);
    taker.start(0, nullptr);
    server.asyncAccept();
    const Peer first = server.connectAPeer();
    awaitConnection(server);

    EXPECT_TRUE(mainThread()->processEvents(false));

    EXPECT_GE(taker.taken.get(), 0);
    EXPECT_EQ(server.count(), 0U);
    EXPECT_NE(server.token(), nullptr);
    const Peer second = server.connectAPeer();
    EXPECT_TRUE(pumpUntil([&] { return server.count() == 1; }));
}

}  // namespace
