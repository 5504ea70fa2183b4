// Timers: periodic expiry on a chosen thread's loop, stop and restart from anywhere in it, and the blocking sleep.
#include <kxPAL/Timer.h>

#include <chrono>

#include "InterposeGlib.h"
#include "InterposeLibc.h"
#include "Runtime.h"
#include "VirtualTable.h"
#include "Wait.h"

using ::testing::Each;
using ::testing::ElementsAre;

using Murn::Thread;
using Murn::Timer;

namespace {

/// Longer than any test runs.
constexpr unsigned int neverMs = 3'600'000;

class TimerTest : public RuntimeTest {
protected:
    /// Runs the main thread's loop until the predicate holds.
    template <typename Predicate>
    static void loopUntil(Predicate predicate)
    {
        while (!predicate())
            mainThread()->processEvents(true);
    }

    /// Runs the main thread's loop for long enough that a timer of 0 ms would fire several times.
    static void loopForAWhile()
    {
        int firings = 0;
        FunctionTimer other([&] { ++firings; });
        other.start(2, nullptr);
        loopUntil([&] { return firings == 5; });
    }
};

TEST_F(TimerTest, hasItsFieldsWhereHostsExpectThem)
{
    Timer timer;
    EXPECT_EQ(sizeof(Timer), 24U);
    EXPECT_EQ(fieldAt<void*>(&timer, 8), nullptr);
    EXPECT_NE(fieldAt<void*>(&timer, 16), nullptr);  // the mutex, which nothing locks

    timer.start(neverMs, nullptr);
    EXPECT_NE(fieldAt<void*>(&timer, 8), nullptr);
}

TEST_F(TimerTest, hasItsVirtualOperationsInTheSlotsThatHostsExpect)
{
    constexpr std::size_t deletingDestructorSlot = 1;
    constexpr std::size_t timeoutSlot = 2;
    int firings = 0;
    auto* const timer = new FunctionTimer([&] { ++firings; });

    callAddress(addressInSlot(timer, timeoutSlot), timer);
    EXPECT_EQ(firings, 1);
    callAddress(addressInSlot(timer, deletingDestructorSlot), timer);
}

TEST_F(TimerTest, runsFromStartToStop)
{
    Timer timer;
    EXPECT_FALSE(timer.isRunning());

    timer.start(neverMs, nullptr);
    EXPECT_TRUE(timer.isRunning());

    timer.stop();
    EXPECT_FALSE(timer.isRunning());

    timer.stop();  // does nothing
    EXPECT_FALSE(timer.isRunning());
}

TEST_F(TimerTest, firesAgainAndAgainAtItsInterval)
{
    constexpr int intervalMs = 10;
    constexpr int count = 5;
    int firings = 0;
    FunctionTimer timer([&] {
        EXPECT_EQ(Thread::CurrentThread(), mainThread());
        ++firings;
    });
    const auto begin = std::chrono::steady_clock::now();

    timer.start(intervalMs, nullptr);
    loopUntil([&] { return firings == count; });

    // Never early; how late it may be is the machine's business. GLib's clock ticks in whole microseconds.
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(count * intervalMs - 1));
    EXPECT_TRUE(timer.isRunning());
}

TEST_F(TimerTest, firesNoMoreOnceStopped)
{
    int firings = 0;
    FunctionTimer timer([&] { ++firings; });
    timer.start(0, nullptr);
    loopUntil([&] { return firings == 1; });

    timer.stop();

    loopForAWhile();
    EXPECT_EQ(firings, 1);
}

TEST_F(TimerTest, firesNoMoreOnceDestroyed)
{
    int firings = 0;
    {
        FunctionTimer timer([&] { ++firings; });
        timer.start(0, nullptr);
    }

    loopForAWhile();

    EXPECT_EQ(firings, 0);
}

TEST_F(TimerTest, mayBeStoppedWhenItFires)
{
    int firings = 0;
    FunctionTimer timer([&] {
        ++firings;
        timer.stop();
        EXPECT_FALSE(timer.isRunning());
    });
    timer.start(0, nullptr);

    loopForAWhile();

    EXPECT_EQ(firings, 1);
}

