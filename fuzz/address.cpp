// Fuzz target: addresses from text and bytes, and back.
#include <arpa/inet.h>
#include <kxPAL/HostAddress.h>

#include <cstring>
#include <memory>

#include "Input.h"

namespace {

using Murn::HostAddress;

std::size_t lengthOf(const HostAddress& address)
{
    return address.type() == HostAddress::IPv4 ? 4 : address.type() == HostAddress::IPv6 ? 16 : 0;
}

std::string bytesOf(const HostAddress& address)
{
    char bytes[16];
    std::size_t length = sizeof bytes;
    return address.toBytes(bytes, length) ? std::string(bytes, length) : std::string();
}

// The buffers are exactly as long as they are said to be, so that the sanitizer sees each byte too many.
void checkRooms(const HostAddress& address)
{
    for (std::size_t room = 0; room <= 20; ++room) {
        const auto buffer = std::make_unique<char[]>(room);
        std::memset(buffer.get(), '?', room);
        std::size_t length = room;
        const bool isWritten = address.toBytes(buffer.get(), length);
        FUZZ_CHECK(isWritten == (address.isValid() && room >= lengthOf(address)));
        FUZZ_CHECK(length == (isWritten ? lengthOf(address) : room));
        const std::size_t used = isWritten ? length : 0;
        FUZZ_CHECK(std::string(buffer.get() + used, room - used) == std::string(room - used, '?'));
    }
}

void checkRoundTrips(const HostAddress& address)
{
    FUZZ_CHECK(address.isValid() == (lengthOf(address) != 0));
    const std::string text = address.toString();
    const std::string bytes = bytesOf(address);
    FUZZ_CHECK(text.empty() != address.isValid());
    FUZZ_CHECK(bytes.size() == lengthOf(address));

    // Addresses that stand for no host are equal to none, not even to themselves.
    FUZZ_CHECK((HostAddress(address) == address) == address.isValid());
    FUZZ_CHECK((HostAddress(address) != address) != address.isValid());
    HostAddress other(HostAddress::LoopbackIPv6);
    other = HostAddress(address);
    FUZZ_CHECK((other == address) == address.isValid() && other.type() == address.type());
    FUZZ_CHECK((HostAddress(text) == address) == address.isValid());
    FUZZ_CHECK((HostAddress(address.type(), bytes.data()) == address) == address.isValid());
    FUZZ_CHECK(HostAddress(text).toString() == text);
}

HostAddress parsed(const std::string& text)
{
    const HostAddress address(text);
    unsigned char bytes[16];
    HostAddress::Type type = HostAddress::Invalid;
    // A zero byte belongs to no address, and must not hide what comes behind it.
    if (text.find('\0') == std::string::npos) {
        if (::inet_pton(AF_INET, text.c_str(), bytes) == 1)
            type = HostAddress::IPv4;
        else if (::inet_pton(AF_INET6, text.c_str(), bytes) == 1)
            type = HostAddress::IPv6;
    }
    FUZZ_CHECK(address.type() == type);
    FUZZ_CHECK(bytesOf(address) == std::string(reinterpret_cast<char*>(bytes), lengthOf(address)));
    return address;
}

HostAddress fromBytes(Input& input)
{
    const auto type = static_cast<HostAddress::Type>(
        input.flag() ? input.number<int>() : input.oneOf(std::array<int, 4>{0, 1, AF_INET, AF_INET6}));
    const std::size_t length = type == HostAddress::IPv4 ? 4 : type == HostAddress::IPv6 ? 16 : 0;
    const auto bytes = std::make_unique<char[]>(length);
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<char>(input.byte());
    const HostAddress address(type, bytes.get());
    FUZZ_CHECK(address.type() == (length != 0 ? type : HostAddress::Invalid));
    FUZZ_CHECK(bytesOf(address) == std::string(bytes.get(), length));
    return address;
}

HostAddress special(Input& input)
{
    const int name = input.flag() ? input.number<int>() : static_cast<int>(input.upTo(6));
    static const char* const texts[] = {"", "127.0.0.1", "::1", "255.255.255.255", "0.0.0.0", "::"};
    const HostAddress address(static_cast<HostAddress::SpecialAddress>(name));
    const bool isKnown = name >= 0 && name <= 5;
    FUZZ_CHECK(address.toString() == (isKnown ? texts[name] : ""));
    FUZZ_CHECK(address.isValid() == (isKnown && name != 0));
    FUZZ_CHECK(address.isValid() || address.type() == HostAddress::Unspecified);
    return address;
}

HostAddress any(Input& input)
{
    switch (input.upTo(3)) {
        case 0:
            return special(input);
        case 1:
            return fromBytes(input);
        default:
            return parsed(input.text(80));
    }
}

void checkPair(const HostAddress& a, const HostAddress& b)
{
    FUZZ_CHECK((a == b) == (a.isValid() && a.type() == b.type() && bytesOf(a) == bytesOf(b)));
    FUZZ_CHECK((a == b) == (b == a) && (a != b) == !(a == b));
}

void checkSubNetwork(const HostAddress& a, const HostAddress& b, const HostAddress& mask)
{
    if (a.type() != HostAddress::IPv4 || b.type() != HostAddress::IPv4 || mask.type() != HostAddress::IPv4)
        return;
    bool agree = true;
    const std::string bytes[] = {bytesOf(a), bytesOf(b), bytesOf(mask)};
    for (std::size_t i = 0; i < 4; ++i)
        agree = agree && ((bytes[0][i] ^ bytes[1][i]) & bytes[2][i]) == 0;
    FUZZ_CHECK(a.isInSameSubNetworkIPv4(b, mask) == agree);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const HostAddress a = any(input);
    const HostAddress b = any(input);
    const HostAddress mask = any(input);
    checkRooms(a);
    checkRoundTrips(a);
    checkRoundTrips(b);
    checkPair(a, b);
    checkPair(a, HostAddress(a));
    checkSubNetwork(a, b, mask);
    checkRoundTrips(parsed(input.rest()));
    return 0;
}
