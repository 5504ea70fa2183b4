// Fuzz target: a stream whose peer sends, half-closes, leaves and resets when it likes, and whose handler arms, stops,
// clears, moves, closes and deletes. What poll() says of the descriptor tells what must happen next; every byte is
// accounted for, in order.
#include <arpa/inet.h>
#include <fcntl.h>
#include <glib.h>
#include <kxPAL/Application.h>
#include <kxPAL/IStreamReadHandler.h>
#include <kxPAL/TcpStream.h>
#include <kxPAL/Thread.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <vector>

#include "Input.h"

namespace {

constexpr int patienceMs = 30000;
constexpr int pauseUs = 20;
constexpr short watched = POLLIN | POLLERR | POLLHUP | POLLNVAL;

std::vector<std::string>& messages()
{
    static std::vector<std::string> all;
    return all;
}

void take(const gchar*, GLogLevelFlags, const gchar* message, gpointer)
{
    const std::string text(message);
    messages().push_back(text.starts_with('[') ? text.substr(text.find(']') + 1) : text);
}

short polled(int fd, short events)
{
    pollfd record{fd, events, 0};
    FUZZ_CHECK(::poll(&record, 1, 0) >= 0);
    return record.revents;
}

/// Both ends of a connection: over TCP, where a peer that is done ends one direction, or between sockets of the system,
/// where both directions end at once.
struct Pair {
    int own = -1;
    int peer = -1;

    explicit Pair(bool isTcp)
    {
        if (isTcp) {
            connect();
            return;
        }
        int ends[2];
        FUZZ_CHECK(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
        own = ends[0];
        peer = ends[1];
    }

private:
    // Each connection goes to another address of the loopback device, so that ports do not run out.
    void connect()
    {
        static const int listener = listen();
        static std::uint32_t count = 0;
        sockaddr_in address{};
        socklen_t length = sizeof address;
        FUZZ_CHECK(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) == 0);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + ++count % 0xff0000);
        peer = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        FUZZ_CHECK(::connect(peer, reinterpret_cast<const sockaddr*>(&address), length) == 0);
        own = ::accept(listener, nullptr, nullptr);
        FUZZ_CHECK(own != -1);
        // Else small pieces wait for a while until the other end has acknowledged those before.
        const int on = 1;
        for (const int fd : {own, peer})
            ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }

    static int listen()
    {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_ANY);
        FUZZ_CHECK(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                   ::listen(fd, 1) == 0);
        return fd;
    }
};

