// What both ends of each connection say of it.
#include "ConnectionBook.h"

#include <cinttypes>

void ConnectionBook::endOnServer(std::uint32_t id, const ServerView& view)
{
    const std::lock_guard<std::mutex> lock(_mutex);
    ++_endedOnServer;
    if (id == 0) {
        ++_nameless;
        return;
    }
    Entry& entry = _open[id];
    if (entry.server)
        _ledger.complain("connection %u came to the server twice", id);
    entry.server = view;
    if (entry.client) {
        compare(id, view, *entry.client);
        _open.erase(id);
    }
}

void ConnectionBook::endOnClient(std::uint32_t id, const ClientView& view)
{
    const std::lock_guard<std::mutex> lock(_mutex);
    Entry& entry = _open[id];
    entry.client = view;
    if (entry.server) {
        compare(id, *entry.server, view);
        _open.erase(id);
    }
}

void ConnectionBook::compare(std::uint32_t id, const ServerView& server, const ClientView& client)
{
    const bool wayThere = client.cut ? server.received <= client.sent : server.received == client.sent;
    const bool echo = server.echoed <= server.received && (client.cut || server.echoed == server.received);
    const bool wayBack = client.cut ? client.received <= server.echoed : client.received == server.echoed;
    if (!wayThere || !echo || !wayBack)
        _ledger.complain(
            "connection %u (%s%s): sent %" PRIu64 ", received %" PRIu64 ", echoed %" PRIu64 ", came back %" PRIu64, id,
            client.manner, client.cut ? ", cut off" : "", client.sent, server.received, server.echoed, client.received);
    _ledger.add(Figure::connections);
    _ledger.add(Figure::bytesEchoed, server.echoed);
    if (client.cut)
        _ledger.add(Figure::connectionsCut);
}

void ConnectionBook::close()
{
    const std::lock_guard<std::mutex> lock(_mutex);
    std::uint64_t unclaimed = 0;
    for (const auto& [id, entry] : _open) {
        if (entry.client && entry.client->cut) {
            ++unclaimed;
            _ledger.add(Figure::connections);
            _ledger.add(Figure::connectionsCut);
        } else {
            _ledger.complain("only the %s knows connection %u", entry.client ? "client" : "server", id);
        }
    }
    _open.clear();
    // Those that reset before they were accepted.
    _ledger.same("connections whose client was gone when they were accepted", unclaimed, _nameless);
    _nameless = 0;
}
