// Multicast between three hosts of a lab, of which two have two interfaces each.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LabTest.h"
#include "MulticastStation.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

using Texts = MulticastStation::Texts;

const std::string groupA = "239.1.1.1";
const std::string groupB = "239.1.1.2";

// The addresses of the three hosts: the first one is on the first network only.
const std::string one = NetworkLab::address(0, 0);
const std::string two = NetworkLab::address(1, 0);
const std::string twoToo = NetworkLab::address(1, 1);
const std::string three = NetworkLab::address(2, 0);
const std::string threeToo = NetworkLab::address(2, 1);

class MulticastLab : public LabTest {
protected:
    MulticastLab() : LabTest({1, 2, 2}) {}
};

// So many times the same.
Texts times(std::size_t count, const std::string& text)
{
    return Texts(count, text);
}

Texts operator+(Texts left, const Texts& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

void expectOrderlyEnd(MulticastStation& station)
{
    EXPECT_EQ(station.end(), 0);
}

}  // namespace

TEST_F(MulticastLab, listsTheInterfacesOfEachHost)
{
    MulticastStation first(lab(), 0);
    MulticastStation second(lab(), 1);
    EXPECT_THAT(first.interfaces(), ElementsAre("eth0 " + one));
    EXPECT_THAT(second.interfaces(), ElementsAre("eth0 " + two, "eth1 " + twoToo));
    expectOrderlyEnd(first);
    expectOrderlyEnd(second);
}

// A datagram leaves once for each interface and group, and each that arrives is read from each of the receiver's
// sockets. Its sender's address tells which interface it left through.
TEST_F(MulticastLab, carriesADatagramOncePerInterfaceAndGroup)
{
    MulticastStation first(lab(), 0);
    MulticastStation second(lab(), 1);
    MulticastStation third(lab(), 2);
    for (MulticastStation* const station : {&first, &second, &third})
        EXPECT_EQ(station->registerOn({groupA, groupB}), 0);

    EXPECT_EQ(first.send("hello"), 0);
    EXPECT_EQ(second.send("welcome"), 0);
    // The last datagram on each way pushes all others in front of it.
    for (MulticastStation* const station : {&first, &second})
        EXPECT_EQ(station->send("end"), 0);
    EXPECT_TRUE(first.hears(one + " end", 2) && first.hears(two + " end", 2));
    for (MulticastStation* const station : {&second, &third})
        EXPECT_TRUE(station->hears(one + " end", 4) && station->hears(two + " end", 4) &&
                    station->hears(twoToo + " end", 4));

    const Texts onOneInterface =
        times(2, one + " end") + times(2, one + " hello") + times(2, two + " end") + times(2, two + " welcome");
    const Texts onTwoInterfaces = times(4, one + " end") + times(4, one + " hello") + times(4, two + " end") +
                                  times(4, two + " welcome") + times(4, twoToo + " end") +
                                  times(4, twoToo + " welcome");
    EXPECT_THAT(first.heard(), ElementsAreArray(onOneInterface));
    EXPECT_THAT(second.heard(), ElementsAreArray(onTwoInterfaces)) << "its own come back to it";
    EXPECT_THAT(third.heard(), ElementsAreArray(onTwoInterfaces));
    for (MulticastStation* const station : {&first, &second, &third}) {
        EXPECT_THAT(station->warnings(), IsEmpty());
        expectOrderlyEnd(*station);
    }
}

TEST_F(MulticastLab, replacesGroups)
{
    MulticastStation sender(lab(), 1);
    MulticastStation receiver(lab(), 2);
    EXPECT_EQ(sender.registerOn({groupA, groupB}), 0);
    EXPECT_EQ(receiver.registerOn({groupA, groupB}), 0);
    EXPECT_EQ(sender.send("to both"), 0);
    EXPECT_TRUE(receiver.hears(two + " to both", 4) && receiver.hears(twoToo + " to both", 4));
    receiver.forget();

    EXPECT_EQ(receiver.registerOn({groupA}), 0);
    EXPECT_EQ(sender.registerOn({groupB}), 0);
    EXPECT_EQ(sender.send("to the second group"), 0);
    EXPECT_EQ(sender.registerOn({groupA}), 0);
    EXPECT_EQ(sender.send("to the first group"), 0);
    EXPECT_TRUE(receiver.hears(two + " to the first group", 2) && receiver.hears(twoToo + " to the first group", 2));
    EXPECT_THAT(receiver.heard(),
                ElementsAreArray(times(2, two + " to the first group") + times(2, twoToo + " to the first group")));

    for (MulticastStation* const station : {&sender, &receiver}) {
        EXPECT_THAT(station->warnings(), IsEmpty());
        expectOrderlyEnd(*station);
    }
}