/// The other end, and what it sent. Whatever it does is seen at the stream's end before it goes on.
class Peer {
public:
    Peer(const Pair& pair, bool isTcp) : _own(pair.own), _fd(pair.peer), _isTcp(isTcp)
    {
        const timeval limit{patienceMs / 1000, 0};
        ::setsockopt(_fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    ~Peer()
    {
        if (_fd != -1)
            ::close(_fd);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    bool isThere() const { return _fd != -1; }
    const std::string& sent() const { return _sent; }

    // No more than the socket has room for, as nobody else takes something out meanwhile.
    void send(std::size_t count)
    {
        if (_fd == -1 || _isDone || unread() + static_cast<int>(count) > 20000)
            return;
        std::string bytes(count, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(_next++ * 5 >> 1);
        const int before = unread();
        const ssize_t taken = ::send(_fd, bytes.data(), count, MSG_NOSIGNAL);
        if (taken < 0)
            return;  // the stream has closed its end
        FUZZ_CHECK(taken == static_cast<ssize_t>(count));
        _sent += bytes;
        await([&] { return unread() == before + static_cast<int>(count); });
    }

    void endSending()
    {
        if (_fd == -1 || _isDone)
            return;
        _isDone = ::shutdown(_fd, SHUT_WR) == 0;
        awaitEnd();
    }

    void leave(bool aborts)
    {
        if (_fd == -1)
            return;
        const linger abort{1, 0};
        if (aborts)
            ::setsockopt(_fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
        ::close(_fd);
        _fd = -1;
        _isDone = true;
        awaitEnd();
        if (_isTcp && (aborts || !_unread.empty()))
            await([&] { return (polled(_own, 0) & POLLHUP) != 0; });
    }

    /// What the stream wrote has to come out here, now or with what follows; or the peer is gone, and the system finds
    /// out.
    void receive(const std::string& bytes, bool readsNow)
    {
        _unread += bytes;
        if (_fd == -1) {
            if (!bytes.empty())
                await([&] { return (polled(_own, 0) & (POLLHUP | POLLERR)) != 0; });
            return;
        }
        if (!readsNow)
            return;
        std::string received(_unread.size(), '\0');
        if (!received.empty())
            FUZZ_CHECK(::recv(_fd, received.data(), received.size(), MSG_WAITALL) ==
                       static_cast<ssize_t>(received.size()));
        FUZZ_CHECK(received == _unread);
        _unread.clear();
    }

    std::size_t room() const { return _unread.size() > 8000 ? 0 : 2000; }
    void noteStreamEnd() { _isOpen = false; }

    int unread() const
    {
        int count = 0;
        return ::ioctl(_own, FIONREAD, &count) == 0 ? count : 0;
    }

private:
    void awaitEnd()
    {
        await([&] { return (polled(_own, POLLRDHUP) & (POLLRDHUP | POLLHUP | POLLERR)) != 0; });
    }

    template <typename Predicate>
    void await(Predicate predicate)
    {
        for (int waited = 0; _isOpen && !predicate(); ++waited) {
            FUZZ_CHECK(waited < 1000 * patienceMs / pauseUs);
            ::usleep(pauseUs);
        }
    }

    int _own;
    int _fd;
    bool _isTcp;
    bool _isOpen = true;
    bool _isDone = false;
    unsigned int _next = 0;
    std::string _sent;
    std::string _unread;  // what the stream wrote and this end has not taken
};

/// A stream with its peer, and what is to be expected of it.
class Case : public Murn::IStreamReadHandler {
public:
    Case(Input& input, bool isTcp, const Pair& pair)
        : _input(input), _peer(pair, isTcp), _own(pair.own), _stream(std::make_unique<Murn::TcpStream>(pair.own))
    {
        _isNonBlocking = input.flag();
        if (_isNonBlocking)
            ::fcntl(_own, F_SETFL, ::fcntl(_own, F_GETFL, 0) | O_NONBLOCK);
    }

    void run()
    {
        for (int step = 0; step < 200 && !_input.isEmpty() && _stream != nullptr; ++step) {
            doOne();
            pump();
        }
        if (_stream != nullptr && _hasChannel)
            readAll();
    }

private:
    enum class Watch { none, live, ended };

    /// The call of the handler that must come next.
    struct Call {
        bool isDue = false;
        bool isEnd = false;  ///< The end of the stream, or an error: the system knows which.
        const void* buffer = nullptr;
        long result = 0;
    };

    void readDone(void* buffer, long result) override
    {
        FUZZ_CHECK(_call.isDue && buffer == _call.buffer);
        FUZZ_CHECK(_call.isEnd ? result <= 0 : result == _call.result);
        _call.isDue = false;
        if (_call.isEnd && result < 0)
            expectLog("Error: *", true);
        if (buffer != nullptr && result > 0) {
            const auto count = static_cast<std::size_t>(result);
            FUZZ_CHECK(_peer.sent().compare(_received, count, _reading.get(), count) == 0);
            _received += count;
        }
        _reading.reset();
        _ends += buffer == nullptr;

        const int rest = std::exchange(_rest, 0);  // not the business of calls within this one
        _callsLeft.push_back(false);
        for (std::size_t count = _input.upTo(2); count > 0 && _stream != nullptr; --count)
            doOneInHandler();
        _goesOn = _stream != nullptr && !_callsLeft.back() && _isArmed;
        _callsLeft.pop_back();
        if (_goesOn)
            expectReport(rest);
    }

    // A handler may run the loop, too, and read at once.
    void doOneInHandler()
    {
        doOne();
        if (_stream != nullptr && _callsLeft.size() < 3 && _input.byte() > 0xe0)
            pump();
    }

    void doOne()
    {
        const std::uint8_t action = _input.byte();
        const bool isRare = action > 0xa0;
        switch (action % 16) {
            case 0:
            case 1:
                return arm(_input.upTo(200));
            case 2:
                return arm(_input.upTo(12000));
            case 3:
                return armWithoutBuffer(1 + _input.upTo(9));
            case 4:
                return armWithoutBuffer(0);
            case 5:
                return isRare ? clear() : arm(3);
            case 6:
                return move();
            case 7:
                return isRare ? close() : arm(1);
            case 8:
                return isRare ? remove() : arm(0);
            case 9:
            case 10:
                return readNow();
            case 11:
                return write();
            case 12:
                return isRare ? _peer.leave((action & 0x10) != 0) : _peer.send(_input.upTo(200));
            case 13:
                return isRare ? _peer.endSending() : _peer.send(_input.upTo(9000));
            default:
                return _peer.send(_input.upTo(20));
        }
    }

    // A second read while one is armed is a mistake of the host's that ends the process.
    void arm(std::size_t size)
    {
        if (_isArmed)
            return;
        auto buffer = std::make_unique<char[]>(size);
        _stream->asyncReadData(buffer.get(), size, this);
        if (!_hasChannel)
            return;
        _armed = std::move(buffer);
        noteArmed(size);
    }

    void armWithoutBuffer(std::size_t size)
    {
        _stream->asyncReadData(nullptr, size, this);
        if (!_hasChannel)
            return;
        _armed.reset();
        if (size == 0 && _watch != Watch::none) {
            expectLog("NULL callback => stop reading from source");
            _isArmed = false;
            _watch = Watch::none;
        } else {
            noteArmed(size);
        }
    }

    void noteArmed(std::size_t size)
    {
        _isArmed = true;
        _size = size;
        if (_watch != Watch::none)
            return;
        _watch = Watch::live;
        ++_watchNumber;
    }

    void forgetArmed()
    {
        _isArmed = false;
        _armed.reset();
    }

    void clear()
    {
        _stream->clearHandler();
        forgetArmed();
    }

    // What is armed would stay armed without a watch, so it is given up before.
    void move()
    {
        clear();
        _stream->moveToThread(Murn::Thread::CurrentThread());
        _watch = Watch::none;
        leaveCalls();
    }

    void close()
    {
        FUZZ_CHECK(_stream->close() == (_hasChannel ? 0 : -1));
        _hasChannel = false;
        _watch = Watch::none;
        forgetArmed();
    }

    void remove()
    {
        _peer.noteStreamEnd();
        _stream.reset();
        _watch = Watch::none;
        forgetArmed();
        leaveCalls();
    }

    // The handler calls in progress find nobody to go on for.
    void leaveCalls() { _callsLeft.assign(_callsLeft.size(), true); }

    void write()
    {
        const std::string bytes(_input.upTo(_peer.room()), static_cast<char>(_input.byte()));
        const bool readsNow = _input.flag();
        const long result = _stream->writeData(bytes.data(), bytes.size());
        if (!_hasChannel) {
            FUZZ_CHECK(result == -1);
            return;
        }
        FUZZ_CHECK(result == static_cast<long>(bytes.size()) || (!_peer.isThere() && result == -3));
        if (result >= 0)
            _peer.receive(bytes, readsNow);
    }

    // Outside of the loop.
    void readNow()
    {
        if (!_hasChannel || _callsLeft.size() > 2)
            return;
        if (!_isArmed) {
            FUZZ_CHECK(_stream->readSome() == 0);
            return;
        }
        const bool isReady = polled(_own, watched) != 0 || _size == 0 || _armed == nullptr;
        if (!isReady && !_isNonBlocking)
            return;  // would wait for ever
        if (!isReady) {
            // Nobody is told of the read that is lost, but for the log.
            expectLog("EAGAIN: No data available :( !");
            FUZZ_CHECK(_stream->readSome() == 1);
            forgetArmed();
            return;
        }
        const bool mayGoOn = expectRead();
        const int result = _stream->readSome();
        FUZZ_CHECK(!_call.isDue && result == (mayGoOn && _goesOn ? 1 : 0));
    }

    /// One turn of the loop, in which the descriptor's state tells what is to happen. A watch that is being dispatched
    /// is not dispatched once more within that.
    void pump()
    {
        const bool isWatched = _watch == Watch::live &&
                               std::find(_dispatched.begin(), _dispatched.end(), _watchNumber) == _dispatched.end();
        const int condition = _stream != nullptr && isWatched ? polled(_own, watched) & watched : 0;
        if (condition != 0 && !_isArmed) {
            expectNoHandler(condition);
            _watch = Watch::ended;
        } else if ((condition & POLLIN) != 0) {
            const bool mayGoOn = expectRead();
            _rest = mayGoOn ? condition & ~POLLIN : 0;
        } else {
            expectReport(condition);
        }
        if (condition != 0)
            _dispatched.push_back(_watchNumber);
        Murn::Thread::CurrentThread()->processEvents(false);
        if (condition != 0)
            _dispatched.pop_back();
        _rest = 0;
        FUZZ_CHECK(!_call.isDue);
        checkLogs();
    }

    void expectCall(const void* buffer, long result, bool isEnd)
    {
        _call = {true, isEnd, buffer, result};
        _reading = std::move(_armed);
        _isArmed = false;
    }

    // Returns whether the stream goes on when the handler arms another read.
    bool expectRead()
    {
        if (_size == 0) {
            expectCall(_armed.get(), 0, false);
            return true;
        }
        if (_armed == nullptr) {
            // Nowhere to put the data.
            expectLog("g_io_channel_read_chars: assertion*", true);
            expectLog("Error from outer space");
            expectCall(nullptr, -1, false);
            return false;
        }
        const long unread = _peer.unread();
        if (unread == 0) {
            expectCall(nullptr, 0, true);
            return false;
        }
        expectCall(_armed.get(), std::min(unread, static_cast<long>(_size)), false);
        return true;
    }

    void expectReport(int condition)
    {
        if (condition == 0)
            return;
        const bool isHangUp = (condition & POLLHUP) != 0;
        const bool isError = (condition & POLLERR) != 0;
        expectLog(isHangUp ? "Error !" : isError ? "Unknown error !" : "Invalid !");
        expectCall(nullptr, isHangUp ? 0 : isError ? -1 : -3, false);
    }

    void expectNoHandler(int condition)
    {
        expectLog("No handler for data!!!");
        if ((condition & POLLIN) != 0)
            expectLog("->   data available");
        if ((condition & POLLHUP) != 0)
            expectLog("->   closed");
        if ((condition & POLLNVAL) != 0)
            expectLog("->   invalid");
        if ((condition & POLLERR) != 0)
            expectLog("->   error");
    }

    // A text that begins in this way only, with an asterisk behind.
    void expectLog(const std::string& text, bool isBeginning = false)
    {
        _logs.push_back({isBeginning ? text.substr(0, text.size() - 1) : text, isBeginning});
    }

    void checkLogs()
    {
        FUZZ_CHECK(messages().size() == _logs.size());
        for (std::size_t i = 0; i < _logs.size(); ++i)
            FUZZ_CHECK(messages()[i].starts_with(_logs[i].text) &&
                       (_logs[i].isBeginning || messages()[i].size() == _logs[i].text.size()));
        messages().clear();
        _logs.clear();
    }

    // Whatever happened until now, nothing that was sent is lost to those who read on.
    void readAll()
    {
        _input.rest();  // so that the handler does nothing any more
        move();
        _peer.endSending();
        for (const int ends = _ends; _ends == ends || _received < _peer.sent().size();) {
            const std::size_t before = _received;
            const int endsBefore = _ends;
            arm(4096);
            pump();
            FUZZ_CHECK(_received > before || _ends > endsBefore);
            FUZZ_CHECK(_ends < ends + 3);
        }
        FUZZ_CHECK(_received == _peer.sent().size());
    }

    struct Log {
        std::string text;
        bool isBeginning;
    };

    Input& _input;
    Peer _peer;
    int _own;
    std::unique_ptr<Murn::TcpStream> _stream;
    std::unique_ptr<char[]> _armed;    // the buffer of the armed read, exactly as long as it says
    std::unique_ptr<char[]> _reading;  // the one of the read that is being done
    std::size_t _size = 0;
    bool _isArmed = false;
    bool _hasChannel = true;
    bool _isNonBlocking = false;
    Watch _watch = Watch::none;
    Call _call;
    int _rest = 0;  // what is reported after a read in the same turn
    int _watchNumber = 0;
    std::vector<int> _dispatched;
    std::vector<bool> _callsLeft;  // of each handler call in progress, whether the stream has left it
    bool _goesOn = false;
    std::size_t _received = 0;
    int _ends = 0;
    std::vector<Log> _logs;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Murn::Application application(0, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    g_log_set_default_handler(take, nullptr);
    messages().clear();

    Input input(data, size);
    const bool isTcp = input.flag();
    const Pair pair(isTcp);
    Case(input, isTcp, pair).run();
    return 0;
}