TEST_F(TimerTest, mayBeRestartedWhenItFires)
{
    int firings = 0;
    FunctionTimer timer([&] {
        ++firings;
        timer.start(firings < 3 ? 1 : neverMs, nullptr);
    });
    timer.start(0, nullptr);

    loopUntil([&] { return firings == 3; });

    loopForAWhile();
    EXPECT_EQ(firings, 3);  // the last interval holds
    EXPECT_TRUE(timer.isRunning());
}

TEST_F(TimerTest, mayBeDeletedWhenItFires)
{
    int firings = 0;
    FunctionTimer* timer = nullptr;
    timer = new FunctionTimer([&] {
        ++firings;
        delete timer;
    });
    timer->start(0, nullptr);

    loopForAWhile();

    EXPECT_EQ(firings, 1);
}

TEST_F(TimerTest, replacesItsIntervalWhenStartedAgain)
{
    int firings = 0;
    FunctionTimer timer([&] { ++firings; });
    timer.start(0, nullptr);

    timer.start(neverMs, nullptr);
    loopForAWhile();
    EXPECT_EQ(firings, 0);
    EXPECT_TRUE(timer.isRunning());

    timer.start(0, nullptr);
    loopUntil([&] { return firings == 3; });
}

TEST_F(TimerTest, replacesItsThreadWhenStartedAgain)
{
    Worker worker;
    std::atomic<Thread*> fired{nullptr};
    FunctionTimer timer([&] {
        timer.stop();
        fired = Thread::CurrentThread();
    });
    const auto fires = [&] {
        mainThread()->processEvents(false);
        return fired != nullptr;
    };

    timer.start(neverMs, nullptr);
    timer.start(0, worker.thread());
    EXPECT_TRUE(waitUntil(fires));
    EXPECT_EQ(fired, worker.thread());

    fired = nullptr;
    worker.run([&] {
        timer.start(neverMs, nullptr);
        timer.start(0, mainThread());
    });
    EXPECT_TRUE(waitUntil(fires));
    EXPECT_EQ(fired, mainThread());
}

TEST_F(TimerTest, replacesItsSourceWhenStartedAgain)
{
    interpose::CallLog calls;
    Timer timer;
    const Interposed attaching(interpose::g_source_attach, calls.noting("attach"));
    const Interposed destroying(interpose::g_source_destroy, calls.noting("destroy"));
    const Interposed releasing(interpose::g_source_unref, calls.noting("unref"));

    timer.start(neverMs, nullptr);
    timer.start(neverMs, nullptr);
    timer.stop();

    EXPECT_THAT(calls.calls(), ElementsAre("attach", "destroy", "unref", "attach", "destroy", "unref"));
}

TEST_F(TimerTest, countsAsStoppedBeforeItsSourceGoes)
{
    Timer timer;
    timer.start(neverMs, nullptr);
    std::vector<bool> running;
    const Interposed destroying(interpose::g_source_destroy, [&](auto real, GSource* source) {
        running.push_back(timer.isRunning());
        real(source);
    });

    timer.stop();

    EXPECT_THAT(running, ElementsAre(false));
}

TEST_F(TimerTest, firesOnTheLoopOfTheCallingThreadByDefault)
{
    Worker worker;
    std::promise<Thread*> fired;
    std::unique_ptr<FunctionTimer> timer;

    worker.run([&] {
        timer = std::make_unique<FunctionTimer>([&] {
            timer->stop();
            fired.set_value(Thread::CurrentThread());
        });
        timer->start(0, nullptr);
    });

    EXPECT_EQ(fired.get_future().get(), worker.thread());
}

TEST_F(TimerTest, firesOnTheLoopOfTheThreadThatItIsGiven)
{
    Worker worker;
    std::promise<Thread*> fired;
    FunctionTimer timer([&] {
        timer.stop();
        fired.set_value(Thread::CurrentThread());
    });

    worker.run([&] { timer.start(neverMs, mainThread()); });  // to be replaced at once
    worker.run([] {});
    timer.stop();
    EXPECT_FALSE(timer.isRunning());

    Thread thread;  // its loop runs later
    thread.setJoinable(true);
    timer.start(0, &thread);
    thread.start();
    EXPECT_EQ(fired.get_future().get(), &thread);
    thread.stop();
    thread.join();
}

