// A host at work in all of its threads, one of which, or two at once, break a contract: see FatalExit_stress_test.
#include <kxPAL/Application.h>
#include <kxPAL/AsyncTcpServer.h>
#include <kxPAL/Check.h>
#include <kxPAL/Event.h>
#include <kxPAL/IStreamReadHandler.h>
#include <kxPAL/LogHandler.h>
#include <kxPAL/MulticastUdpSocket.h>
#include <kxPAL/NetworkInterface.h>
#include <kxPAL/Object.h>
#include <kxPAL/Runnable.h>
#include <kxPAL/TcpSocket.h>
#include <kxPAL/TcpStream.h>
#include <kxPAL/Thread.h>
#include <kxPAL/ThreadPool.h>
#include <kxPAL/Timer.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <vector>

using Murn::Application;
using Murn::Event;
using Murn::HostAddress;
using Murn::Logger;
using Murn::Object;
using Murn::Thread;

namespace {

// Everything here is made with new and left alone: the process ends under it.

class Loop : public Thread {
public:
    Loop() { setJoinable(true); }
};

/// Keeps two loops busy with an event that goes to and fro.
class Player : public Object {
public:
    void event(Event* event) override
    {
        Application::PostEvent(partner, new Event(event->_type, nullptr));
        ++turns;
    }

    Object* partner = nullptr;
    static std::atomic<int> turns;
};

std::atomic<int> Player::turns;

class Ticker : public Murn::Timer {
public:
    void timeout() override { Logger::Info("Host", "tick"); }
};

class Sink final : public Murn::LogHandler {
public:
    Sink() : LogHandler("", 0) {}
    void HandleLog(const char*, Logger::LogLevel, const char*) override { ++messages; }
    std::atomic<int> messages{0};
};

/// A unit of work that hands in the next one.
class Unit : public Murn::Runnable {
public:
    explicit Unit(Murn::ThreadPool& pool) : _pool(pool) {}
    void run() override { _pool.run(new Unit(_pool)); }

private:
    Murn::ThreadPool& _pool;
};

class Echo : public Murn::IStreamReadHandler {
public:
    explicit Echo(Murn::TcpStream* stream) : _stream(stream) { arm(); }

    void readDone(void* buffer, long result) override
    {
        if (buffer == nullptr || result <= 0)
            return;
        _stream->writeData(buffer, static_cast<unsigned long>(result));
        arm();
    }

private:
    void arm() { _stream->asyncReadData(_buffer, sizeof _buffer, this); }

    Murn::TcpStream* _stream;
    char _buffer[64];
};

class EchoServer : public Murn::AsyncTcpServer {
public:
    EchoServer() : AsyncTcpServer(Murn::Socket::IPv4)
    {
        bind(HostAddress(HostAddress::LoopbackIPv4), 0);
        listen();
    }

    void newConnection(Murn::TcpStream* stream) override
    {
        asyncAccept();
        new Echo(stream);
    }
};

template <typename Function>
void inBackground(Function function)
{
    std::thread(function).detach();
}

void talkTo(unsigned short port)
{
    Murn::TcpSocket socket(Murn::Socket::IPv4);
    socket.connect(HostAddress(HostAddress::LoopbackIPv4), port);
    char buffer[16] = "hello";
    while (socket.send(buffer, 5) == 5 && socket.recv(buffer, sizeof buffer) > 0) {
    }
}

void receiveMulticast()
{
    auto* const socket = new Murn::MulticastUdpSocket;
    HostAddress group(std::string("239.255.0.1"));
    socket->registerOnMulticastGroup({&group}, 0, true);
    char buffer[16];
    while (socket->recvfrom(buffer, sizeof buffer, nullptr, nullptr) > 0) {
    }
}

void readInterfaces()
{
    std::vector<Murn::NetworkInterfaceInfo> all;
    for (;;)
        Murn::NetworkInterface::getInterfaces(all);
}

void pumpAsExternal()
{
    Application::RegisterExternalThread();
    auto* const ticker = new Ticker;
    ticker->start(1, nullptr);
    for (;;)
        Application::ProcessEvents(true);
}

void startLoops()
{
    auto* const first = new Player;
    auto* const second = new Player;
    first->partner = second;
    second->partner = first;
    for (Player* const player : {first, second}) {
        auto* const loop = new Loop;
        player->moveToThread(loop);
        (new Ticker)->start(1, loop);
        loop->start();
    }
    Application::PostEvent(first, new Event(7, nullptr));

    auto* const server = new EchoServer;
    auto* const loop = new Loop;
    server->asyncAccept(loop);
    loop->start();
    inBackground([port = server->localPort()] { talkTo(port); });
}

void breakAContract()
{
    if (Application::CurrentThread() == nullptr)
        Application::RegisterExternalThread();
    Application::RegisterExternalThread();
}

/// Breaks it on a worker of the pool.
class BreakingUnit : public Murn::Runnable {
public:
    void run() override { breakAContract(); }
};

}  // namespace

int main(int argc, char** argv)
{
    const int seed = argc > 1 ? std::atoi(argv[1]) : 0;
    std::signal(SIGPIPE, SIG_IGN);
    auto* const application = new Application(argc, argv);
    Logger::InstallDefaultHandler(new Sink);

    const Murn::NetworkInterface enumeration;
    inBackground(receiveMulticast);
    inBackground(readInterfaces);
    inBackground(pumpAsExternal);
    inBackground([] {
        for (;;)
            Logger::Warning("Host", "at work");
    });
    startLoops();
    auto* const pool = new Murn::ThreadPool(2);
    for (int unit = 0; unit < 3; ++unit)
        pool->run(new Unit(*pool));
    while (Player::turns < 10 + seed % 7)
        std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::microseconds(seed % 10 * 200));

    if (seed % 2 == 1)
        pool->run(new BreakingUnit);
    if (seed % 4 >= 2)
        inBackground(breakAContract);
    if (seed % 4 == 0)
        breakAContract();
    application->exec();
    return 0;
}
