// The multicast socket on interfaces that are taken away while it uses them, in a network of the test's own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/HostAddress.h>
#include <kxPAL/MulticastUdpSocket.h>

#include <string>

#include "Capture.h"
#include "FreshProcess.h"
#include "LogCapture.h"
#include "PrivateNetwork.h"

namespace {

using Murn::HostAddress;
using Murn::MulticastUdpSocket;
using ::testing::Contains;

constexpr unsigned short port = 4711;

// Adds a device that carries what is sent to it.
void addDevice(const std::string& name, const std::string& hardware, const std::string& address)
{
    privatenetwork::addDevice(name, hardware);
    privatenetwork::ip("address add " + address + "/24 dev " + name);
    privatenetwork::ip("link set " + name + " up");
    privatenetwork::ip("link set far" + name + " up");
}

class VanishedInterfaceTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        const std::string obstacle = privatenetwork::obstacle();
        if (!obstacle.empty())
            GTEST_SKIP() << obstacle;
    }

    static void loseOneAfterTheOther()
    {
        privatenetwork::enter();
        addDevice("eth0", "02:00:00:00:00:01", "10.1.0.1");
        addDevice("eth1", "02:00:00:00:00:02", "10.2.0.1");

        MulticastUdpSocket socket;
        HostAddress group("239.1.2.3");
        ASSERT_EQ(socket.registerOnMulticastGroup({&group}, port, false), 0);
        ASSERT_EQ(socket.sendto("x", 1, port), 0);

        const LogCapture log;
        privatenetwork::ip("link del eth0");
        EXPECT_EQ(socket.sendto("x", 1, port), 0) << "through the other one";
        EXPECT_EQ(socket.registerOnMulticastGroup({&group}, port, false), 0) << "on the other one";
        // Whether a group can be left on what is gone depends on the system.
        EXPECT_THAT(log.texts(), Contains("sendto failed asked:1, got -1. I/f=0\n"));
        EXPECT_THAT(log.texts(), Contains("addMulticastMembership failed"));

        privatenetwork::ip("link del eth1");
        EXPECT_EQ(socket.sendto("x", 1, port), -1);
        EXPECT_EQ(socket.registerOnMulticastGroup({&group}, port, false), -1);
        EXPECT_EQ(socket.sendto("x", 1, port), 3);

        char buffer[4];
        EXPECT_EQ(printedBy([&] {
                      socket.wakeUp();
                      EXPECT_EQ(socket.recvfrom(buffer, sizeof buffer, nullptr, nullptr), -1);
                  }),
                  "Wakeup\nAbort\n");
    }
};

TEST_F(VanishedInterfaceTest, leavesTheOthersInUse)
{
    EXPECT_IN_FRESH_PROCESS(loseOneAfterTheOther());
}

}  // namespace
