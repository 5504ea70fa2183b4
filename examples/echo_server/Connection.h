// One client of the echo server.
#ifndef ECHO_SERVER_CONNECTION_H
#define ECHO_SERVER_CONNECTION_H

#include <kxPAL/IStreamReadHandler.h>
#include <kxPAL/TcpStream.h>

#include <chrono>
#include <cstddef>
#include <list>
#include <memory>
#include <vector>

class Worker;

/// Echoes one client. It reads on only when everything before was sent, so a client that does not take its echo is
/// soon not read from either. It lives on the thread of its worker, which owns it. One thread at a time, not locked.
class Connection : private Murn::IStreamReadHandler {
public:
    /// Where the worker keeps the connection, for a removal that costs the same however many there are.
    using Place = std::list<std::unique_ptr<Connection>>::iterator;

    /// @param worker  the owner
    /// @param stream  a stream of a socket with a short send time-out, attached to the worker's thread
    Connection(Worker& worker, std::unique_ptr<Murn::TcpStream> stream);

    /// Begins to echo.
    /// @param place  where the worker keeps this connection
    void begin(Place place);
    /// Tries to send what is left. The connection may be gone afterwards.
    void retry();

private:
    using Clock = std::chrono::steady_clock;

    void readDone(void* buffer, long result) override;
    void readOn();
    void stopReading();
    long send(const char* data, std::size_t size);
    void end();

    Worker& _worker;
    std::unique_ptr<Murn::TcpStream> _stream;
    Place _place;

    // What the peer did not take at once, and the tries since.
    std::vector<char> _rest;
    std::size_t _restSent;
    Clock::time_point _lastProgress;
    Clock::duration _delay;
};

#endif
