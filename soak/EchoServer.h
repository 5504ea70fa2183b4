// Accepts the connections.
#ifndef SOAK_ECHO_SERVER_H
#define SOAK_ECHO_SERVER_H

#include <kxPAL/AsyncTcpServer.h>

#include <atomic>
#include <cstddef>

#include "EchoConnection.h"

/// Accepts connections and deals them out to the loops. One of the wandering kind accepts each on another loop; it must
/// go when none of the loops runs any more, or on the one that accepts.
class EchoServer : public Murn::AsyncTcpServer {
public:
    /// Listens at a port of the system's choice.
    EchoServer(EchoLoops& loops, bool wanders, Ledger& ledger, ConnectionBook& book, std::uint64_t seed);

    bool isListening() const { return _isListening; }
    void newConnection(Murn::TcpStream* stream) override;

private:
    EchoLoops& _loops;
    const bool _wanders;
    Ledger& _ledger;
    ConnectionBook& _book;
    Dice _dice;  // touched only while nothing is armed
    bool _isListening;
};

#endif
