// One client of the crowd.
#include "Client.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "Pattern.h"

namespace {

using std::chrono::milliseconds;

// `select`, which the library uses in places, knows no descriptor above 1023. The clients, which are none of the
// library's, leave those below to it.
constexpr int leastDescriptor = 2048;

sockaddr_in loopback(std::uint32_t number, unsigned short port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(0x7f000000U | number);
    return address;
}

template <typename Value>
void setOption(int fd, int level, int option, const Value& value)
{
    ::setsockopt(fd, level, option, &value, sizeof value);  // none that could be refused
}

// Returns a descriptor, or -1.
int connectFrom(std::uint32_t id, unsigned short port, bool reads)
{
    const int low = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int fd = ::fcntl(low, F_DUPFD_CLOEXEC, leastDescriptor);
    ::close(low);
    if (!reads)
        setOption(fd, SOL_SOCKET, SO_RCVBUF, 4096);  // so that it is full soon
    const sockaddr_in from = loopback(id, 0);
    const sockaddr_in to = loopback(1, port);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&from), sizeof from) == 0 &&
        ::connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0)
        return fd;
    ::close(fd);
    return -1;
}

}  // namespace

Client::Client(std::uint32_t id, unsigned short port, Dice& dice)
    : _id(id),
      _manner(Manner::Any(dice)),
      _fd(connectFrom(id, port, _manner.reads)),
      _total(dice.between(_manner.leastBytes, _manner.mostBytes)),
      _sent(0),
      _received(0),
      _nextAt(Clock::now()),
      _leaveAt(_nextAt + milliseconds(dice.below(_manner.mostStayMs + 1))),
      _isLeaving(false),
      _cut(false),
      _hasEnded(false),
      _fault(nullptr)
{
    if (_fd == -1)
        end("it cannot connect");
    else if (_manner.chunk == 1)
        setOption(_fd, IPPROTO_TCP, TCP_NODELAY, 1);
}

Client::~Client()
{
    if (_fd != -1)
        ::close(_fd);
}

short Client::events(Clock::time_point now) const
{
    return static_cast<short>((wantsToSend(now) ? POLLOUT : 0) | (wantsToRead() ? POLLIN : 0));
}

void Client::act(short events, Clock::time_point now, Dice& dice)
{
    if (wantsToRead() && (events & (POLLIN | POLLERR | POLLHUP)) != 0)
        receive();
    if (!_hasEnded && wantsToSend(now) && (events & POLLOUT) != 0)
        send(now, dice);
    const bool hasSaidAll = _sent == _total || _manner.ending == Manner::Ending::reset;
    if (!_hasEnded && !_isLeaving && hasSaidAll && now >= _leaveAt)
        leave();
}

void Client::hurry()
{
    _total = _sent;
    _leaveAt = Clock::time_point::min();
}

bool Client::wantsToSend(Clock::time_point now) const
{
    return _sent < _total && now >= _nextAt;
}

void Client::send(Clock::time_point now, Dice& dice)
{
    static thread_local std::array<char, 65536> bytes;
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(_manner.chunk, _total - _sent));
    fillPattern(bytes.data(), size, _id, _sent);
    const ssize_t count = ::send(_fd, bytes.data(), size, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count > 0)
        _sent += static_cast<std::uint64_t>(count);
    else if (errno != EAGAIN)
        end("it cannot send");
    _nextAt = now + milliseconds(dice.below(_manner.mostPauseMs + 1));
}

void Client::receive()
{
    static thread_local std::array<char, 65536> bytes;
    const ssize_t count = ::recv(_fd, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count > 0) {
        if (!isPattern(bytes.data(), static_cast<std::size_t>(count), _id, _received))
            end("the echo has other bytes than were sent");
        _received += static_cast<std::uint64_t>(count);
    } else if (count == 0) {
        end(_isLeaving ? nullptr : "the server ended the connection");
    } else if (errno != EAGAIN) {
        end("the server broke the connection");
    }
}

void Client::leave()
{
    if (_manner.ending == Manner::Ending::halfClose) {
        _isLeaving = true;
        ::shutdown(_fd, SHUT_WR);
        return;
    }
    _cut = _manner.ending == Manner::Ending::reset;
    if (_cut)
        setOption(_fd, SOL_SOCKET, SO_LINGER, linger{1, 0});
    end(nullptr);
}

void Client::end(const char* fault)
{
    _hasEnded = true;
    _fault = fault;
    ::close(_fd);
    _fd = -1;
}
