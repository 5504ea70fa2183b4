// Addresses as values, their textual form, and look-ups through the system's resolver.
#include "HostAddress.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <cstring>
#include <memory>

namespace Murn {

static_assert(sizeof(HostAddress) == 32, "the kind of address and a socket address of either family, nothing else");
static_assert(HostAddress::IPv4 == AF_INET && HostAddress::IPv6 == AF_INET6 && HostAddress::Unspecified == AF_UNSPEC,
              "kinds of address are handed to the platform as address families");

namespace {

constexpr std::size_t bytesIPv4 = 4;
constexpr std::size_t bytesIPv6 = 16;

HostAddress numberIPv4(in_addr_t number)
{
    const in_addr_t bytes = htonl(number);
    return HostAddress(HostAddress::IPv4, &bytes);
}

struct FreeAddresses {
    void operator()(addrinfo* list) const { ::freeaddrinfo(list); }
};

// The platform's calls end a text at its first zero byte, and would take "127.0.0.1" from what is no address at all.
bool hasZeroByte(const std::string& text)
{
    return text.find('\0') != std::string::npos;
}

// The resolver's list, or null when the look-up failed.
std::unique_ptr<addrinfo, FreeAddresses> lookUp(const std::string& name, HostAddress::Type family)
{
    if (hasZeroByte(name))
        return nullptr;
    addrinfo hints{};
    hints.ai_family = family;
    addrinfo* list = nullptr;
    if (::getaddrinfo(name.c_str(), nullptr, &hints, &list) != 0)
        list = nullptr;
    return std::unique_ptr<addrinfo, FreeAddresses>(list);
}

}  // namespace

HostAddress::HostAddress() : _type(Unspecified), _address() {}

HostAddress::HostAddress(SpecialAddress special) : _type(Unspecified), _address()
{
    switch (special) {
        case Null:
            break;
        case LoopbackIPv4:
            *this = numberIPv4(INADDR_LOOPBACK);
            break;
        case LoopbackIPv6:
            *this = HostAddress(IPv6, &in6addr_loopback);
            break;
        case BroadcastIPv4:
            *this = numberIPv4(INADDR_BROADCAST);
            break;
        case AnyIPv4:
            *this = numberIPv4(INADDR_ANY);
            break;
        case AnyIPv6:
            *this = HostAddress(IPv6, &in6addr_any);
            break;
    }
}

HostAddress::HostAddress(const HostAddress& other) : _type(other._type), _address()
{
    if (_type == IPv4)
        _address.ipv4 = other._address.ipv4;
    else if (_type == IPv6)
        _address.ipv6 = other._address.ipv6;
}

HostAddress::HostAddress(const std::string& text) : _type(Invalid), _address()
{
    if (hasZeroByte(text))
        return;
    in_addr ipv4;
    in6_addr ipv6;
    if (::inet_pton(AF_INET, text.c_str(), &ipv4) >= 1)
        *this = HostAddress(IPv4, &ipv4);
    else if (::inet_pton(AF_INET6, text.c_str(), &ipv6) >= 1)
        *this = HostAddress(IPv6, &ipv6);
}

HostAddress::HostAddress(const sockaddr* address) : _type(Invalid), _address()
{
    if (address->sa_family == AF_INET) {
        _type = IPv4;
        std::memcpy(&_address.ipv4, address, sizeof _address.ipv4);
    } else if (address->sa_family == AF_INET6) {
        _type = IPv6;
        std::memcpy(&_address.ipv6, address, sizeof _address.ipv6);
    }
}

HostAddress::HostAddress(Type type, const void* bytes) : _type(Invalid), _address()
{
    if (type == IPv4) {
        _type = IPv4;
        _address.ipv4.sin_family = AF_INET;
        std::memcpy(&_address.ipv4.sin_addr, bytes, bytesIPv4);
    } else if (type == IPv6) {
        _type = IPv6;
        _address.ipv6.sin6_family = AF_INET6;
        std::memcpy(&_address.ipv6.sin6_addr, bytes, bytesIPv6);
    }
}

HostAddress& HostAddress::operator=(const HostAddress& other)
{
    // The way through the copy constructor leaves no byte of the address before, and suits self-assignment.
    const HostAddress copy(other);
    _type = copy._type;
    std::memcpy(&_address, &copy._address, sizeof _address);
    return *this;
}

bool HostAddress::isValid() const
{
    return _type > Invalid;
}

HostAddress::Type HostAddress::type() const
{
    return _type;
}

std::string HostAddress::toString() const
{
    char text[INET6_ADDRSTRLEN];
    const char* result = nullptr;
    if (_type == IPv4)
        result = ::inet_ntop(AF_INET, &_address.ipv4.sin_addr, text, INET_ADDRSTRLEN);
    else if (_type == IPv6)
        result = ::inet_ntop(AF_INET6, &_address.ipv6.sin6_addr, text, INET6_ADDRSTRLEN);
    return result != nullptr ? std::string(result) : std::string();
}

bool HostAddress::toBytes(void* buffer, std::size_t& length) const
{
    if (_type == IPv4 && length >= bytesIPv4) {
        std::memcpy(buffer, &_address.ipv4.sin_addr, bytesIPv4);
        length = bytesIPv4;
        return true;
    }
    if (_type == IPv6 && length >= bytesIPv6) {
        std::memcpy(buffer, &_address.ipv6.sin6_addr, bytesIPv6);
        length = bytesIPv6;
        return true;
    }
    return false;
}

bool HostAddress::operator==(const HostAddress& other) const
{
    if (_type != other._type)
        return false;
    if (_type == IPv4)
        return std::memcmp(&_address.ipv4.sin_addr, &other._address.ipv4.sin_addr, bytesIPv4) == 0;
    if (_type == IPv6)
        return std::memcmp(&_address.ipv6.sin6_addr, &other._address.ipv6.sin6_addr, bytesIPv6) == 0;
    // Two addresses that stand for no host are not equal, on purpose.
    return false;
}

bool HostAddress::operator!=(const HostAddress& other) const
{
    return !(*this == other);
}

bool HostAddress::isInSameSubNetworkIPv4(const HostAddress& other, const HostAddress& mask) const
{
    const in_addr_t difference = _address.ipv4.sin_addr.s_addr ^ other._address.ipv4.sin_addr.s_addr;
    return (difference & mask._address.ipv4.sin_addr.s_addr) == 0;
}

HostAddress HostAddress::FromHostName(const std::string& name, Type family)
{
    const auto list = lookUp(name, family);
    return list != nullptr ? HostAddress(list->ai_addr) : HostAddress();
}

std::vector<HostAddress> HostAddress::ResolveHostName(const std::string& name, Type family)
{
    std::vector<HostAddress> addresses;
    const auto list = lookUp(name, family);
    for (const addrinfo* entry = list.get(); entry != nullptr; entry = entry->ai_next)
        addresses.push_back(HostAddress(entry->ai_addr));
    return addresses;
}

}  // namespace Murn
