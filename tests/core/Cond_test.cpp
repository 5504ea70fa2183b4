// The condition variable with its own lock.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <kxPAL/Cond.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "FatalTest.h"
#include "InterposeGlib.h"
#include "Sanitizers.h"
#include "ThreadGroup.h"
#include "Wait.h"

namespace {

using Murn::Cond;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

// Holds a condition's lock for a scope.
class Locked {
public:
    explicit Locked(Cond& cond) : _cond(cond) { EXPECT_TRUE(_cond.lock()); }
    ~Locked() { EXPECT_TRUE(_cond.unlock()); }

    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

private:
    Cond& _cond;
};

// Threads that wait on a condition until they are let go.
class Waiters {
public:
    Waiters(Cond& cond, int count) : _cond(cond), _threads(count, [this](int) { wait(); })
    {
        // The lock is free again only when the last of them is inside wait().
        EXPECT_TRUE(waitUntil([&] {
            const Locked locked(_cond);
            return _waiting == count;
        }));
    }

    // The lock is held. Allows so many of them to go, once they wake up.
    void allow(int count) { _allowed += count; }

    int gone()
    {
        const Locked locked(_cond);
        return _gone;
    }

private:
    void wait()
    {
        const Locked locked(_cond);
        ++_waiting;
        while (_allowed == 0)
            EXPECT_TRUE(_cond.wait());
        --_allowed;
        ++_gone;
    }

    Cond& _cond;
    int _waiting = 0;  // these three are guarded by the condition's lock
    int _allowed = 0;
    int _gone = 0;
    ThreadGroup _threads;  // joined first
};

// Replaces what allocates the parts of a condition: allocations of these sizes fail.
class FailingAllocations {
public:
    explicit FailingAllocations(std::vector<std::size_t> sizes) : _sizes(std::move(sizes)) {}

private:
    bool fails(std::size_t size) const { return std::find(_sizes.begin(), _sizes.end(), size) != _sizes.end(); }

    const std::vector<std::size_t> _sizes;
    Interposed<gpointer(gsize)> _malloc{interpose::g_try_malloc,
                                        [this](auto* real, gsize size) { return fails(size) ? nullptr : real(size); }};
    // What GLib's macro calls instead when it is not optimised.
    Interposed<gpointer(gsize, gsize)> _mallocN{interpose::g_try_malloc_n, [this](auto* real, gsize count, gsize size) {
                                                    return fails(count * size) ? nullptr : real(count, size);
                                                }};
};

}  // namespace

TEST(Cond, signalWakesAWaiter)
{
    Cond cond;
    Waiters waiters(cond, 1);
    const Locked locked(cond);
    waiters.allow(1);
    EXPECT_TRUE(cond.signal());
}

TEST(Cond, eachSignalWakesAnotherWaiter)
{
    Cond cond;
    Waiters waiters(cond, 3);
    for (int gone = 1; gone <= 3; ++gone) {
        {
            const Locked locked(cond);
            waiters.allow(1);
            EXPECT_TRUE(cond.signal());
        }
        EXPECT_TRUE(waitUntil([&] { return waiters.gone() == gone; }));
    }
}

TEST(Cond, broadcastWakesEveryWaiter)
{
    Cond cond;
    Waiters waiters(cond, 4);
    const Locked locked(cond);
    waiters.allow(4);
    EXPECT_TRUE(cond.broadcast());
}

TEST(Cond, signalAndBroadcastNeedNoWaiterAndNoLock)
{
    Cond cond;
    EXPECT_TRUE(cond.signal());
    EXPECT_TRUE(cond.broadcast());
}

TEST(Cond, signalAndBroadcastAreGlibsOwn)
{
    interpose::CallLog log;
    const Interposed signalled(interpose::g_cond_signal, log.noting("signal"));
    const Interposed broadcast(interpose::g_cond_broadcast, log.noting("broadcast"));
    Cond cond;
    cond.signal();
    EXPECT_THAT(log.calls(), ElementsAre("signal"));
    cond.broadcast();
    EXPECT_THAT(log.calls(), ElementsAre("signal", "broadcast"));
}

