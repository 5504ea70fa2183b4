// Fuzz target: socket addresses of any family, length and contents, as the platform might give them.
#include <kxPAL/HostAddress.h>
#include <kxPAL/Socket.h>
#include <sys/socket.h>

#include <cstring>
#include <vector>

#include "Input.h"
#include "InterposeSockets.h"

namespace {

using Murn::HostAddress;
using Murn::Socket;

constexpr std::size_t room = sizeof(sockaddr_in6);
constexpr std::size_t storageAt = sizeof(HostAddress) - room;

/// One socket address, as bytes and as the length that the platform tells.
struct Answer {
    int result = 0;
    std::string bytes;
    socklen_t length = 0;

    explicit Answer(Input& input)
    {
        const std::uint8_t kind = input.byte();
        result = (kind & 0x80) != 0 ? -1 : 0;
        bytes = input.text(40);
        const auto family = static_cast<sa_family_t>(kind % 3 == 0 ? AF_INET : kind % 3 == 1 ? AF_INET6 : AF_UNIX);
        if ((kind & 0x40) == 0 && bytes.size() >= sizeof family)
            std::memcpy(bytes.data(), &family, sizeof family);
        length = static_cast<socklen_t>((kind & 0x20) == 0 ? bytes.size() : input.number<std::uint32_t>());
    }

    int put(sockaddr* address, socklen_t* given) const
    {
        if (result != 0)
            return result;
        std::memcpy(address, bytes.data(), std::min<std::size_t>(bytes.size(), *given));
        *given = length;
        return 0;
    }

    /// What a cleared room of 28 bytes holds afterwards.
    std::string inRoom() const
    {
        std::string storage = bytes.substr(0, room);
        storage.resize(room, '\0');
        return storage;
    }
};

sa_family_t familyOf(const std::string& storage)
{
    sa_family_t family = 0;
    std::memcpy(&family, storage.data(), sizeof family);
    return family;
}

unsigned short portOf(const std::string& storage)
{
    return static_cast<unsigned short>(static_cast<unsigned char>(storage[2]) << 8 |
                                       static_cast<unsigned char>(storage[3]));
}

bool isInternet(const std::string& storage)
{
    return familyOf(storage) == AF_INET || familyOf(storage) == AF_INET6;
}

std::string storageOf(const HostAddress& address)
{
    return std::string(reinterpret_cast<const char*>(&address) + storageAt, room);
}

/// The address that a room of 28 bytes stands for, by its fields.
void checkAddress(const HostAddress& address, const std::string& storage)
{
    const bool isIPv4 = familyOf(storage) == AF_INET;
    const bool isIPv6 = familyOf(storage) == AF_INET6;
    FUZZ_CHECK(address.type() == (isIPv4 ? HostAddress::IPv4 : isIPv6 ? HostAddress::IPv6 : HostAddress::Invalid));
    const std::size_t used = isIPv4 ? sizeof(sockaddr_in) : isIPv6 ? room : 0;
    FUZZ_CHECK(storageOf(address) == storage.substr(0, used) + std::string(room - used, '\0'));
    FUZZ_CHECK(HostAddress(address).toString() == address.toString());
}

// No byte is read beyond those that the family has.
void checkConstruction(const Answer& answer)
{
    std::string bytes = answer.inRoom();
    const std::size_t used = familyOf(bytes) == AF_INET ? sizeof(sockaddr_in) : isInternet(bytes) ? room : 16;
    const std::vector<char> exact(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(used));
    const auto* const address = reinterpret_cast<const sockaddr*>(exact.data());
    checkAddress(HostAddress(address), bytes);
    FUZZ_CHECK(Socket::GetPort(address) == (isInternet(bytes) ? portOf(bytes) : 0));
    const HostAddress::Type type = HostAddress(address).type();
    FUZZ_CHECK(Socket::AddressFamily(HostAddress(address)) ==
               (type == HostAddress::Invalid ? 0 : static_cast<int>(type)));
}

void checkNames(const Socket& socket, const Answer& answer)
{
    const auto put = [&answer](auto, int, sockaddr* address, socklen_t* length) { return answer.put(address, length); };
    const Interposed<int(int, sockaddr*, socklen_t*)> own(interpose::getsockname, put);
    const Interposed<int(int, sockaddr*, socklen_t*)> peers(interpose::getpeername, put);
    const unsigned short port = answer.result == 0 && isInternet(answer.inRoom()) ? portOf(answer.inRoom()) : 0;
    FUZZ_CHECK(socket.localPort() == port && socket.remotePort() == port);
    if (answer.result == 0) {
        checkAddress(socket.localAddress(), answer.inRoom());
        checkAddress(socket.remoteAddress(), answer.inRoom());
    } else {
        FUZZ_CHECK(socket.localAddress().type() == HostAddress::Unspecified);
        FUZZ_CHECK(socket.remoteAddress().type() == HostAddress::Unspecified);
    }
}

// The bytes of an address of another kind, or those behind a shorter one, must be gone afterwards.
void checkSender(Socket& socket, HostAddress::Type type, const Answer& answer, HostAddress& from)
{
    const Interposed<ssize_t(int, void*, size_t, int, sockaddr*, socklen_t*)> receiving(
        interpose::recvfrom, [&answer](auto, int, void*, size_t, int, sockaddr* address, socklen_t* length) {
            return static_cast<ssize_t>(answer.put(address, length));
        });
    std::string expected = from.type() == type ? storageOf(from) : std::string(room, '\0');
    if (answer.result == 0) {
        expected.replace(0, std::min(answer.bytes.size(), room), answer.bytes.substr(0, room));
        if (answer.length != 0 && answer.length < room)
            expected.replace(answer.length, room, room - answer.length, '\0');
    }

    char byte = 0;
    unsigned short port = 0;
    FUZZ_CHECK(socket.recvfrom(&byte, sizeof byte, &from, &port) == answer.result);
    FUZZ_CHECK(from.type() == type && storageOf(from) == expected && port == portOf(expected));
    FUZZ_CHECK(HostAddress(from).toString() == from.toString());
}

/// A resolver's list with one entry an answer, each socket address in memory of its own.
class Resolver {
public:
    explicit Resolver(const std::vector<std::string>& storages, bool fails) : _fails(fails), _entries(storages.size())
    {
        for (std::size_t i = 0; i < storages.size(); ++i) {
            const std::size_t used = familyOf(storages[i]) == AF_INET ? sizeof(sockaddr_in) : room;
            _addresses.emplace_back(storages[i].begin(), storages[i].begin() + static_cast<std::ptrdiff_t>(used));
            _entries[i].ai_addr = reinterpret_cast<sockaddr*>(_addresses.back().data());
            if (i > 0)
                _entries[i - 1].ai_next = &_entries[i];
        }
    }
    ~Resolver() { FUZZ_CHECK(_listsOut == 0); }
    Resolver(const Resolver&) = delete;
    Resolver& operator=(const Resolver&) = delete;

private:
    int resolve(addrinfo** list)
    {
        if (_fails)
            return EAI_AGAIN;
        *list = _entries.empty() ? nullptr : _entries.data();
        _listsOut += _entries.empty() ? 0 : 1;
        return 0;
    }

