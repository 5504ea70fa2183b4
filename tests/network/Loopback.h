// What the tests of sockets share: both families' loopback addresses, and sockets that tests can look into.
#ifndef KXPAL_TESTS_LOOPBACK_H
#define KXPAL_TESTS_LOOPBACK_H

#include <gtest/gtest.h>
#include <kxPAL/HostAddress.h>
#include <kxPAL/Socket.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

/// The bytes of a value as they lie in memory.
template <typename Value>
Bytes bytesOf(const Value& value)
{
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

inline Bytes bytesAt(const void* data, std::size_t length)
{
    Bytes bytes(length);
    std::memcpy(bytes.data(), data, length);
    return bytes;
}

/// Whether the machine has ::1.
inline bool hasIPv6Loopback()
{
    const int fd = ::socket(AF_INET6, SOCK_DGRAM, 0);
    if (fd == -1)
        return false;
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    const bool bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return bound;
}

inline Murn::HostAddress loopbackOf(Murn::Socket::Family family)
{
    return family == Murn::Socket::IPv4 ? Murn::HostAddress::LoopbackIPv4 : Murn::HostAddress::LoopbackIPv6;
}

/// Tests that run once a family, on the loopback addresses.
class EachFamily : public ::testing::TestWithParam<Murn::Socket::Family> {
protected:
    void SetUp() override
    {
        if (family() == Murn::Socket::IPv6 && !hasIPv6Loopback())
            GTEST_SKIP() << "this machine has no ::1";
    }

    Murn::Socket::Family family() const { return GetParam(); }
    Murn::HostAddress loopback() const { return loopbackOf(family()); }
};

inline std::string familyName(const ::testing::TestParamInfo<Murn::Socket::Family>& info)
{
    return info.param == Murn::Socket::IPv4 ? "IPv4" : "IPv6";
}

/// Stands for a descriptor where no call reaches the platform.
constexpr int fakeFd = 4711;

/// A socket class with its fields open to the test.
template <typename Base>
class Open : public Base {
public:
    using Base::_family;
    using Base::_socket;
    using Base::Base;
};

/// A socket with a family and a number in place of a descriptor.
template <typename Base>
class Fabricated : public Open<Base> {
public:
    explicit Fabricated(Murn::Socket::Family family, int fd = fakeFd) : Open<Base>(fd) { this->_family = family; }
    ~Fabricated() override { this->_socket = -1; }
};

constexpr auto noFamily = static_cast<Murn::Socket::Family>(0);

#endif
