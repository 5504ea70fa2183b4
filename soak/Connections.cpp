// Activity: a server with several loops, and a crowd of clients of all manners.
#include "Connections.h"

#include <poll.h>

#include "EchoServer.h"

namespace {

constexpr std::size_t loopCount = 3;
constexpr std::uint64_t mostOnTheirWay = 64;  // a full queue of the listening socket would cost them seconds
constexpr std::uint32_t ids = (1U << 24) - 1;

}  // namespace

void Connections::live(Round& round, Dice& dice)
{
    ConnectionBook book(round.ledger());
    EchoLoops loops;
    while (loops.size() < loopCount)
        loops.push_back(std::make_unique<EchoLoop>());
    EchoServer settled(loops, false, round.ledger(), book, dice.seed());
    EchoServer wandering(loops, true, round.ledger(), book, dice.seed());
    round.ledger().check(settled.isListening() && wandering.isListening(), "servers can listen");
    const unsigned short ports[] = {settled.localPort(), wandering.localPort()};
    settled.asyncAccept(loops[0]->thread());
    wandering.reArm(loops[1]->thread());

    Crowd crowd;
    _connected = 0;
    for (; !round.isOver(); round.rest()) {
        connectSome(crowd, book, ports, dice);
        step(crowd, dice);
        tellEnds(crowd, book, round.ledger());
    }
    for (const auto& client : crowd)
        client->hurry();
    round.await("the clients to come to their ends", [&] {
        step(crowd, dice);
        tellEnds(crowd, book, round.ledger());
        return crowd.empty();
    });
    round.await("the server to see the ends of all connections", [&] { return book.endedOnServer() == _connected; });
    book.close();

    for (const auto& loop : loops)  // the servers are still armed: nothing may accept any more when they go
        loop->finish();
}

void Connections::connectSome(Crowd& crowd, ConnectionBook& book, const unsigned short (&ports)[2], Dice& dice)
{
    while (crowd.size() < _count && _connected < book.accepted() + mostOnTheirWay) {
        _lastId = _lastId % (ids - 2) + 2;  // neither 127.0.0.0 nor 127.0.0.1 nor the last one
        crowd.push_back(std::make_unique<Client>(_lastId, ports[dice.below(2)], dice));
        if (crowd.back()->isConnected())
            ++_connected;
    }
}

void Connections::step(Crowd& crowd, Dice& dice)
{
    const Client::Clock::time_point now = Client::Clock::now();
    std::vector<pollfd> polled;
    polled.reserve(crowd.size());
    for (const auto& client : crowd)
        polled.push_back({client->descriptor(), client->events(now), 0});
    ::poll(polled.data(), polled.size(), 0);
    for (std::size_t index = 0; index < polled.size(); ++index) {
        if (!crowd[index]->hasEnded())
            crowd[index]->act(polled[index].revents, now, dice);
    }
}

void Connections::tellEnds(Crowd& crowd, ConnectionBook& book, Ledger& ledger)
{
    std::erase_if(crowd, [&](const std::unique_ptr<Client>& client) {
        if (!client->hasEnded())
            return false;
        if (client->fault() != nullptr)
            ledger.complain("connection %u (%s): %s", client->id(), client->view().manner, client->fault());
        else
            book.endOnClient(client->id(), client->view());
        return true;
    });
}