TEST(Cond, lockLetsOneThreadInAtATime)
{
    constexpr int threads = 4;
    constexpr int roundsEach = 5000;
    Cond cond;
    int count = 0;  // guarded by the condition's lock
    ThreadGroup(threads, [&](int) {
        for (int round = 0; round < roundsEach; ++round) {
            const Locked locked(cond);
            const int before = count;
            if (round % 100 == 0)
                std::this_thread::yield();
            count = before + 1;
        }
    }).join();
    EXPECT_EQ(threads * roundsEach, count);
}

TEST(Cond, timedWaitOfZeroWaitsWithoutLimit)
{
    interpose::CallLog log;
    const Interposed wait(interpose::g_cond_wait, log.noting("g_cond_wait"));
    const Interposed limited(interpose::g_cond_wait_until, log.noting("g_cond_wait_until"));
    Cond cond;
    bool ready = false;         // guarded by the condition's lock
    std::vector<bool> results;  // the waiting thread's, until it is joined
    std::thread waiting([&] {
        const Locked locked(cond);
        while (!ready)
            results.push_back(cond.timedWait(0));
    });
    EXPECT_TRUE(waitUntil([&log] { return !log.calls().empty(); }));
    {
        const Locked locked(cond);
        ready = true;
        cond.signal();
    }
    waiting.join();
    EXPECT_THAT(results, Not(IsEmpty()));
    EXPECT_THAT(results, Each(true));
    EXPECT_THAT(log.calls(), Each("g_cond_wait"));
}

TEST(Cond, timedWaitWithoutASignalEndsAfterItsLimit)
{
    Cond cond;
    const Locked locked(cond);
    for (const int limitMs : {1, 20}) {
        const gint64 before = g_get_monotonic_time();
        EXPECT_FALSE(cond.timedWait(limitMs));
        EXPECT_GE(g_get_monotonic_time() - before, limitMs * 1000);
    }
}

TEST(Cond, timedWaitReturnsTrueWhenSignalled)
{
    Cond cond;
    std::atomic<bool> waits{false};
    bool ready = false;  // guarded by the condition's lock
    std::thread waiting([&] {
        const Locked locked(cond);
        waits = true;
        while (!ready)
            EXPECT_TRUE(cond.timedWait(INT_MAX));
    });
    EXPECT_TRUE(waitUntil([&waits] { return waits.load(); }));
    {
        const Locked locked(cond);
        ready = true;
        cond.signal();
    }
    waiting.join();
}

TEST(Cond, timedWaitOfANegativeTimeReturnsFalseAtOnce)
{
    Cond cond;
    const Locked locked(cond);
    EXPECT_FALSE(cond.timedWait(-1));
    if (KXPAL_TESTS_THREAD_SANITIZER == 1)
        GTEST_SKIP() << "the sanitizer's GLib takes no time before the start of the machine";
    EXPECT_FALSE(cond.timedWait(INT_MIN));
}

