// Threads, pools, timers and conditions: each of their calls that fails, and a system time that jumps.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/Cond.h>
#include <kxPAL/ThreadPool.h>
#include <kxPAL/Timer.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <string>

#include "Fault.h"
#include "FreshProcess.h"
#include "InterposeGlib.h"
#include "InterposeLibc.h"
#include "Runtime.h"
#include "Units.h"

namespace {

using Murn::Cond;
using Murn::Thread;
using Murn::ThreadPool;
using Murn::Timer;
using ::testing::EndsWith;
using ::testing::SizeIs;

class RuntimeFaultTable : public RuntimeTest {
protected:
    // Refuses as GLib does.
    auto refusing() const
    {
        return [](auto, const gchar*, GThreadFunc, gpointer, GError** result) -> GThread* {
            g_set_error_literal(result, G_THREAD_ERROR, G_THREAD_ERROR_AGAIN, "no room");
            return nullptr;
        };
    }
};

FAULT_TEST_BY_HAND(RuntimeFaultTable, isNotStarted, g_thread_try_new, "`Thread::start`",
                   "logs `Thread ... could not be started: ...`; the thread counts as not started, and may be started "
                   "again",
                   G_THREAD_ERROR_AGAIN)
{
    BodyThread thread([] {});
    {
        const Interposed starting(interpose::g_thread_try_new, refusing());
        thread.start();
    }
    EXPECT_FALSE(thread.isRunning());
    ASSERT_THAT(logged(), SizeIs(1));
    EXPECT_THAT(logged().front().text, EndsWith("could not be started: no room"));
    startAndJoin(thread);
}

FAULT_TEST_BY_HAND(RuntimeFaultTable, workWithFewer, g_thread_try_new, "`ThreadPool()`",
                   "logs one such line for each worker that is refused; the others do all the work",
                   G_THREAD_ERROR_AGAIN)
{
    int starts = 0;
    std::atomic<int> done = 0;
    {
        const Interposed starting(interpose::g_thread_try_new, [&](auto real, auto... arguments) {
            return ++starts == 2 ? real(arguments...) : refusing()(real, arguments...);
        });
        ThreadPool pool(3);
        for (int unit = 0; unit < 10; ++unit)
            pool.run(new FunctionUnit([&] { ++done; }));
    }
    EXPECT_EQ(starts, 3);
    EXPECT_EQ(done, 10);
    EXPECT_THAT(logged(), SizeIs(2));
}

FAULT_TEST(RuntimeFaultTable, wakesEarly, usleep, "`TimerSleep`", "returns -1 and leaves `errno`", EINTR, EINVAL)
{
    EXPECT_EQ(TimerSleep(100000), -1);
    EXPECT_EQ(errno, error());
}

// A system time that is set back by a day, or forward, in the middle.
class SteppingClock {
public:
    explicit SteppingClock(int days) : _step(days * 86400) {}

    void step() { _stepped = true; }

private:
    std::time_t stepped(std::time_t seconds) const { return _stepped ? seconds + _step : seconds; }

    const std::time_t _step;
    std::atomic<bool> _stepped = false;
    const Interposed<int(clockid_t, timespec*)> _clock{interpose::clock_gettime,
                                                       [this](auto real, clockid_t clock, timespec* now) {
                                                           const int result = real(clock, now);
                                                           if (clock == CLOCK_REALTIME)
                                                               now->tv_sec = stepped(now->tv_sec);
                                                           return result;
                                                       }};
    const Interposed<int(timeval*, void*)> _day{interpose::gettimeofday, [this](auto real, timeval* now, void* zone) {
                                                    const int result = real(now, zone);
                                                    now->tv_sec = stepped(now->tv_sec);
                                                    return result;
                                                }};
    const Interposed<std::time_t(std::time_t*)> _time{interpose::time, [this](auto real, std::time_t* now) {
                                                          const std::time_t seconds = stepped(real(now));
                                                          if (now != nullptr)
                                                              *now = seconds;
                                                          return seconds;
                                                      }};
};

class SteppingClockTest : public RuntimeTest, public ::testing::WithParamInterface<int> {
protected:
    // Whether this took less than a step of the clock would make of it.
    template <typename Function>
    static bool isSoon(Function function)
    {
        const auto begin = std::chrono::steady_clock::now();
        function();
        return std::chrono::steady_clock::now() - begin < std::chrono::hours(1);
    }

    SteppingClock _clock{GetParam()};
};

TEST_P(SteppingClockTest, leavesTimedWaitsAlone)
{
    Cond cond;
    cond.lock();
    EXPECT_FALSE(cond.timedWait(1));
    std::thread stepping([this] {
        TimerSleep(20);
        _clock.step();
    });
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(cond.timedWait(100));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(100));
    EXPECT_TRUE(isSoon([&] { EXPECT_FALSE(cond.timedWait(10)); }));
    cond.unlock();
    stepping.join();
}

TEST_P(SteppingClockTest, leavesTimersAlone)
{
    class Counting : public Timer {
    public:
        void timeout() override { ++count; }
        int count = 0;
    };
    Counting timer;
    timer.start(10, nullptr);
    const auto await = [&timer](int count) {
        while (timer.count < count)
            Thread::CurrentThread()->processEvents(true);
    };
    EXPECT_TRUE(isSoon([&] { await(1); }));
    _clock.step();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(isSoon([&] { await(6); })) << "not held up";
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(40)) << "not all at once";
    timer.stop();
}

INSTANTIATE_TEST_SUITE_P(Days, SteppingClockTest, ::testing::Values(-1, 1),
                         [](const auto& clock) { return std::string(clock.param < 0 ? "back" : "forward"); });

}  // namespace
