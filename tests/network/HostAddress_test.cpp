#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/HostAddress.h>

#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "InterposeSockets.h"
#include "Loopback.h"

using Murn::HostAddress;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr std::size_t storageAt = 4;
constexpr std::size_t storageSize = 28;

const Bytes mappedBytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 192, 168, 1, 10};

sockaddr_in addressIPv4(const char* text, unsigned short port = 0)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    ::inet_pton(AF_INET, text, &address.sin_addr);
    return address;
}

sockaddr_in6 addressIPv6(const char* text, unsigned short port = 0)
{
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    ::inet_pton(AF_INET6, text, &address.sin6_addr);
    return address;
}

template <typename Address>
const sockaddr* generic(const Address& address)
{
    return reinterpret_cast<const sockaddr*>(&address);
}

// What an address of this type with this storage looks like in memory.
template <typename Address>
Bytes image(HostAddress::Type type, const Address& storage)
{
    Bytes bytes = bytesOf(type);
    const Bytes stored = bytesOf(storage);
    bytes.insert(bytes.end(), stored.begin(), stored.end());
    bytes.resize(storageAt + storageSize, 0);
    return bytes;
}

Bytes emptyImage(HostAddress::Type type)
{
    Bytes bytes = bytesOf(type);
    bytes.resize(storageAt + storageSize, 0);
    return bytes;
}

// An address whose every byte behind the type is set, which no operation makes.
HostAddress& fillStorage(HostAddress& address)
{
    std::memset(reinterpret_cast<char*>(&address) + storageAt, 0xa5, storageSize);
    return address;
}

}  // namespace

TEST(HostAddress, typesAreThePlatformsFamilyNumbers)
{
    EXPECT_EQ(HostAddress::Unspecified, 0);
    EXPECT_EQ(HostAddress::Invalid, 1);
    EXPECT_EQ(HostAddress::IPv4, 2);
    EXPECT_EQ(HostAddress::IPv6, 10);
    EXPECT_EQ(sizeof(HostAddress::Type), 4U);
}

TEST(HostAddress, specialAddressesHaveFixedNumbers)
{
    EXPECT_EQ(HostAddress::Null, 0);
    EXPECT_EQ(HostAddress::LoopbackIPv4, 1);
    EXPECT_EQ(HostAddress::LoopbackIPv6, 2);
    EXPECT_EQ(HostAddress::BroadcastIPv4, 3);
    EXPECT_EQ(HostAddress::AnyIPv4, 4);
    EXPECT_EQ(HostAddress::AnyIPv6, 5);
}

TEST(HostAddress, isThirtyTwoBytesWithTheTypeInFront)
{
    static_assert(!std::is_polymorphic<HostAddress>::value, "a plain value");
    static_assert(std::is_trivially_destructible<HostAddress>::value, "a plain value");
    EXPECT_EQ(sizeof(HostAddress), storageAt + storageSize);
    EXPECT_EQ(bytesOf(HostAddress("1.2.3.4")), image(HostAddress::IPv4, addressIPv4("1.2.3.4")));
}

TEST(HostAddress, isUnspecifiedAndAllZeroByDefault)
{
    EXPECT_EQ(HostAddress().type(), HostAddress::Unspecified);
    EXPECT_THAT(bytesOf(HostAddress()), Each(0));
}

TEST(HostAddress, makesSpecialAddressesWithTheirFamilyAndNothingElse)
{
    EXPECT_EQ(bytesOf(HostAddress(HostAddress::LoopbackIPv4)), image(HostAddress::IPv4, addressIPv4("127.0.0.1")));
    EXPECT_EQ(bytesOf(HostAddress(HostAddress::LoopbackIPv6)), image(HostAddress::IPv6, addressIPv6("::1")));
    EXPECT_EQ(bytesOf(HostAddress(HostAddress::BroadcastIPv4)),
              image(HostAddress::IPv4, addressIPv4("255.255.255.255")));
    EXPECT_EQ(bytesOf(HostAddress(HostAddress::AnyIPv4)), image(HostAddress::IPv4, addressIPv4("0.0.0.0")));
    EXPECT_EQ(bytesOf(HostAddress(HostAddress::AnyIPv6)), image(HostAddress::IPv6, addressIPv6("::")));
}

TEST(HostAddress, makesNullWithoutEvenAFamily)
{
    EXPECT_THAT(bytesOf(HostAddress(HostAddress::Null)), Each(0));
}

