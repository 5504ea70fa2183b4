// A machine with two network interfaces that does what a test says, for tests of the multicast socket.
#include "MulticastPlatform.h"

#include <arpa/inet.h>
#include <kxPAL/NetworkInterface.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "InterposeSockets.h"
#include "Loopback.h"
#include "MadeUpInterfaces.h"

namespace {

constexpr int firstFd = 900;
constexpr int levelWarning = 4;

bool isOurs(int fd)
{
    return fd == -1 || fd >= firstFd;
}

std::string call(const char* name, int fd)
{
    return std::string(name) + "(" + std::to_string(fd);
}

std::string hex(const Bytes& bytes)
{
    std::string text;
    for (const unsigned int byte : bytes) {
        char digits[8];
        std::snprintf(digits, sizeof digits, " %02x", byte);
        text += digits;
    }
    return text;
}

Bytes addressBytes(const std::string& text)
{
    in_addr address{};
    EXPECT_EQ(::inet_pton(AF_INET, text.c_str(), &address), 1);
    return bytesOf(address);
}

Bytes membership(const std::string& group, const std::string& local)
{
    Bytes bytes = addressBytes(group);
    const Bytes more = addressBytes(local);
    bytes.insert(bytes.end(), more.begin(), more.end());
    return bytes;
}

// The address and port of an `AF_INET` address.
std::string textOf(const sockaddr* address, socklen_t length)
{
    EXPECT_EQ(length, sizeof(sockaddr_in));
    EXPECT_EQ(address->sa_family, AF_INET);
    const auto* const ipv4 = reinterpret_cast<const sockaddr_in*>(address);
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &ipv4->sin_addr, text, sizeof text);
    return std::string(text) + ":" + std::to_string(ntohs(ipv4->sin_port));
}

bool listInterfaces()
{
    MadeUpInterfaces machine;
    MulticastPlatform::addInterfaces(machine);
    const Murn::NetworkInterface enumeration;
    return true;
}

}  // namespace

/// What stands in the place of the platform's functions.
class MulticastPlatform::Replacements {
public:
    explicit Replacements(MulticastPlatform& platform) : _platform(platform) {}

    Calls calls;
    std::map<std::string, int> refused;

private:
    // Notes a call. Returns its result, unless the test refuses it.
    template <typename Result>
    Result answer(const std::string& asked, Result result)
    {
        calls.push_back(asked);
        const auto refusal = refused.find(asked);
        if (refusal == refused.end())
            return result;
        errno = refusal->second;
        return -1;
    }

    int answerSocket(int domain, int type, int protocol)
    {
        EXPECT_EQ(domain, AF_INET);
        EXPECT_EQ(type, SOCK_DGRAM);
        EXPECT_EQ(protocol, 0);
        const int fd = _nextFd++;
        return answer(socket(fd), fd);
    }

    int answerPipe(int* ends, int flags)
    {
        EXPECT_EQ(flags, O_CLOEXEC | O_NONBLOCK);
        const int made[2] = {_nextFd++, _nextFd++};
        const int result = answer(pipe(made[0], made[1]), 0);
        if (result == 0)
            std::copy_n(made, 2, ends);  // else they stay what they were
        return result;
    }

    ssize_t answerSend(int fd, const void* data, std::size_t length, int flags, const std::string& to)
    {
        EXPECT_EQ(flags, 0);
        const std::string text(static_cast<const char*>(data), length);
        return answer(send(fd, text, to), _platform.sent == -1 ? static_cast<ssize_t>(length) : _platform.sent);
    }

    int answerSelect(int count, fd_set* readable)
    {
        std::vector<int> asked;
        for (int fd = 0; fd < FD_SETSIZE; ++fd) {
            if (FD_ISSET(fd, readable))
                asked.push_back(fd);
        }
        EXPECT_EQ(count, asked.back() + 1);
        FD_ZERO(readable);
        for (const int fd : _platform.ready)
            FD_SET(fd, readable);
        return answer(select(asked), static_cast<int>(_platform.ready.size()));
    }

    ssize_t answerReceive(int fd, void* buffer, std::size_t length, int flags, sockaddr* address,
                          socklen_t* addressLength)
    {
        EXPECT_EQ(flags, 0);
        if (address != nullptr) {
            sockaddr_in sender{};
            sender.sin_family = AF_INET;
            sender.sin_port = htons(4000);
            ::inet_pton(AF_INET, "10.9.0.1", &sender.sin_addr);
            std::memcpy(address, &sender, sizeof sender);
            *addressLength = sizeof sender;
        }
        const std::string& datagram = _platform.datagrams[fd];
        datagram.copy(static_cast<char*>(buffer), length);
        return answer(receive(fd, length), static_cast<ssize_t>(datagram.size()));
    }

    MulticastPlatform& _platform;
    int _nextFd = firstFd;

