// The server's end of a connection.
#include "EchoConnection.h"

#include <kxPAL/Thread.h>

#include <algorithm>
#include <utility>

#include "Pattern.h"

namespace {

constexpr unsigned int firstRetryMs = 50;
constexpr unsigned int longestRetryMs = 800;

// The crowd numbers its connections by the addresses that it connects from: 127.x.y.z is number x.y.z.
std::uint32_t numberOf(const Murn::TcpStream& stream)
{
    unsigned char bytes[4] = {};
    std::size_t size = sizeof bytes;
    if (!stream.remoteAddress().toBytes(bytes, size))
        return 0;  // reset already
    return static_cast<std::uint32_t>(bytes[1] << 16 | bytes[2] << 8 | bytes[3]);
}

}  // namespace

EchoConnection::EchoConnection(std::unique_ptr<Murn::TcpStream> stream, EchoLoops& loops, Ledger& ledger,
                               ConnectionBook& book, std::uint64_t seed)
    : _stream(std::move(stream)),
      _loops(loops),
      _ledger(ledger),
      _book(book),
      _dice(seed),
      _id(numberOf(*_stream)),
      _view(),
      _isAsking(false),
      _retry(*this),
      _retryMs(firstRetryMs)
{
}

void EchoConnection::moveTo(std::size_t loop)
{
    EchoLoop& target = *_loops[loop];
    _stream->moveToThread(target.thread());
    target.begin(this);  // which may run at once
}

void EchoConnection::begin()
{
    // The last stop of a connection may be one where it only learns that there is something to read.
    _isAsking = _dice.oneIn(4);
    if (_isAsking)
        _stream->asyncReadData(nullptr, 0, this);
    else
        arm();
}

void EchoConnection::arm()
{
    const unsigned int room = _dice.oneIn(8) ? _dice.between(1, 16) : sizeof _buffer;
    _stream->asyncReadData(_buffer, room, this);
}

void EchoConnection::readDone(void* buffer, long result)
{
    if (std::exchange(_isAsking, false)) {
        arm();  // whatever it is, a read tells
        return;
    }
    if (buffer == nullptr || result <= 0) {
        end();
        return;
    }
    const auto size = static_cast<std::size_t>(result);
    if (_id != 0 && !isPattern(_buffer, size, _id, _view.received))
        _ledger.complain("connection %u: other bytes than were sent, behind the first %lu", _id,
                         static_cast<unsigned long>(_view.received));
    _view.received += size;
    if (!echo(_buffer, size))
        end();
    else if (_rest.empty())
        goOn();
}

void EchoConnection::goOn()
{
    if (_dice.oneIn(6)) {
        _ledger.add(Figure::streamMoves);
        moveTo(_dice.below(static_cast<unsigned int>(_loops.size())));
    } else {
        arm();
    }
}

// Returns whether the connection stands. What the client does not take waits for the timer, and so does the next read.
bool EchoConnection::echo(const char* data, std::size_t size)
{
    const long sent = send(data, size);
    if (sent < 0)
        return false;
    if (static_cast<std::size_t>(sent) < size) {
        _rest.assign(data + sent, size - static_cast<std::size_t>(sent));
        _retryMs = firstRetryMs;
        // Off the loop meanwhile: watched without an armed read, the stream would complain of data.
        _stream->moveToThread(Murn::Thread::CurrentThread());
        _retry.start(_retryMs, nullptr);
    }
    return true;
}

void EchoConnection::sendRest()
{
    const long sent = send(_rest.data(), _rest.size());
    if (sent < 0) {
        end();
        return;
    }
    _rest.erase(0, static_cast<std::size_t>(sent));
    if (_rest.empty()) {
        _retry.stop();
        goOn();
    } else {
        _retryMs = sent > 0 ? firstRetryMs : std::min(2 * _retryMs, longestRetryMs);
        _retry.start(_retryMs, nullptr);
    }
}

// Returns how much was sent, which is nothing when the client takes nothing now; -1 when the connection is broken.
long EchoConnection::send(const char* data, std::size_t size)
{
    const long sent = _stream->writeData(data, size);
    if (sent > 0)
        _view.echoed += static_cast<std::uint64_t>(sent);
    constexpr long nothingTaken = -1;
    return sent == nothingTaken ? 0 : std::max(sent, -1L);
}

void EchoConnection::end()
{
    if (_dice.oneIn(2))
        _ledger.check(_stream->close() == 0 && _stream->close() == -1, "a stream is closed once");
    // The client may be waiting for this end, and the book for the client.
    _stream.reset();
    const std::uint32_t id = _id;
    const ServerView view = _view;
    ConnectionBook& book = _book;
    delete this;
    book.endOnServer(id, view);
}