TEST(HostAddress, isUnspecifiedForAnUnknownSpecialAddress)
{
    for (const int value : {-1, 6, 1000})
        EXPECT_THAT(bytesOf(HostAddress(static_cast<HostAddress::SpecialAddress>(value))), Each(0)) << value;
}

TEST(HostAddress, copiesAnIPv4AddressWithItsPort)
{
    const sockaddr_in address = addressIPv4("10.1.2.3", 4711);
    const HostAddress original(generic(address));
    EXPECT_EQ(bytesOf(HostAddress(original)), image(HostAddress::IPv4, address));
}

TEST(HostAddress, copiesAnIPv6AddressWithPortFlowAndScope)
{
    sockaddr_in6 address = addressIPv6("fe80::1", 4711);
    address.sin6_flowinfo = 0x01020304;
    address.sin6_scope_id = 7;
    const HostAddress original(generic(address));
    EXPECT_EQ(bytesOf(HostAddress(original)), image(HostAddress::IPv6, address));
}

TEST(HostAddress, copiesNoStorageOfAnAddressThatIsNotValid)
{
    HostAddress unspecified;
    HostAddress invalid("nonsense");
    EXPECT_EQ(bytesOf(HostAddress(fillStorage(unspecified))), emptyImage(HostAddress::Unspecified));
    EXPECT_EQ(bytesOf(HostAddress(fillStorage(invalid))), emptyImage(HostAddress::Invalid));
}

TEST(HostAddress, copiesOnlyTheBytesThatAnIPv4AddressUses)
{
    HostAddress original(HostAddress::LoopbackIPv4);
    fillStorage(original);
    const Bytes copy = bytesOf(HostAddress(original));
    EXPECT_THAT(Bytes(copy.begin() + storageAt + sizeof(sockaddr_in), copy.end()), Each(0));
}

TEST(HostAddress, assignsAsItCopies)
{
    const HostAddress longer("2001:db8::ffff:ffff:ffff:ffff");
    const HostAddress shorter("10.1.2.3");

    HostAddress target;
    target = longer;
    EXPECT_EQ(bytesOf(target), bytesOf(longer));
    target = shorter;
    EXPECT_EQ(bytesOf(target), bytesOf(shorter)) << "nothing of the longer address may be left";
    target = HostAddress("nonsense");
    EXPECT_EQ(bytesOf(target), emptyImage(HostAddress::Invalid));
}

TEST(HostAddress, survivesAssignmentToItself)
{
    HostAddress address("10.1.2.3");
    const HostAddress& same = address;
    address = same;
    EXPECT_EQ(address.toString(), "10.1.2.3");
}

TEST(HostAddress, parsesNumericText)
{
    EXPECT_EQ(bytesOf(HostAddress("192.168.1.10")), image(HostAddress::IPv4, addressIPv4("192.168.1.10")));
    EXPECT_EQ(bytesOf(HostAddress("fe80::1")), image(HostAddress::IPv6, addressIPv6("fe80::1")));
    EXPECT_EQ(HostAddress("::ffff:192.168.1.10").type(), HostAddress::IPv6);
}

TEST(HostAddress, isInvalidForTextThatIsNoAddress)
{
    for (const char* text : {"", "localhost", "1.2.3", "1.2.3.4.5", "256.0.0.1", " 1.2.3.4", "1.2.3.4 ", "1.2.3.4:80",
                             "::1::", ":", "fe80::1%lo", "[::1]"})
        EXPECT_EQ(bytesOf(HostAddress(std::string(text))), emptyImage(HostAddress::Invalid)) << text;
}

TEST(HostAddress, looksNoNameUpWhenItParses)
{
    interpose::CallLog log;
    Interposed resolver(interpose::getaddrinfo, log.noting("getaddrinfo"));
    const HostAddress address("localhost");
    EXPECT_EQ(address.type(), HostAddress::Invalid);
    EXPECT_THAT(log.calls(), IsEmpty());
}

TEST(HostAddress, hidesNothingBehindAZeroByte)
{
    using namespace std::string_literals;
    interpose::CallLog log;
    Interposed resolver(interpose::getaddrinfo, log.noting("getaddrinfo"));
    EXPECT_EQ(HostAddress("127.0.0.1\0.example.org"s).type(), HostAddress::Invalid);
    EXPECT_EQ(HostAddress("::1\0"s).type(), HostAddress::Invalid);
    EXPECT_EQ(HostAddress::FromHostName("127.0.0.1\0.example.org"s, HostAddress::IPv4).type(),
              HostAddress::Unspecified);
    EXPECT_THAT(HostAddress::ResolveHostName("127.0.0.1\0"s, HostAddress::IPv4), IsEmpty());
    EXPECT_THAT(log.calls(), IsEmpty());
}

