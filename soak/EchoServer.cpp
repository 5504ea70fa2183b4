// Accepts the connections.
#include "EchoServer.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <memory>

EchoServer::EchoServer(EchoLoops& loops, bool wanders, Ledger& ledger, ConnectionBook& book, std::uint64_t seed)
    : AsyncTcpServer(IPv4),
      _loops(loops),
      _wanders(wanders),
      _ledger(ledger),
      _book(book),
      _dice(seed),
      _isListening(bind(Murn::HostAddress::AnyIPv4, 0) && listen())
{
    // Accepted connections have this too: a stream blocks as long, and with it its loop, when its client takes nothing.
    const timeval shortest{0, 1};
    if (::setsockopt(_socket, SOL_SOCKET, SO_SNDTIMEO, &shortest, sizeof shortest) != 0)
        _isListening = false;
}

void EchoServer::newConnection(Murn::TcpStream* stream)
{
    auto* const connection =
        new EchoConnection(std::unique_ptr<Murn::TcpStream>(stream), _loops, _ledger, _book, _dice.seed());
    const unsigned int count = static_cast<unsigned int>(_loops.size());
    const unsigned int next = _dice.below(count);
    connection->moveTo(_dice.below(count));
    _book.accept();
    if (_wanders)
        reArm(_loops[next]->thread());  // where the next one may come before this returns
    else
        asyncAccept();
}
