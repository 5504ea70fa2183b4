// The list of interfaces, run as its users run it, and what it prints of names that are hard to print.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/close_range.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>

#include "ChildProcess.h"
#include "DeviceJson.h"
#include "FreshProcess.h"
#include "PrivateNetwork.h"
#include "Sanitizers.h"
#include "interfaces/Listing.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string printed(const ChildProcess::Arguments& arguments)
{
    ChildProcess program(INTERFACES_PROGRAM, arguments);
    EXPECT_EQ(program.wait(), 0) << program.errors();
    EXPECT_THAT(program.errors(), IsEmpty());
    return program.output();
}

DeviceLists listed()
{
    return parseInterfaces(printed({"--json"}));
}

// What the ip tool prints; nothing where it is missing.
std::string printedByIp(const ChildProcess::Arguments& arguments)
{
    ChildProcess::Arguments words = {"ip", "-json"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    ChildProcess tool("/usr/bin/env", words);
    return tool.wait() == 0 ? tool.output() : "";
}

Murn::NetworkInterfaceInfo named(const std::string& name)
{
    Murn::NetworkInterfaceInfo info;
    info.name = name;
    return info;
}

// What a program gets for a device of this name.
std::string throughJson(const std::string& name)
{
    return parseInterfaces(asJson({{named(name)}, {}})).interfaces.at(0).name;
}

class InterfacesInAPrivateNetwork : public ::testing::Test {
protected:
    void SetUp() override
    {
        const std::string obstacle = privatenetwork::obstacle();
        if (!obstacle.empty())
            GTEST_SKIP() << obstacle;
    }
};

}  // namespace

TEST(Interfaces, explainsItself)
{
    EXPECT_THAT(printed({"--help"}), HasSubstr("--json"));
}

TEST(Interfaces, refusesOptionsThatItDoesNotHave)
{
    ChildProcess program(INTERFACES_PROGRAM, {"--xml"});

    EXPECT_EQ(program.wait(), 2);
    EXPECT_THAT(program.output(), IsEmpty());
    EXPECT_THAT(program.errors(), HasSubstr("--xml"));
}

TEST(Interfaces, saysThatItCannotPrint)
{
    ChildProcess program("/bin/sh", {"-c", "exec \"" INTERFACES_PROGRAM "\" >/dev/full"});

    EXPECT_EQ(program.wait(), 1);
    EXPECT_EQ(program.errors(), "interfaces: cannot print: No space left on device\n");
}

// The library's complaints about the lack of descriptors go elsewhere.
TEST(Interfaces, printsNothingButJsonForPrograms)
{
    if (KXPAL_TESTS_ADDRESS_SANITIZER != 0 || KXPAL_TESTS_THREAD_SANITIZER != 0)
        GTEST_SKIP() << "the sanitizers use descriptors of their own";
    // Room for the three standard ones, and for the one that the program needs to keep standard output apart; what this
    // process has got from elsewhere must not take it.
    ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    ChildProcess program(INTERFACES_PROGRAM, {"--json"}, {.descriptors = rlimit{4, 4}, .enter = nullptr});

    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.output(), "{\n  \"interfaces\": [],\n  \"physicalInterfaces\": []\n}\n");
    EXPECT_THAT(program.errors(), HasSubstr("ioctl(SIOCGIFCONF)"));
    EXPECT_THAT(program.errors(), HasSubstr("Cannot enumerate i/s"));
}

TEST(Interfaces, agreesWithTheIpToolAboutThisMachine)
{
    if (printedByIp({"link"}).empty())
        GTEST_SKIP() << "the ip tool (package iproute2) is missing";

    // Again if the machine changes meanwhile.
    Devices links;
    Devices addresses;
    DeviceLists lists;
    do {
        links = parseIpLink(printedByIp({"link"}));
        addresses = parseIpAddr(printedByIp({"-4", "addr"}));
        lists = listed();
    } while (links != parseIpLink(printedByIp({"link"})) || addresses != parseIpAddr(printedByIp({"-4", "addr"})));

    EXPECT_THAT(lists.physical, ElementsAreArray(links));
    // Of several addresses under one name the program repeats the first.
    EXPECT_EQ(lists.interfaces.size(), addresses.size());
    for (const Device& device : lists.interfaces)
        EXPECT_THAT(addresses, Contains(Device{device.name, "", device.address}));
}