TEST_F(TimerTest, mayBeStoppedOnAnotherThreadBeforeItsStartReturns)
{
    Worker worker;
    std::atomic<int> timeouts{0};
    FunctionTimer* timer = nullptr;
    FunctionTimer stopping([&] {
        timer->stop();
        ++timeouts;
    });
    timer = &stopping;
    {
        const Interposed attaching(interpose::g_source_attach, [&](auto* real, auto... arguments) {
            const guint id = real(arguments...);
            EXPECT_TRUE(waitUntil([&] { return timeouts != 0; }));
            return id;
        });
        stopping.start(0, worker.thread());
    }
    worker.run([] {});

    EXPECT_FALSE(stopping.isRunning());
    EXPECT_EQ(timeouts, 1);
}

TEST_F(TimerTest, mayBeDeletedOnAnotherThreadBeforeItsStartReturns)
{
    Worker worker;
    std::atomic<int> timeouts{0};
    FunctionTimer* timer = nullptr;
    timer = new FunctionTimer([&] {
        delete timer;
        ++timeouts;
    });
    {
        const Interposed attaching(interpose::g_source_attach, [&](auto* real, auto... arguments) {
            const guint id = real(arguments...);
            EXPECT_TRUE(waitUntil([&] { return timeouts != 0; }));
            return id;
        });
        timer->start(0, worker.thread());
    }
    worker.run([] {});

    EXPECT_EQ(timeouts, 1);
}

TEST_F(TimerTest, takesTurnsWithOtherTimersOfItsLoop)
{
    int fast = 0;
    int slow = 0;
    FunctionTimer fastTimer([&] { ++fast; });
    FunctionTimer slowTimer([&] { ++slow; });

    fastTimer.start(1, nullptr);
    slowTimer.start(3, nullptr);

    loopUntil([&] { return fast >= 5 && slow >= 5; });
}

TEST_F(TimerTest, logsAMessageWhenNobodyOverridesWhatItDoes)
{
    Timer timer;
    timer.start(0, nullptr);

    loopUntil([&] { return logged().size() >= 2; });

    EXPECT_THAT(logged(),
                Each(IsLogged("PAL", messageLevel, "A timer fired in the wind @ " + addressText(&timer) + " !")));
}

// The sleep

TEST_F(TimerTest, sleepsForTheMillisecondsGiven)
{
    std::vector<useconds_t> sleeps;
    const Interposed noted(interpose::usleep, [&](auto, useconds_t microseconds) {
        sleeps.push_back(microseconds);
        return 0;
    });

    EXPECT_EQ(TimerSleep(0), 0);
    EXPECT_EQ(TimerSleep(1), 0);
    EXPECT_EQ(TimerSleep(4'294'967), 0);

    EXPECT_THAT(sleeps, ElementsAre(0U, 1'000U, 4'294'967'000U));
}

TEST_F(TimerTest, wrapsTheMicrosecondsOfALongSleep)
{
    std::vector<useconds_t> sleeps;
    const Interposed noted(interpose::usleep, [&](auto, useconds_t microseconds) {
        sleeps.push_back(microseconds);
        return 0;
    });

    TimerSleep(4'294'968);
    TimerSleep(4'294'967'295U);

    EXPECT_THAT(sleeps, ElementsAre(704U, 4'294'966'296U));
}

TEST_F(TimerTest, returnsWhatTheSystemsSleepReturns)
{
    const Interposed failing(interpose::usleep, interpose::failsWith(EINTR));

    EXPECT_EQ(TimerSleep(1), -1);
    EXPECT_EQ(errno, EINTR);
}

TEST_F(TimerTest, reallySleeps)
{
    const auto begin = std::chrono::steady_clock::now();

    EXPECT_EQ(TimerSleep(5), 0);

    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(5));
}

}  // namespace