// An interface that was down works again afterwards: the groups stay joined on it.
TEST_F(MulticastLab, goesOnWhileTheSendersInterfaceIsDown)
{
    MulticastStation sender(lab(), 1);
    MulticastStation receiver(lab(), 2);
    EXPECT_EQ(sender.registerOn({groupA}), 0);
    EXPECT_EQ(receiver.registerOn({groupA}), 0);
    EXPECT_EQ(sender.send("both up"), 0);
    EXPECT_TRUE(receiver.hears(two + " both up", 2) && receiver.hears(twoToo + " both up", 2));
    EXPECT_THAT(sender.warnings(), IsEmpty());

    ASSERT_TRUE(lab().setUp(1, 1, false));
    EXPECT_EQ(sender.send("one down"), 0);
    EXPECT_THAT(sender.warnings(), ElementsAre("sendto failed asked:8, got -1. I/f=1"));
    EXPECT_TRUE(receiver.hears(two + " one down", 2));
    ASSERT_TRUE(lab().setUp(1, 0, false));
    EXPECT_EQ(sender.send("both down"), -1);
    EXPECT_THAT(sender.warnings(),
                ElementsAre("sendto failed asked:9, got -1. I/f=0", "sendto failed asked:9, got -1. I/f=1"));

    ASSERT_TRUE(lab().setUp(1, 0, true) && lab().setUp(1, 1, true));
    EXPECT_EQ(sender.send("up again"), 0);
    EXPECT_TRUE(receiver.hears(two + " up again", 2) && receiver.hears(twoToo + " up again", 2));
    const Texts all = receiver.heard();
    EXPECT_THAT(all, Not(Contains(twoToo + " one down")));
    EXPECT_THAT(all, Not(Contains(two + " both down")));
    expectOrderlyEnd(sender);
    expectOrderlyEnd(receiver);
}

TEST_F(MulticastLab, goesOnWhileTheReceiversInterfaceIsDown)
{
    MulticastStation sender(lab(), 1);
    MulticastStation receiver(lab(), 2);
    EXPECT_EQ(sender.registerOn({groupA}), 0);
    EXPECT_EQ(receiver.registerOn({groupA}), 0);

    ASSERT_TRUE(lab().setUp(2, 0, false));
    EXPECT_EQ(sender.send("one down"), 0);
    EXPECT_TRUE(receiver.hears(twoToo + " one down", 2));

    ASSERT_TRUE(lab().setUp(2, 0, true));
    EXPECT_EQ(sender.send("up again"), 0);
    EXPECT_TRUE(receiver.hears(two + " up again", 2) && receiver.hears(twoToo + " up again", 2));
    EXPECT_THAT(receiver.heard(), Not(Contains(two + " one down")));
    EXPECT_THAT(sender.warnings(), IsEmpty());
    expectOrderlyEnd(sender);
    expectOrderlyEnd(receiver);
}

TEST_F(MulticastLab, isWokenWhileItWaits)
{
    MulticastStation station(lab(), 1);
    EXPECT_EQ(station.registerOn({groupA}), 0);
    EXPECT_EQ(station.wakeUp(), -1);
    EXPECT_EQ(station.send("hello"), 0);
    EXPECT_EQ(station.receive(), -1) << "from now on it does not wait, datagrams or not";
    EXPECT_EQ(station.printed(), "Wakeup\nAbort\nAbort\n");
    EXPECT_THAT(station.warnings(), IsEmpty());
    expectOrderlyEnd(station);
}

TEST_F(MulticastLab, isWokenByACloseWhileItWaits)
{
    MulticastStation station(lab(), 1);
    EXPECT_EQ(station.registerOn({groupA}), 0);
    EXPECT_EQ(station.close(), -1);
    EXPECT_EQ(station.receive(), 0);
    EXPECT_EQ(station.printed(), "Wakeup\nAbort\n");
    EXPECT_THAT(station.warnings(), IsEmpty());
    EXPECT_EQ(station.send("hello"), -1);
    expectOrderlyEnd(station);
}

TEST_F(MulticastLab, carriesFiftyThousandDatagrams)
{
    constexpr int count = 50000;
    // A socket buffers some hundred small datagrams. Both sockets of a receiver get what comes on either interface.
    constexpr int atOnce = 40;
    MulticastStation sender(lab(), 1);
    MulticastStation first(lab(), 0);
    MulticastStation third(lab(), 2);
    for (MulticastStation* const station : {&sender, &first, &third})
        EXPECT_EQ(station->registerOn({groupA}), 0);

    for (int number = 0; number < count; number += atOnce) {
        ASSERT_EQ(sender.sendNumbers(number, number + atOnce - 1), atOnce);
        first.beginToHearNumbers(number + atOnce);
        third.beginToHearNumbers(4 * (number + atOnce));
        ASSERT_TRUE(first.heardNumbers()) << number;
        ASSERT_TRUE(third.heardNumbers()) << number;
    }

    EXPECT_EQ(first.numbersHeard({two}, 1), count);
    EXPECT_EQ(third.numbersHeard({two, twoToo}, 2), count);
    for (MulticastStation* const station : {&sender, &first, &third}) {
        EXPECT_THAT(station->warnings(), IsEmpty());
        expectOrderlyEnd(*station);
    }
}

TEST_F(MulticastLab, hasNoSocketsOnAHostWithLoopbackOnly)
{
    const NetworkLab lonely({0});
    ASSERT_EQ(lonely.reason(), "");
    MulticastStation station(lonely, 0);
    EXPECT_THAT(station.interfaces(), IsEmpty());
    EXPECT_EQ(station.registerOn({groupA}), 4);
    EXPECT_EQ(station.send("hello"), 4);
    EXPECT_EQ(station.receive(), 0);
    EXPECT_THAT(station.warnings(), IsEmpty());
    expectOrderlyEnd(station);
}
