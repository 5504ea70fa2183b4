// What both ends of each connection say of it.
#ifndef SOAK_CONNECTION_BOOK_H
#define SOAK_CONNECTION_BOOK_H

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>

#include "Ledger.h"

/// What the server saw of a connection.
struct ServerView {
    std::uint64_t received;
    std::uint64_t echoed;
};

/// What the client did and saw.
struct ClientView {
    const char* manner;
    std::uint64_t sent;
    std::uint64_t received;
    bool cut;  ///< It ended the connection with a reset, so that what was under way is lost.
};

/// Compares what the two ends of each connection saw. Connections are numbered from 1; the number 0 is one whose
/// client was gone before the server could ask who it is. Any thread.
class ConnectionBook {
public:
    explicit ConnectionBook(Ledger& ledger) : _ledger(ledger) {}

    /// A connection came to the server.
    void accept() { ++_accepted; }
    std::uint64_t accepted() const { return _accepted; }
    std::uint64_t endedOnServer() const { return _endedOnServer; }

    void endOnServer(std::uint32_t id, const ServerView& view);
    void endOnClient(std::uint32_t id, const ClientView& view);
    /// Complains of what only one end knows. Both ends of all connections have ended.
    void close();

private:
    struct Entry {
        std::optional<ServerView> server;
        std::optional<ClientView> client;
    };

    void compare(std::uint32_t id, const ServerView& server, const ClientView& client);

    Ledger& _ledger;
    std::atomic<std::uint64_t> _accepted{0};
    std::atomic<std::uint64_t> _endedOnServer{0};
    std::mutex _mutex;
    std::map<std::uint32_t, Entry> _open;  // guarded by _mutex; what one end has ended
    std::uint64_t _nameless = 0;           // guarded by _mutex
};

#endif