TEST(Cond, deadlineIsTheMonotonicTimePlusMilliseconds)
{
    // The product is made in 64 bits: in 32, the longest limits would lie in the past.
    const std::map<int, gint64> deadlines = {{1, 5'001'000},
                                             {250, 5'250'000},
                                             {3'000'000, 3'005'000'000},
                                             {INT_MAX, 5'000'000 + 2'147'483'647'000},
                                             {-1, 4'999'000},
                                             {INT_MIN, 5'000'000 - 2'147'483'648'000}};
    const Interposed clock(interpose::g_get_monotonic_time, [](auto*) { return gint64{5'000'000}; });
    Cond cond;
    const Locked locked(cond);
    for (const auto& entry : deadlines) {
        const int timeoutMs = entry.first;
        const gint64 deadline = entry.second;
        int calls = 0;
        const Interposed wait(interpose::g_cond_wait_until, [&](auto*, GCond*, GMutex*, gint64 end) {
            EXPECT_EQ(deadline, end) << timeoutMs << " ms";
            ++calls;
            return FALSE;
        });
        EXPECT_FALSE(cond.timedWait(timeoutMs));
        EXPECT_EQ(1, calls);
    }
}

TEST(Cond, timedWaitReportsWhatGlibReports)
{
    Cond cond;
    const Locked locked(cond);
    for (const bool signalled : {true, false}) {
        const Interposed wait(interpose::g_cond_wait_until,
                              [signalled](auto*, auto...) { return signalled ? TRUE : FALSE; });
        EXPECT_EQ(signalled, cond.timedWait(1));
        // A limit in the past is handed on as well.
        EXPECT_EQ(signalled, cond.timedWait(-1));
    }
}

TEST(Cond, initialisesItsParts)
{
    // Memory as it may come from the heap; a condition or mutex left like that would be out of order.
    std::vector<std::pair<const unsigned char*, std::size_t>> parts;
    const auto used = [&parts](void* memory, std::size_t size) {
        std::memset(memory, 0xff, size);
        parts.emplace_back(static_cast<const unsigned char*>(memory), size);
        return memory;
    };
    const Interposed malloc(interpose::g_try_malloc, [used](auto* real, gsize size) { return used(real(size), size); });
    const Interposed mallocN(interpose::g_try_malloc_n, [used](auto* real, gsize count, gsize size) {
        return used(real(count, size), count * size);
    });
    const Cond cond;
    ASSERT_EQ(2U, parts.size());
    for (const auto& [memory, size] : parts)
        EXPECT_THAT(std::vector<unsigned char>(memory, memory + size), Not(Each(0xff)));
}

TEST(Cond, endsItsPartsAfterForgettingThem)
{
    alignas(Cond) unsigned char storage[sizeof(Cond)];
    auto* const cond = new (storage) Cond;
    interpose::CallLog log;
    const auto notingFirst = [&](const char* name) {
        return [&, name](auto* real, auto* part) {
            void* impl = nullptr;
            std::memcpy(&impl, storage, sizeof impl);
            EXPECT_EQ(nullptr, impl);
            log.note(name);
            real(part);
        };
    };
    const Interposed condition(interpose::g_cond_clear, notingFirst("condition"));
    const Interposed mutex(interpose::g_mutex_clear, notingFirst("mutex"));
    cond->~Cond();
    EXPECT_THAT(log.calls(), ElementsAre("condition", "mutex"));
}

TEST(Cond, isOnePointerInSize)
{
    EXPECT_EQ(sizeof(void*), sizeof(Cond));
}

TEST(Cond, isExportedWithoutItsImplementation)
{
    EXPECT_NE(nullptr, ::dlsym(RTLD_DEFAULT, "_ZN4Murn4CondC1Ev"));
    EXPECT_EQ(nullptr, ::dlsym(RTLD_DEFAULT, "_ZN4Murn8GlibCondC1Ev"));
}

TEST(Cond, endsTheProcessWithoutACondition)
{
    EXPECT_FATAL(
        {
            const FailingAllocations failing({sizeof(GCond)});
            Cond cond;
        },
        "_cond", "src/core/Cond.cpp");
}

TEST(Cond, endsTheProcessWithoutAMutex)
{
    EXPECT_FATAL(
        {
            const FailingAllocations failing({sizeof(GMutex)});
            Cond cond;
        },
        "_tex", "src/core/Cond.cpp");
}

TEST(Cond, missesTheConditionFirst)
{
    const std::vector<std::size_t> both = {sizeof(GCond), sizeof(GMutex)};
    EXPECT_FATAL(
        {
            const FailingAllocations failing(both);
            Cond cond;
        },
        "_cond", "src/core/Cond.cpp");
}