    bool _fails;
    std::vector<addrinfo> _entries;
    std::vector<std::vector<char>> _addresses;
    int _listsOut = 0;
    Interposed<int(const char*, const char*, const addrinfo*, addrinfo**)> _resolve{
        interpose::getaddrinfo,
        [this](auto, const char*, const char*, const addrinfo*, addrinfo** list) { return resolve(list); }};
    Interposed<void(addrinfo*)> _free{interpose::freeaddrinfo, [this](auto, addrinfo*) { --_listsOut; }};
};

void checkLookUp(const std::vector<Answer>& answers, bool fails)
{
    std::vector<std::string> storages;
    storages.reserve(answers.size());
    for (const Answer& answer : answers)
        storages.push_back(answer.inRoom());
    const Resolver resolver(storages, fails);
    const HostAddress first = HostAddress::FromHostName("host", HostAddress::Unspecified);
    const std::vector<HostAddress> all = HostAddress::ResolveHostName("host", HostAddress::Unspecified);
    if (fails || storages.empty()) {
        FUZZ_CHECK(all.empty() && first.type() == HostAddress::Unspecified);
        return;
    }
    FUZZ_CHECK(all.size() == storages.size());
    checkAddress(first, storages[0]);
    for (std::size_t i = 0; i < all.size(); ++i)
        checkAddress(all[i], storages[i]);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Socket ipv4(Socket::IPv4, Socket::Datagram);
    static Socket ipv6(Socket::IPv6, Socket::Datagram);
    static Socket ofNoFamily(-1);
    Input input(data, size);
    HostAddress from;
    std::vector<Answer> answers;
    do {
        const Answer answer(input);
        answers.push_back(answer);
        checkConstruction(answer);
        switch (input.upTo(2)) {
            case 0:
                checkNames(ipv4, answer);
                checkSender(ipv4, HostAddress::IPv4, answer, from);
                break;
            case 1:
                checkNames(ipv6, answer);
                checkSender(ipv6, HostAddress::IPv6, answer, from);
                break;
            default:
                checkNames(ofNoFamily, answer);
                checkSender(ofNoFamily, HostAddress::IPv6, answer, from);
                break;
        }
    } while (!input.isEmpty());
    checkLookUp(answers, answers.front().result != 0);
    return 0;
}