TEST_F(InterfacesInAPrivateNetwork, saysThatThereAreNone)
{
    EXPECT_IN_FRESH_PROCESS({
        privatenetwork::enter();
        privatenetwork::ip("link set lo up");
        EXPECT_EQ(printed({}), "Interfaces with an address:\n  (none)\n\nPhysical interfaces:\n  (none)\n");
        EXPECT_EQ(printed({"--json"}), "{\n  \"interfaces\": [],\n  \"physicalInterfaces\": []\n}\n");
    });
}

TEST_F(InterfacesInAPrivateNetwork, listsEachInItsPlace)
{
    EXPECT_IN_FRESH_PROCESS({
        privatenetwork::enter();
        privatenetwork::ip("link add wan address 02:00:00:00:00:ab type veth peer name lan0 address 02:00:00:00:00:cd");
        privatenetwork::ip("addr add 198.51.100.17/24 dev lan0");
        privatenetwork::ip("addr add 192.0.2.1/24 dev wan label wan:two");
        EXPECT_EQ(printed({}),
                  "Interfaces with an address:\n"
                  "  lan0     02:00:00:00:00:cd  198.51.100.17\n"
                  "  wan:two  02:00:00:00:00:ab  192.0.2.1\n"
                  "\n"
                  "Physical interfaces:\n"
                  "  lan0  02:00:00:00:00:cd\n"
                  "  wan   02:00:00:00:00:ab\n");
        const DeviceLists lists = listed();
        EXPECT_THAT(lists.interfaces, ElementsAre(Device({"lan0", "02:00:00:00:00:cd", "198.51.100.17"}),
                                                  Device({"wan:two", "02:00:00:00:00:ab", "192.0.2.1"})));
        EXPECT_THAT(lists.physical,
                    ElementsAre(Device({"lan0", "02:00:00:00:00:cd", ""}), Device({"wan", "02:00:00:00:00:ab", ""})));
    });
}

TEST_F(InterfacesInAPrivateNetwork, outlivesNamesThatNobodyWouldGive)
{
    EXPECT_IN_FRESH_PROCESS({
        privatenetwork::enter();
        privatenetwork::ip("link add {\"}\\\x01\x1b[31m\xff type veth peer name z");
        EXPECT_THAT(printed({}), HasSubstr("\n  {\"}\\??[31m?  "));
        EXPECT_EQ(listed().physical.at(1).name, "{\"}\\\x01\x1b[31m\xef\xbf\xbd");
    });
}

TEST(InterfacesJson, givesNamesBackAsTheyAre)
{
    for (const std::string name :
         {"", "eth0", "\"quoted\"", "back\\slash", "a/b", "\x01\x1f\x7f", "\xc2\x80", "\xc3\xa9", "\xe2\x82\xac",
          "\xed\x9f\xbf", "\xee\x80\x80", "\xf0\x9f\x98\x80", "\xf4\x8f\xbf\xbf"})
        EXPECT_EQ(throughJson(name), name);
    EXPECT_EQ(throughJson(std::string("a\0b", 3)), std::string("a\0b", 3));
}

TEST(InterfacesJson, replacesEachByteThatIsNoCharacter)
{
    const std::string one = "\xef\xbf\xbd";
    EXPECT_EQ(throughJson("a\x80z"), "a" + one + "z");
    EXPECT_EQ(throughJson("\xff\xfe"), one + one);
    EXPECT_EQ(throughJson("\xc3"), one);                      // cut off
    EXPECT_EQ(throughJson("\xe2\x82z"), one + one + "z");     // cut off by another character
    EXPECT_EQ(throughJson("\xc0\xaf"), one + one);            // more bytes than it needs
    EXPECT_EQ(throughJson("\xe0\x9f\xbf"), one + one + one);  // more bytes than it needs
    EXPECT_EQ(throughJson("\xf0\x8f\xbf\xbf"), one + one + one + one);
    EXPECT_EQ(throughJson("\xed\xa0\x80"), one + one + one);            // half of a pair
    EXPECT_EQ(throughJson("\xf4\x90\x80\x80"), one + one + one + one);  // beyond the last one
    EXPECT_EQ(throughJson("\xf8\x88\x80\x80\x80"), one + one + one + one + one);
}
