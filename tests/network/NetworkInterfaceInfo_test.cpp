#include <gtest/gtest.h>
#include <kxPAL/NetworkInterfaceInfo.h>

#include <cstddef>
#include <iterator>
#include <string>
#include <type_traits>
#include <vector>

using Murn::HostAddress;
using Murn::NetworkInterfaceInfo;

namespace {

NetworkInterfaceInfo filled()
{
    NetworkInterfaceInfo info;
    info.name = "a name that is too long to be stored within the string itself";
    for (unsigned char byte = 0; byte < 8; ++byte)
        info.mac[byte] = static_cast<unsigned char>(0xf0 + byte);
    info.reserved = 0xfedcba98;
    info.address = HostAddress(std::string("192.0.2.1"));
    info.extraAddress = HostAddress(std::string("fe80::1"));
    return info;
}

void expectFilled(const NetworkInterfaceInfo& info)
{
    EXPECT_EQ(info.name, "a name that is too long to be stored within the string itself");
    EXPECT_EQ(std::string(std::begin(info.mac), std::end(info.mac)), "\xf0\xf1\xf2\xf3\xf4\xf5\xf6\xf7");
    EXPECT_EQ(info.reserved, 0xfedcba98U);
    EXPECT_EQ(info.address.toString(), "192.0.2.1");
    EXPECT_EQ(info.extraAddress.toString(), "fe80::1");
}

}  // namespace

TEST(NetworkInterfaceInfo, hasItsFieldsInOrder)
{
    static_assert(std::is_standard_layout<NetworkInterfaceInfo>::value, "its fields have fixed places");
    static_assert(std::is_same<decltype(NetworkInterfaceInfo::name), std::string>::value, "");
    static_assert(std::is_same<decltype(NetworkInterfaceInfo::mac), unsigned char[8]>::value, "");
    static_assert(std::is_same<decltype(NetworkInterfaceInfo::address), HostAddress>::value, "");
    static_assert(std::is_same<decltype(NetworkInterfaceInfo::extraAddress), HostAddress>::value, "");
    EXPECT_EQ(offsetof(NetworkInterfaceInfo, name), 0U);
    EXPECT_EQ(offsetof(NetworkInterfaceInfo, mac), sizeof(std::string));
    EXPECT_EQ(offsetof(NetworkInterfaceInfo, reserved), sizeof(std::string) + 8);
    EXPECT_EQ(sizeof(NetworkInterfaceInfo::reserved), 4U);
    EXPECT_EQ(offsetof(NetworkInterfaceInfo, address), sizeof(std::string) + 12);
    EXPECT_EQ(offsetof(NetworkInterfaceInfo, extraAddress), sizeof(std::string) + 44);
    EXPECT_EQ(sizeof(NetworkInterfaceInfo), sizeof(std::string) + 80);  // four bytes fill it up at the end
}

TEST(NetworkInterfaceInfo, isEmptyAtFirst)
{
    const NetworkInterfaceInfo info;

    EXPECT_EQ(info.name, "");
    EXPECT_EQ(std::string(std::begin(info.mac), std::end(info.mac)), std::string(8, '\0'));
    EXPECT_EQ(info.reserved, 0U);
    EXPECT_EQ(info.address.type(), HostAddress::Unspecified);
    EXPECT_EQ(info.extraAddress.type(), HostAddress::Unspecified);
}

TEST(NetworkInterfaceInfo, copiesEveryField)
{
    const NetworkInterfaceInfo original = filled();
    std::vector<NetworkInterfaceInfo> copies = {original, NetworkInterfaceInfo()};
    copies[1] = original;

    expectFilled(copies[0]);
    expectFilled(copies[1]);
    expectFilled(original);
}
