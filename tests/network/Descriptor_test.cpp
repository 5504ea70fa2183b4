// Closing a socket that other threads are using: who waits for whom, and when the waiting is cut short.
#include "network/Descriptor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "InterposeSockets.h"
#include "Socket.h"
#include "ThreadState.h"
#include "Wait.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

using Murn::DescriptorEnd;
using Murn::DescriptorUse;
using Murn::Socket;

namespace {

constexpr int number = 4711;  // is handed on, and never used

/// Notes the shutdowns instead of making them.
class Shutdowns {
public:
    Shutdowns()
        : _noted(interpose::shutdown, [this](auto*, int fd, int how) {
              _calls.emplace_back(fd, how);
              ++_count;
              return 0;
          })
    {
    }

    /// Once no other thread makes any.
    const std::vector<std::pair<int, int>>& calls() const { return _calls; }
    int count() const { return _count; }

private:
    std::vector<std::pair<int, int>> _calls;
    std::atomic<int> _count{0};
    Interposed<int(int, int)> _noted;
};

/// Ends the use of a socket on a thread of its own.
class Ending {
public:
    explicit Ending(const Socket& socket)
        : _thread([this, &socket] {
              _threadNumber = threadNumber();
              const DescriptorEnd end(socket, number);
              timespec time{};
              ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
              _processorTime = std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
              _isThrough = true;
          })
    {
    }
    ~Ending() { wait(); }

    Ending(const Ending&) = delete;
    Ending& operator=(const Ending&) = delete;

    bool isThrough() const { return _isThrough; }
    long thread() const { return _threadNumber; }
    /// What the thread had of the processors, once it is through.
    std::chrono::nanoseconds processorTime() const { return _processorTime; }
    void wait()
    {
        if (_thread.joinable())
            _thread.join();
    }

private:
    std::atomic<bool> _isThrough{false};
    std::atomic<long> _threadNumber{0};
    std::chrono::nanoseconds _processorTime{0};
    std::thread _thread;
};

TEST(DescriptorTest, isTakenOnce)
{
    int field = 5;

    EXPECT_EQ(Murn::readDescriptor(field), 5);
    EXPECT_EQ(Murn::takeDescriptor(field), 5);
    EXPECT_EQ(Murn::readDescriptor(field), -1);
    EXPECT_EQ(Murn::takeDescriptor(field), -1);
}

TEST(DescriptorTest, endsAtOnceWhenNobodyUsesIt)
{
    const Socket socket(-1);
    const Shutdowns shutdowns;

    for (int round = 0; round < 3; ++round)
        const DescriptorEnd end(socket, number);

    EXPECT_THAT(shutdowns.calls(), IsEmpty());
}

TEST(DescriptorTest, isUsedBySeveralThreadsAtOnce)
{
    const Socket socket(-1);
    const DescriptorUse use(socket);

    std::thread([&] { const DescriptorUse another(socket); }).join();
}

TEST(DescriptorTest, waitsForAUseThatIsSoonOverAndLeavesTheSocketAlone)
{
    const Socket socket(-1);
    const Shutdowns shutdowns;
    // A loaded machine may take longer than the patience lasts for one round, but hardly for each of a hundred.
    int undisturbed = 0;
    for (int round = 0; round < 100 && undisturbed == 0; ++round) {
        const int before = shutdowns.count();
        auto use = std::make_unique<DescriptorUse>(socket);
        Ending ending(socket);
        while (ending.thread() == 0)
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_FALSE(ending.isThrough());
        use.reset();
        ending.wait();
        EXPECT_TRUE(ending.isThrough());
        undisturbed += shutdowns.count() == before ? 1 : 0;
    }
    EXPECT_GT(undisturbed, 0);
}

TEST(DescriptorTest, cutsAUseShortThatGoesOnAndWaitsForItsEnd)
{
    const Socket socket(-1);
    const Shutdowns shutdowns;
    auto use = std::make_unique<DescriptorUse>(socket);
    Ending ending(socket);

    ASSERT_TRUE(waitUntil([&] { return shutdowns.count() != 0; }));
    ASSERT_TRUE(waitUntil([&] { return isAsleep(ending.thread()); }));
    EXPECT_FALSE(ending.isThrough());

    use.reset();
    ending.wait();

    EXPECT_TRUE(ending.isThrough());
    EXPECT_THAT(shutdowns.calls(), ElementsAre(Pair(number, SHUT_RDWR)));
}

TEST(DescriptorTest, waitsWithoutKeepingAProcessorBusy)
{
    const Socket socket(-1);
    const Shutdowns shutdowns;
    auto use = std::make_unique<DescriptorUse>(socket);
    Ending ending(socket);

    ASSERT_TRUE(waitUntil([&] { return shutdowns.count() != 0; }));
    use.reset();
    ending.wait();

    EXPECT_LT(ending.processorTime(), std::chrono::milliseconds(60));  // of the 100 that it waits before the shutdown
}

TEST(DescriptorTest, keepsNoOtherSocketFromItsEnd)
{
    struct Row {
        Socket first{-1};
        Socket second{-1};
    };
    const Row sockets;
    const Shutdowns shutdowns;
    const DescriptorUse use(sockets.first);

    const DescriptorEnd end(sockets.second, number);

    EXPECT_THAT(shutdowns.calls(), IsEmpty());
}

}  // namespace
