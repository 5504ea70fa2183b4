// One client of the echo server.
#include "Connection.h"

#include <kxPAL/Thread.h>

#include <algorithm>

#include "Worker.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds patience(10);  // a client that takes nothing for so long is dropped
constexpr milliseconds firstDelay(10);
constexpr milliseconds longestDelay(640);

}  // namespace

Connection::Connection(Worker& worker, std::unique_ptr<Murn::TcpStream> stream)
    : _worker(worker), _stream(std::move(stream)), _restSent(0), _delay(firstDelay)
{
}

void Connection::begin(Place place)
{
    _place = place;
    readOn();
}

void Connection::readDone(void* buffer, long result)
{
    if (buffer == nullptr) {  // the end of what the client sends, or an error: nothing is left to echo
        end();
        return;
    }
    const auto* const data = static_cast<const char*>(buffer);
    const auto size = static_cast<std::size_t>(result);
    const long sent = send(data, size);
    if (sent < 0) {
        end();
    } else if (static_cast<std::size_t>(sent) == size) {
        readOn();
    } else {
        // The buffer is the next connection's: what is left needs a place of its own.
        _rest.assign(data + sent, data + size);
        _restSent = 0;
        _lastProgress = Clock::now();
        _delay = firstDelay;
        stopReading();
        _worker.retries().add(*this, _delay);
    }
}

void Connection::retry()
{
    const long sent = send(_rest.data() + _restSent, _rest.size() - _restSent);
    if (sent < 0) {
        end();
        return;
    }
    _restSent += static_cast<std::size_t>(sent);
    if (_restSent == _rest.size()) {
        _rest = std::vector<char>();  // gives the memory back: most connections never need it again
        readOn();
        return;
    }

    const Clock::time_point now = Clock::now();
    if (sent > 0) {
        _lastProgress = now;
        _delay = firstDelay;
    } else if (now - _lastProgress >= patience) {
        count(_worker.counters().connectionsDropped);
        end();
        return;
    } else {
        _delay = std::min<Clock::duration>(2 * _delay, longestDelay);
    }
    _worker.retries().add(*this, _delay);
}

// Sends as much as the peer takes within the socket's send time-out. Returns how much that was; -1 when the connection
// is broken.
long Connection::send(const char* data, std::size_t size)
{
    const long sent = _stream->writeData(data, size);
    if (sent >= 0) {
        count(_worker.counters().bytesEchoed, static_cast<std::uint64_t>(sent));
        return sent;
    }
    constexpr long nothingTakenInTime = -1;
    return sent == nothingTakenInTime ? 0 : -1;
}

void Connection::readOn()
{
    // One buffer serves all connections of a thread, because each read is echoed before the next one is made.
    _stream->asyncReadData(_worker.readBuffer(), Worker::readBufferSize, this);
}

// Takes the stream off the loop: watched without an armed read, it would complain about each piece of data. A move,
// even to its own thread, does that without a word.
void Connection::stopReading()
{
    _stream->moveToThread(Murn::Thread::CurrentThread());
}

// Closes the stream and deletes this connection.
void Connection::end()
{
    _worker.remove(_place);
}
