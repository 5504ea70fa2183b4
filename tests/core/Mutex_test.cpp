// The recursive lock and its scoped guard.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <kxPAL/Mutex.h>
#include <kxPAL/MutexLocker.h>

#include <atomic>
#include <cstring>
#include <future>
#include <memory>
#include <thread>

#include "InterposeGlib.h"
#include "ThreadGroup.h"
#include "Wait.h"

namespace {

using Murn::Mutex;
using Murn::MutexLocker;
using ::testing::ElementsAre;

// Whether another thread could lock the mutex just now.
bool isFree(Mutex& mutex)
{
    bool locked = false;
    std::thread([&] {
        locked = mutex.tryLock();
        if (locked)
            mutex.unlock();
    }).join();
    return locked;
}

// A replacement that notes the calls of the thread that makes it, and only those.
auto notingOwn(interpose::CallLog& log, const char* name)
{
    return [&log, name, thread = std::this_thread::get_id()](auto* real, auto... arguments) {
        if (std::this_thread::get_id() == thread)
            log.note(name);
        return real(arguments...);
    };
}

}  // namespace

TEST(Mutex, keepsOtherThreadsOutWhileLocked)
{
    Mutex mutex;
    EXPECT_TRUE(isFree(mutex));
    mutex.lock();
    EXPECT_FALSE(isFree(mutex));
    mutex.unlock();
    EXPECT_TRUE(isFree(mutex));
}

TEST(Mutex, isFreeAfterAsManyUnlocksAsLocks)
{
    Mutex mutex;
    for (int i = 0; i < 3; ++i)
        mutex.lock();
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(isFree(mutex)) << "after " << i << " unlocks";
        mutex.unlock();
    }
    EXPECT_TRUE(isFree(mutex));
}

TEST(Mutex, tryLockSucceedsForTheHolderAndCounts)
{
    Mutex mutex;
    EXPECT_TRUE(mutex.tryLock());
    EXPECT_TRUE(mutex.tryLock());
    mutex.lock();
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(isFree(mutex)) << "after " << i << " unlocks";
        mutex.unlock();
    }
    EXPECT_TRUE(isFree(mutex));
}

TEST(Mutex, tryLockReportsWhatGlibReports)
{
    Mutex mutex;
    {
        const Interposed refused(interpose::g_rec_mutex_trylock, [](auto*, auto) { return FALSE; });
        EXPECT_FALSE(mutex.tryLock());
    }
    {
        const Interposed granted(interpose::g_rec_mutex_trylock, [](auto*, auto) { return TRUE; });
        EXPECT_TRUE(mutex.tryLock());
    }
}

TEST(Mutex, lockWaitsForTheHolder)
{
    Mutex mutex;
    interpose::CallLog log;
    const Interposed noted(interpose::g_rec_mutex_lock, log.noting("lock"));
    std::atomic<bool> released{false};
    mutex.lock();
    std::thread waiting([&] {
        mutex.lock();
        EXPECT_TRUE(released);
        mutex.unlock();
    });
    EXPECT_TRUE(waitUntil([&log] { return log.calls().size() == 2; }));
    released = true;
    mutex.unlock();
    waiting.join();
}

TEST(Mutex, letsOneThreadInAtATime)
{
    constexpr int threads = 4;
    constexpr int roundsEach = 5000;
    Mutex mutex;
    int count = 0;  // guarded by mutex
    ThreadGroup(threads, [&](int) {
        for (int round = 0; round < roundsEach; ++round) {
            mutex.lock();
            const int before = count;
            if (round % 100 == 0)
                std::this_thread::yield();
            count = before + 1;
            mutex.unlock();
        }
    }).join();
    EXPECT_EQ(threads * roundsEach, count);
}

TEST(Mutex, destructorWaitsForAnotherHolder)
{
    auto owned = std::make_unique<Mutex>();
    Mutex* const mutex = owned.get();
    interpose::CallLog log;
    std::atomic<bool> released{false};
    std::promise<void> held;
    std::thread holder([&log, &released, &held, mutex] {
        mutex->lock();
        held.set_value();
        EXPECT_TRUE(waitUntil([&log] { return !log.calls().empty(); }));
        released = true;
        mutex->unlock();
    });
    held.get_future().wait();

    const Interposed lock(interpose::g_rec_mutex_lock, notingOwn(log, "lock"));
    const Interposed unlock(interpose::g_rec_mutex_unlock, notingOwn(log, "unlock"));
    const Interposed clear(interpose::g_rec_mutex_clear, [&](auto* real, GRecMutex* itself) {
        log.note("clear");
        EXPECT_TRUE(released) << "freed under its holder";
        real(itself);
    });
    owned.reset();
    holder.join();
    EXPECT_THAT(log.calls(), ElementsAre("lock", "unlock", "clear"));
}

TEST(MutexLocker, holdsTheMutexForItsScope)
{
    Mutex mutex;
    {
        const MutexLocker locker(&mutex);
        EXPECT_FALSE(isFree(mutex));
    }
    EXPECT_TRUE(isFree(mutex));
}

TEST(MutexLocker, nestsOnOneThread)
{
    Mutex mutex;
    {
        const MutexLocker outer(&mutex);
        {
            const MutexLocker inner(&mutex);
        }
        EXPECT_FALSE(isFree(mutex));
    }
    EXPECT_TRUE(isFree(mutex));
}

TEST(MutexLocker, isOnePointerToTheMutex)
{
    Mutex mutex;
    const MutexLocker locker(&mutex);
    ASSERT_EQ(sizeof(Mutex*), sizeof(MutexLocker));
    Mutex* guarded = nullptr;
    std::memcpy(&guarded, static_cast<const void*>(&locker), sizeof(MutexLocker));
    EXPECT_EQ(&mutex, guarded);
}
