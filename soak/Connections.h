// Activity: a server with several loops, and a crowd of clients of all manners.
#ifndef SOAK_CONNECTIONS_H
#define SOAK_CONNECTIONS_H

#include <cstdint>
#include <memory>
#include <vector>

#include "Activity.h"
#include "Client.h"
#include "ConnectionBook.h"

/// Keeps a number of connections open, which come and go.
class Connections : public Activity {
public:
    /// @param count  how many at a time
    explicit Connections(std::size_t count) : _count(count), _lastId(1) {}

    const char* name() const override { return "connections"; }
    void live(Round& round, Dice& dice) override;

private:
    using Crowd = std::vector<std::unique_ptr<Client>>;

    void connectSome(Crowd& crowd, ConnectionBook& book, const unsigned short (&ports)[2], Dice& dice);
    static void step(Crowd& crowd, Dice& dice);
    static void tellEnds(Crowd& crowd, ConnectionBook& book, Ledger& ledger);

    const std::size_t _count;
    std::uint32_t _lastId;
    std::uint64_t _connected = 0;  // in this round
};

#endif
