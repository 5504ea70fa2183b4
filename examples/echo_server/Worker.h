// What serves the clients of one thread.
#ifndef ECHO_SERVER_WORKER_H
#define ECHO_SERVER_WORKER_H

#include <kxPAL/Event.h>
#include <kxPAL/Object.h>
#include <kxPAL/TcpStream.h>

#include <cstddef>
#include <list>
#include <memory>
#include <vector>

#include "Connection.h"
#include "RetryQueue.h"
#include "Statistics.h"

/// Tells a worker to serve a stream. The stream goes with the event if nobody takes it out.
class NewStreamEvent : public Murn::Event {
public:
    enum : unsigned int { Type = 2 };  // 1 is the library's own

    /// @param stream  attached to the worker's thread, with no read armed
    explicit NewStreamEvent(std::unique_ptr<Murn::TcpStream> stream);

    std::unique_ptr<Murn::TcpStream> stream;
};

/// Owns the connections of one thread. It is bound to that thread and the last one to leave it: its destroy(), from
/// any thread, closes the connections and then ends the thread's loop.
class Worker : public Murn::Object {
public:
    static constexpr std::size_t readBufferSize = 64 * 1024;

    /// @param counters  must outlive the worker
    explicit Worker(Counters& counters);
    ~Worker() override;

    void event(Murn::Event* event) override;

    /// Owning thread only. Closes and deletes a connection.
    void remove(Connection::Place place);

    Counters& counters() { return _counters; }
    RetryQueue& retries() { return _retries; }
    char* readBuffer() { return _readBuffer.data(); }

private:
    Counters& _counters;
    std::vector<char> _readBuffer;
    std::list<std::unique_ptr<Connection>> _connections;
    RetryQueue _retries;
};

#endif
