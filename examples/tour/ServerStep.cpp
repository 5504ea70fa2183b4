// Step: a server on a worker thread's loop, and 100 clients of it on the main loop.
#include <kxPAL/AsyncTcpServer.h>
#include <kxPAL/IStreamReadHandler.h>
#include <kxPAL/TcpStream.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <list>
#include <memory>
#include <vector>

#include "LoopThread.h"
#include "Pump.h"
#include "Steps.h"

namespace {

using Murn::HostAddress;
using Murn::Socket;
using Murn::TcpStream;

constexpr std::size_t clientCount = 100;
constexpr int roundsOfEach = 8;
constexpr std::size_t messageSize = 5000;

// Writes everything: one call may write less than it is asked to. Returns whether it was written.
bool writeAll(TcpStream& stream, const char* data, std::size_t size)
{
    while (size > 0) {
        const long written = stream.writeData(data, size);
        if (written < 0)
            return false;
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

class Server;

/// The server's end of one connection: sends everything back.
class Session : public Murn::IStreamReadHandler {
public:
    Session(Server& server, TcpStream* stream) : _server(server), _stream(stream)
    {
        _stream->setLowDelay(true);
        readOn();
    }

    void readDone(void* buffer, long result) override;

private:
    void readOn() { _stream->asyncReadData(_buffer.data(), _buffer.size(), this); }

    Server& _server;
    const std::unique_ptr<TcpStream> _stream;
    std::array<char, 4096> _buffer;
};

/// Accepts on the loop that it is armed on, and owns the sessions there.
class Server : public Murn::AsyncTcpServer {
public:
    Server() : AsyncTcpServer(Socket::IPv4) {}

    void newConnection(TcpStream* stream) override
    {
        asyncAccept();  // for the next one: each arming accepts one connection
        _sessions.push_back(std::make_unique<Session>(*this, stream));
        ++accepted;
    }

    void echoed(long bytes) { bytesEchoed += bytes; }

    void end(const Session* session)
    {
        _sessions.remove_if([session](const auto& owned) { return owned.get() == session; });
        ++ended;
    }

    // The main thread looks at these while the worker counts.
    std::atomic<std::size_t> accepted{0};
    std::atomic<std::size_t> ended{0};
    std::atomic<long> bytesEchoed{0};

private:
    std::list<std::unique_ptr<Session>> _sessions;
};

void Session::readDone(void* buffer, long result)
{
    if (buffer == nullptr || !writeAll(*_stream, _buffer.data(), static_cast<std::size_t>(result))) {
        _server.end(this);  // this session is gone now, and its stream with it
        return;
    }
    _server.echoed(result);
    readOn();  // each arming reads once
}

/// The client's end: sends messages of its own and compares what comes back.
class Client : public Murn::IStreamReadHandler {
public:
    explicit Client(std::size_t number)
        : _number(number),
          _stream(std::make_unique<TcpStream>(Socket::IPv4)),
          _message(messageSize),
          _answer(messageSize)
    {
    }

    bool connect(unsigned short port)
    {
        // The end of a message is not to wait until the peer has acknowledged its beginning.
        _stream->setLowDelay(true);
        return _stream->connect(HostAddress(HostAddress::LoopbackIPv4), port);
    }

    void beginRound()
    {
        // Different in each client, round and place, so that nothing can be mixed up unnoticed.
        for (std::size_t at = 0; at < messageSize; ++at)
            _message[at] = static_cast<char>((at * 7 + _number * 13 + static_cast<std::size_t>(rounds)) % 251);
        _answered = 0;
        if (writeAll(*_stream, _message.data(), _message.size()))
            sent += messageSize;
        readOn();
    }

    void readDone(void* buffer, long result) override
    {
        if (buffer == nullptr) {
            finish();
            return;
        }
        received += static_cast<std::size_t>(result);
        _answered += static_cast<std::size_t>(result);
        if (_answered < messageSize) {
            readOn();
            return;
        }
        intact = intact && _answer == _message;
        if (++rounds < roundsOfEach)
            beginRound();
        else
            finish();
    }

    std::size_t sent = 0;
    std::size_t received = 0;
    int rounds = 0;
    bool intact = true;
    bool finished = false;

private:
    void readOn() { _stream->asyncReadData(_answer.data() + _answered, messageSize - _answered, this); }

    void finish()
    {
        finished = true;
        _stream.reset();  // allowed within readDone()
    }

    const std::size_t _number;
    std::unique_ptr<TcpStream> _stream;
    std::vector<char> _message;
    std::vector<char> _answer;
    std::size_t _answered = 0;
};

template <typename Predicate>
bool allOf(const std::list<Client>& clients, Predicate predicate)
{
    return std::all_of(clients.begin(), clients.end(), predicate);
}

void serveClients(Findings& findings, Server& server)
{
    std::list<Client> clients;
    for (std::size_t number = 0; number < clientCount; ++number)
        clients.emplace_back(number);
    say("%zu clients connect from the main thread. Each sends %d messages of %zu bytes", clientCount, roundsOfEach,
        messageSize);
    say("and waits for the echo of each before the next.");
    const auto begin = std::chrono::steady_clock::now();
    bool connected = true;
    for (Client& client : clients)
        connected = connected && client.connect(server.localPort());
    if (!findings.check(connected, "all of them are connected"))
        return;
    for (Client& client : clients)
        client.beginRound();
    const bool finished = pumpUntil([&] { return allOf(clients, [](const Client& one) { return one.finished; }); });
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);

    const bool ended = pumpUntil([&] { return server.ended == clientCount; });
    std::size_t sent = 0;
    std::size_t received = 0;
    for (const Client& client : clients) {
        sent += client.sent;
        received += client.received;
    }
    say("%zu bytes went there and %zu came back, in %ld ms.", sent, received, static_cast<long>(ms.count()));
    constexpr std::size_t expected = clientCount * roundsOfEach * messageSize;
    findings.check(finished && sent == expected && received == expected, "no byte is missing");
    findings.check(allOf(clients, [](const Client& one) { return one.intact && one.rounds == roundsOfEach; }),
                   "each client got its own bytes back");
    findings.check(server.accepted == clientCount && ended, "the server saw each client come and go");
    findings.check(server.bytesEchoed == static_cast<long>(expected), "the server counted the same number of bytes");
    findings.figure(static_cast<long>(server.accepted), "clients");
    findings.figure(static_cast<long>(received), "bytes echoed");
}

Findings walk(Murn::Application&)
{
    Findings findings;
    Server server;
    if (!findings.check(server.bind(HostAddress(HostAddress::LoopbackIPv4), 0) && server.listen(),
                        "the server listens on a free port of this machine"))
        return findings;
    // Ends before the server does, which must not be armed on a running loop when it goes.
    LoopThread worker;
    server.asyncAccept(worker.thread());
    say("It accepts on the loop of a worker thread, which then serves the clients too.");
    serveClients(findings, server);
    return findings;
}

}  // namespace

const Step serverStep = {"Serving 100 clients", walk};
