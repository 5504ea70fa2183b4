// The server's end of a connection.
#ifndef SOAK_ECHO_CONNECTION_H
#define SOAK_ECHO_CONNECTION_H

#include <kxPAL/IStreamReadHandler.h>
#include <kxPAL/TcpStream.h>
#include <kxPAL/Timer.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ConnectionBook.h"
#include "Dice.h"
#include "EchoLoop.h"

using EchoLoops = std::vector<std::unique_ptr<EchoLoop>>;

/// Echoes what its client sends, wanders from loop to loop meanwhile, and deletes itself at the end. It lives on the
/// loop that its stream is attached to. One thread at a time, not locked.
class EchoConnection : private Murn::IStreamReadHandler {
public:
    /// @param stream  attached to the calling thread
    EchoConnection(std::unique_ptr<Murn::TcpStream> stream, EchoLoops& loops, Ledger& ledger, ConnectionBook& book,
                   std::uint64_t seed);

    /// Goes to a loop and begins there. The connection may be gone afterwards.
    void moveTo(std::size_t loop);
    /// Called on the loop that it has come to.
    void begin();

private:
    /// Tries again to send what the client did not take.
    class Retry : public Murn::Timer {
    public:
        explicit Retry(EchoConnection& connection) : _connection(connection) {}
        void timeout() override { _connection.sendRest(); }

    private:
        EchoConnection& _connection;
    };

    ~EchoConnection() override = default;
    void readDone(void* buffer, long result) override;
    void arm();
    void goOn();
    bool echo(const char* data, std::size_t size);
    void sendRest();
    long send(const char* data, std::size_t size);
    void end();

    std::unique_ptr<Murn::TcpStream> _stream;
    EchoLoops& _loops;
    Ledger& _ledger;
    ConnectionBook& _book;
    Dice _dice;
    const std::uint32_t _id;
    ServerView _view;
    bool _isAsking;  // the armed read has no buffer
    Retry _retry;
    unsigned int _retryMs;
    std::string _rest;  // what the client did not take yet
    char _buffer[4096];
};

#endif