TEST(HostAddress, takesAnIPv4SocketAddressWhole)
{
    sockaddr_in address = addressIPv4("10.1.2.3", 4711);
    address.sin_zero[7] = 9;
    EXPECT_EQ(bytesOf(HostAddress(generic(address))), image(HostAddress::IPv4, address));
}

TEST(HostAddress, takesAnIPv6SocketAddressWhole)
{
    sockaddr_in6 address = addressIPv6("2001:db8::5", 4711);
    address.sin6_flowinfo = 0x01020304;
    address.sin6_scope_id = 7;
    EXPECT_EQ(bytesOf(HostAddress(generic(address))), image(HostAddress::IPv6, address));
}

TEST(HostAddress, isInvalidForASocketAddressOfAnotherFamily)
{
    for (const sa_family_t family : {sa_family_t{AF_UNSPEC}, sa_family_t{AF_UNIX}, sa_family_t{AF_PACKET}}) {
        sockaddr_in address = addressIPv4("10.1.2.3", 4711);
        address.sin_family = family;
        EXPECT_EQ(bytesOf(HostAddress(generic(address))), emptyImage(HostAddress::Invalid)) << family;
    }
}

TEST(HostAddress, takesBareBytesOfEitherKind)
{
    const Bytes four{192, 168, 1, 10};
    EXPECT_EQ(bytesOf(HostAddress(HostAddress::IPv4, four.data())),
              image(HostAddress::IPv4, addressIPv4("192.168.1.10")));
    EXPECT_EQ(bytesOf(HostAddress(HostAddress::IPv6, mappedBytes.data())),
              image(HostAddress::IPv6, addressIPv6("::ffff:192.168.1.10")));
}

TEST(HostAddress, isInvalidForBytesOfAnyOtherKind)
{
    for (const int type : {0, 1, 3, 9, 11, -2})
        EXPECT_EQ(bytesOf(HostAddress(static_cast<HostAddress::Type>(type), mappedBytes.data())),
                  emptyImage(HostAddress::Invalid))
            << type;
}

TEST(HostAddress, isValidExactlyForIPv4AndIPv6)
{
    EXPECT_FALSE(HostAddress().isValid());
    EXPECT_FALSE(HostAddress("nonsense").isValid());
    EXPECT_TRUE(HostAddress("1.2.3.4").isValid());
    EXPECT_TRUE(HostAddress("::1").isValid());
}

TEST(HostAddress, showsThePlatformsTextWithoutAPort)
{
    EXPECT_EQ(HostAddress(HostAddress::LoopbackIPv4).toString(), "127.0.0.1");
    EXPECT_EQ(HostAddress(HostAddress::BroadcastIPv4).toString(), "255.255.255.255");
    EXPECT_EQ(HostAddress(HostAddress::LoopbackIPv6).toString(), "::1");
    EXPECT_EQ(HostAddress(HostAddress::AnyIPv6).toString(), "::");
    const std::string longest = "2001:db8:1111:2222:3333:4444:5555:6666";
    EXPECT_EQ(HostAddress(longest).toString(), longest);
    EXPECT_EQ(HostAddress(generic(addressIPv4("10.1.2.3", 80))).toString(), "10.1.2.3");
    EXPECT_EQ(HostAddress(generic(addressIPv6("::2", 80))).toString(), "::2");
}

TEST(HostAddress, showsNothingForAnAddressThatIsNotValid)
{
    EXPECT_EQ(HostAddress().toString(), "");
    EXPECT_EQ(HostAddress("nonsense").toString(), "");
}

TEST(HostAddress, asksThePlatformForTheTextWithRoomForTheLongest)
{
    std::vector<std::pair<int, socklen_t>> asked;
    Interposed text(interpose::inet_ntop,
                    [&](auto real, int family, const void* address, char* buffer, socklen_t room) {
                        asked.emplace_back(family, room);
                        return real(family, address, buffer, room);
                    });
    EXPECT_EQ(HostAddress("1.2.3.4").toString(), "1.2.3.4");
    EXPECT_EQ(HostAddress("::1").toString(), "::1");
    EXPECT_THAT(asked, ElementsAre(std::make_pair(AF_INET, 16U), std::make_pair(AF_INET6, 46U)));
}