    Interposed<int(int, int, int)> _socket{interpose::socket, [this](auto, int domain, int type, int protocol) {
                                               return answerSocket(domain, type, protocol);
                                           }};
    Interposed<int(int, int, int, const void*, socklen_t)> _setsockopt{
        interpose::setsockopt, [this](auto, int fd, int level, int name, const void* value, socklen_t length) {
            return answer(option(fd, level, name, bytesAt(value, length)), 0);
        }};
    Interposed<int(int, const sockaddr*, socklen_t)> _bind{
        interpose::bind, [this](auto, int fd, const sockaddr* address, socklen_t length) {
            return answer(bind(fd, textOf(address, length)), 0);
        }};
    Interposed<ssize_t(int, const void*, size_t, int, const sockaddr*, socklen_t)> _sendto{
        interpose::sendto,
        [this](auto, int fd, const void* data, size_t length, int flags, const sockaddr* to, socklen_t toLength) {
            return answerSend(fd, data, length, flags, textOf(to, toLength));
        }};
    Interposed<ssize_t(int, void*, size_t, int, sockaddr*, socklen_t*)> _recvfrom{
        interpose::recvfrom, [this](auto, auto... arguments) { return answerReceive(arguments...); }};
    Interposed<int(int, fd_set*, fd_set*, fd_set*, timeval*)> _select{
        interpose::select, [this](auto, int count, fd_set* readable, const fd_set* writable, const fd_set* exceptional,
                                  const timeval* limit) {
            EXPECT_TRUE(writable == nullptr && exceptional == nullptr && limit == nullptr);
            return answerSelect(count, readable);
        }};
    Interposed<int(int*, int)> _pipe{interpose::pipe2,
                                     [this](auto, int* ends, int flags) { return answerPipe(ends, flags); }};
    Interposed<ssize_t(int, const void*, size_t)> _write{
        interpose::write, [this](auto real, int fd, const void* data, size_t length) {
            return isOurs(fd) ? answer(write(fd, bytesAt(data, length)), static_cast<ssize_t>(length))
                              : real(fd, data, length);
        }};
    Interposed<int(int, int)> _shutdown{interpose::shutdown, [this](auto, int fd, int how) {
                                            EXPECT_EQ(how, SHUT_RDWR);
                                            return answer(shutdown(fd), 0);
                                        }};
    Interposed<int(int)> _close{interpose::close,
                                [this](auto real, int fd) { return isOurs(fd) ? answer(close(fd), 0) : real(fd); }};
};

MulticastPlatform::MulticastPlatform()
{
    static const bool listed = listInterfaces();
    static_cast<void>(listed);
    _replacements = std::make_unique<Replacements>(*this);
}

MulticastPlatform::~MulticastPlatform() = default;

void MulticastPlatform::addInterfaces(MadeUpInterfaces& machine)
{
    machine.add("eth0", "10.1.0.1", Bytes{2, 0, 0, 0, 1, 1});
    machine.add("eth1", "10.2.0.1", Bytes{2, 0, 0, 0, 2, 1});
}

MulticastPlatform::Calls MulticastPlatform::takeCalls()
{
    return std::exchange(_replacements->calls, {});
}

void MulticastPlatform::note(const std::string& line)
{
    _replacements->calls.push_back(line);
}

void MulticastPlatform::refuse(const std::string& call, int error)
{
    _replacements->refused[call] = error;
}

std::string MulticastPlatform::socket(int fd)
{
    return "socket = " + std::to_string(fd);
}

std::string MulticastPlatform::option(int fd, int level, int option, const Bytes& value)
{
    return call("setsockopt", fd) + ", " + std::to_string(level) + ", " + std::to_string(option) + "," + hex(value) +
           ")";
}

std::string MulticastPlatform::join(int fd, const std::string& group, const std::string& local)
{
    return option(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, membership(group, local));
}

std::string MulticastPlatform::leave(int fd, const std::string& group, const std::string& local)
{
    return option(fd, IPPROTO_IP, IP_DROP_MEMBERSHIP, membership(group, local));
}

std::string MulticastPlatform::sendThrough(int fd, const std::string& local)
{
    return option(fd, IPPROTO_IP, IP_MULTICAST_IF, addressBytes(local));
}

std::string MulticastPlatform::bind(int fd, const std::string& addressAndPort)
{
    return call("bind", fd) + ", " + addressAndPort + ")";
}

std::string MulticastPlatform::send(int fd, const std::string& data, const std::string& addressAndPort)
{
    return call("sendto", fd) + ", \"" + data + "\", " + addressAndPort + ")";
}

std::string MulticastPlatform::select(const std::vector<int>& descriptors)
{
    std::string text = "select(";
    for (const int descriptor : descriptors)
        text += std::to_string(descriptor) + " ";
    return text + ")";
}

std::string MulticastPlatform::receive(int fd, std::size_t length)
{
    return call("recvfrom", fd) + ", " + std::to_string(length) + ")";
}

std::string MulticastPlatform::shutdown(int fd)
{
    return call("shutdown", fd) + ")";
}

std::string MulticastPlatform::close(int fd)
{
    return call("close", fd) + ")";
}

std::string MulticastPlatform::pipe(int end, int otherEnd)
{
    return "pipe = " + std::to_string(end) + ", " + std::to_string(otherEnd);
}

std::string MulticastPlatform::write(int fd, const Bytes& bytes)
{
    return call("write", fd) + "," + hex(bytes) + ")";
}

std::vector<std::string> warnings(const LogCapture& log, const std::string& domain)
{
    std::vector<std::string> texts;
    for (const LogMessage& message : log.messages()) {
        EXPECT_EQ(message.domain, domain) << message.text;
        EXPECT_EQ(message.level, levelWarning) << message.text;
        texts.push_back(message.text);
    }
    return texts;
}