TEST(HostAddress, showsNothingWhenThePlatformFails)
{
    Interposed text(interpose::inet_ntop, [](auto, auto...) -> const char* { return nullptr; });
    EXPECT_EQ(HostAddress("1.2.3.4").toString(), "");
    EXPECT_EQ(HostAddress("::1").toString(), "");
}

TEST(HostAddress, writesItsBytesAndTheirNumber)
{
    Bytes buffer(20, 0xee);
    std::size_t length = buffer.size();
    EXPECT_TRUE(HostAddress("192.168.1.10").toBytes(buffer.data(), length));
    EXPECT_EQ(length, 4U);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 4), (Bytes{192, 168, 1, 10}));
    EXPECT_THAT(Bytes(buffer.begin() + 4, buffer.end()), Each(0xee));

    length = buffer.size();
    EXPECT_TRUE(HostAddress("::ffff:192.168.1.10").toBytes(buffer.data(), length));
    EXPECT_EQ(length, 16U);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 16), mappedBytes);
    EXPECT_THAT(Bytes(buffer.begin() + 16, buffer.end()), Each(0xee));

    length = 4;
    EXPECT_TRUE(HostAddress("1.2.3.4").toBytes(buffer.data(), length)) << "four bytes are room enough";
    length = 16;
    EXPECT_TRUE(HostAddress("::1").toBytes(buffer.data(), length)) << "sixteen bytes are room enough";
}

TEST(HostAddress, writesNoBytesWithoutRoomForAllOrWithoutAnAddress)
{
    const std::vector<std::pair<HostAddress, std::size_t>> cases{
        {HostAddress("1.2.3.4"), 3}, {HostAddress("::1"), 15}, {HostAddress("::1"), 4},
        {HostAddress(), 16},         {HostAddress("no"), 16},
    };
    for (const auto& [address, room] : cases) {
        Bytes buffer(16, 0xee);
        std::size_t length = room;
        EXPECT_FALSE(address.toBytes(buffer.data(), length));
        EXPECT_EQ(length, room);
        EXPECT_THAT(buffer, Each(0xee));
    }
}

TEST(HostAddress, comparesKindAndAddressBytes)
{
    EXPECT_TRUE(HostAddress("1.2.3.4") == HostAddress("1.2.3.4"));
    EXPECT_FALSE(HostAddress("1.2.3.4") != HostAddress("1.2.3.4"));
    EXPECT_FALSE(HostAddress("1.2.3.4") == HostAddress("1.2.3.5"));
    EXPECT_TRUE(HostAddress("1.2.3.4") != HostAddress("1.2.3.5"));
    EXPECT_TRUE(HostAddress("::1") == HostAddress("0:0:0:0:0:0:0:1"));
    EXPECT_FALSE(HostAddress("::1") == HostAddress("::2"));
    EXPECT_FALSE(HostAddress("1::1") == HostAddress("2::1"));
}

TEST(HostAddress, comparesNoIPv4AddressWithItsMappedTwin)
{
    EXPECT_FALSE(HostAddress("192.168.1.10") == HostAddress("::ffff:192.168.1.10"));
    EXPECT_TRUE(HostAddress("192.168.1.10") != HostAddress("::ffff:192.168.1.10"));
}

TEST(HostAddress, comparesNoAddressesOfDifferentKindsEvenIfAllBytesAreZero)
{
    EXPECT_FALSE(HostAddress(HostAddress::AnyIPv4) == HostAddress(HostAddress::AnyIPv6));
    EXPECT_FALSE(HostAddress(HostAddress::AnyIPv6) == HostAddress(HostAddress::AnyIPv4));
    EXPECT_FALSE(HostAddress(HostAddress::AnyIPv4) == HostAddress());
}

TEST(HostAddress, neverComparesEqualWhenItIsNotValid)
{
    const HostAddress unspecified;
    const HostAddress invalid("nonsense");
    EXPECT_FALSE(unspecified == HostAddress());
    EXPECT_TRUE(unspecified != HostAddress());
    EXPECT_FALSE(invalid == HostAddress("nonsense"));
    EXPECT_TRUE(invalid != HostAddress("nonsense"));
    EXPECT_FALSE(invalid == invalid);
    EXPECT_FALSE(unspecified == invalid);
}

TEST(HostAddress, ignoresPortFlowAndScopeInComparisons)
{
    EXPECT_TRUE(HostAddress(generic(addressIPv4("1.2.3.4", 80))) == HostAddress(generic(addressIPv4("1.2.3.4", 81))));
    sockaddr_in6 one = addressIPv6("fe80::1", 80);
    sockaddr_in6 other = addressIPv6("fe80::1", 81);
    other.sin6_flowinfo = 5;
    other.sin6_scope_id = 6;
    EXPECT_TRUE(HostAddress(generic(one)) == HostAddress(generic(other)));
}

TEST(HostAddress, comparesSubNetworksByTheBitsOfTheMask)
{
    const HostAddress address("192.168.1.10");
    const HostAddress other("192.168.1.200");
    EXPECT_TRUE(address.isInSameSubNetworkIPv4(other, HostAddress("255.255.255.0")));
    EXPECT_FALSE(address.isInSameSubNetworkIPv4(other, HostAddress("255.255.255.128")));
    EXPECT_FALSE(address.isInSameSubNetworkIPv4(HostAddress("193.168.1.10"), HostAddress("255.255.255.0")));
    EXPECT_TRUE(address.isInSameSubNetworkIPv4(HostAddress("10.0.0.1"), HostAddress("0.0.0.0")));
    EXPECT_TRUE(address.isInSameSubNetworkIPv4(address, HostAddress("255.255.255.255")));
}

TEST(HostAddress, checksNoKindsInSubNetworks)
{
    EXPECT_TRUE(HostAddress().isInSameSubNetworkIPv4(HostAddress("nonsense"), HostAddress("255.255.255.255")));
    EXPECT_TRUE(HostAddress("1.2.3.4").isInSameSubNetworkIPv4(HostAddress(), HostAddress()));
}

namespace {

// Stands in for the resolver: remembers what it was asked and hands out a list of its own.
class FakeResolver {
public:
    explicit FakeResolver(int result = 0)
        : _resolve(interpose::getaddrinfo,
                   [this, result](auto, const char* name, const char* service, const addrinfo* hints, addrinfo** list) {
                       _name = name;
                       _hasService = service != nullptr;
                       _hints = *hints;
                       *list = link();  // a resolver that fails may leave anything there
                       return result;
                   }),
          _free(interpose::freeaddrinfo, [this](auto, addrinfo* list) { _freed.push_back(list); })
    {
    }

    void add(const sockaddr_in& address) { _addresses.emplace_back().ipv4 = address; }
    void add(const sockaddr_in6& address) { _addresses.emplace_back().ipv6 = address; }

    std::string name() const { return _name; }
    bool hasService() const { return _hasService; }
    addrinfo hints() const { return _hints; }
    // Whether the list was given back once; an empty one has nothing to give back.
    bool freed() const { return _freed == std::vector<const addrinfo*>{_entries.data()}; }
    bool freedNothing() const { return _freed.empty() || _freed == std::vector<const addrinfo*>{nullptr}; }

private:
    union Address {
        sockaddr_in6 ipv6;
        sockaddr_in ipv4;
    };

    addrinfo* link()
    {
        _entries.assign(_addresses.size(), addrinfo{});
        for (std::size_t i = 0; i < _entries.size(); ++i) {
            _entries[i].ai_addr = reinterpret_cast<sockaddr*>(&_addresses[i]);
            _entries[i].ai_next = i + 1 < _entries.size() ? &_entries[i + 1] : nullptr;
        }
        return _entries.empty() ? nullptr : _entries.data();
    }

    std::vector<Address> _addresses;
    std::vector<addrinfo> _entries;
    std::string _name;
    bool _hasService = true;
    addrinfo _hints{};
    std::vector<const addrinfo*> _freed;
    Interposed<int(const char*, const char*, const addrinfo*, addrinfo**)> _resolve;
    Interposed<void(addrinfo*)> _free;
};

void expectHints(const FakeResolver& resolver, HostAddress::Type family)
{
    EXPECT_EQ(resolver.name(), "some.host");
    EXPECT_FALSE(resolver.hasService());
    addrinfo hints{};
    hints.ai_family = family;
    EXPECT_EQ(bytesOf(resolver.hints()), bytesOf(hints)) << "hints are zero but for the family";
}

}  // namespace

TEST(HostAddress, asksTheResolverForTheFamilyAlone)
{
    for (const auto family : {HostAddress::Unspecified, HostAddress::IPv4, HostAddress::IPv6}) {
        FakeResolver resolver;
        resolver.add(addressIPv4("10.1.2.3"));
        HostAddress::FromHostName("some.host", family);
        expectHints(resolver, family);
    }
    for (const auto family : {HostAddress::Unspecified, HostAddress::IPv4, HostAddress::IPv6}) {
        FakeResolver resolver;
        resolver.add(addressIPv4("10.1.2.3"));
        HostAddress::ResolveHostName("some.host", family);
        expectHints(resolver, family);
    }
}

TEST(HostAddress, takesTheResolversFirstAddressAndFreesTheList)
{
    FakeResolver resolver;
    resolver.add(addressIPv6("2001:db8::1", 7));
    resolver.add(addressIPv4("10.1.2.3"));
    const HostAddress found = HostAddress::FromHostName("some.host", HostAddress::Unspecified);
    EXPECT_EQ(bytesOf(found), image(HostAddress::IPv6, addressIPv6("2001:db8::1", 7)));
    EXPECT_TRUE(resolver.freed());
}

TEST(HostAddress, isUnspecifiedWhenTheLookUpFails)
{
    FakeResolver resolver(EAI_NONAME);
    resolver.add(addressIPv4("10.1.2.3"));
    EXPECT_THAT(bytesOf(HostAddress::FromHostName("some.host", HostAddress::IPv4)), Each(0));
    EXPECT_TRUE(resolver.freedNothing());
}

TEST(HostAddress, isUnspecifiedWhenTheResolverFindsNothing)
{
    FakeResolver resolver;
    EXPECT_THAT(bytesOf(HostAddress::FromHostName("some.host", HostAddress::IPv4)), Each(0));
}

TEST(HostAddress, keepsTheResolversOrderAndItsRepeats)
{
    FakeResolver resolver;
    resolver.add(addressIPv4("10.1.2.3"));
    resolver.add(addressIPv4("10.1.2.3"));
    resolver.add(addressIPv6("::5"));
    resolver.add(addressIPv4("10.1.2.3"));
    std::vector<std::string> texts;
    for (const HostAddress& address : HostAddress::ResolveHostName("some.host", HostAddress::Unspecified))
        texts.push_back(address.toString());
    EXPECT_THAT(texts, ElementsAre("10.1.2.3", "10.1.2.3", "::5", "10.1.2.3"));
    EXPECT_TRUE(resolver.freed());
}

TEST(HostAddress, givesOneAddressAnEntryWhateverItsFamily)
{
    FakeResolver resolver;
    sockaddr_in strange = addressIPv4("10.1.2.3");
    strange.sin_family = AF_UNIX;
    resolver.add(strange);
    resolver.add(addressIPv4("10.1.2.4"));
    const std::vector<HostAddress> found = HostAddress::ResolveHostName("some.host", HostAddress::Unspecified);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].type(), HostAddress::Invalid);
    EXPECT_EQ(found[1].toString(), "10.1.2.4");
}

TEST(HostAddress, resolvesToNothingWhenTheLookUpFails)
{
    FakeResolver resolver(EAI_AGAIN);
    resolver.add(addressIPv4("10.1.2.3"));
    EXPECT_THAT(HostAddress::ResolveHostName("some.host", HostAddress::Unspecified), IsEmpty());
    EXPECT_TRUE(resolver.freedNothing());
}

TEST(HostAddress, resolvesToNothingWhenTheResolverFindsNothing)
{
    FakeResolver resolver;
    EXPECT_THAT(HostAddress::ResolveHostName("some.host", HostAddress::Unspecified), IsEmpty());
}

TEST(HostAddress, resolvesNumericTextThroughTheRealResolver)
{
    const std::vector<HostAddress> found = HostAddress::ResolveHostName("127.0.0.1", HostAddress::Unspecified);
    EXPECT_FALSE(found.empty());
    for (const HostAddress& address : found)
        EXPECT_TRUE(address == HostAddress(HostAddress::LoopbackIPv4)) << address.toString();
    EXPECT_TRUE(HostAddress::FromHostName("127.0.0.1", HostAddress::IPv4) == HostAddress(HostAddress::LoopbackIPv4));
    EXPECT_EQ(HostAddress::FromHostName("127.0.0.1", HostAddress::IPv6).type(), HostAddress::Unspecified)
        << "an IPv4 text is no IPv6 host";
}

TEST(HostAddress, resolvesLocalhostToTheLoopbackAddress)
{
    const HostAddress found = HostAddress::FromHostName("localhost", HostAddress::IPv4);
    if (!found.isValid())
        GTEST_SKIP() << "this machine does not know the name localhost";
    EXPECT_TRUE(found == HostAddress(HostAddress::LoopbackIPv4)) << found.toString();
}
