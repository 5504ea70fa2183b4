// Locks and conditions.
//
//   lock and unlock        Mutex                          against GRecMutex
//   scoped lock            MutexLocker                    against GRecMutex
//   tryLock                Mutex                          against GRecMutex
//   signal to nobody       Cond                           against GCond
//   hand a turn to another thread and back, Cond          against GMutex and GCond
#include <glib.h>
#include <kxPAL/Cond.h>
#include <kxPAL/Mutex.h>
#include <kxPAL/MutexLocker.h>

#include <thread>

#include "Ratio.h"

namespace {

void libraryLock(benchmark::State& state)
{
    Murn::Mutex mutex;
    long count = 0;
    for (auto _ : state) {
        mutex.lock();
        benchmark::DoNotOptimize(++count);
        mutex.unlock();
    }
    require(count == static_cast<long>(state.iterations()), "every round was counted");
}

void libraryLocker(benchmark::State& state)
{
    Murn::Mutex mutex;
    long count = 0;
    for (auto _ : state) {
        const Murn::MutexLocker locker(&mutex);
        benchmark::DoNotOptimize(++count);
    }
    require(count == static_cast<long>(state.iterations()), "every round was counted");
}

void floorLock(benchmark::State& state)
{
    GRecMutex mutex;
    g_rec_mutex_init(&mutex);
    long count = 0;
    for (auto _ : state) {
        g_rec_mutex_lock(&mutex);
        benchmark::DoNotOptimize(++count);
        g_rec_mutex_unlock(&mutex);
    }
    require(count == static_cast<long>(state.iterations()), "every round was counted");
    g_rec_mutex_clear(&mutex);
}

void libraryTryLock(benchmark::State& state)
{
    Murn::Mutex mutex;
    bool all = true;
    for (auto _ : state) {
        all = mutex.tryLock() && all;
        mutex.unlock();
    }
    require(all, "a free mutex can be locked");
}

void floorTryLock(benchmark::State& state)
{
    GRecMutex mutex;
    g_rec_mutex_init(&mutex);
    bool all = true;
    for (auto _ : state) {
        all = g_rec_mutex_trylock(&mutex) == TRUE && all;
        g_rec_mutex_unlock(&mutex);
    }
    require(all, "a free mutex can be locked");
    g_rec_mutex_clear(&mutex);
}

void librarySignal(benchmark::State& state)
{
    Murn::Cond cond;
    bool all = true;
    for (auto _ : state)
        all = cond.signal() && all;
    require(all, "a signal succeeds");
}

void floorSignal(benchmark::State& state)
{
    GCond cond;
    g_cond_init(&cond);
    for (auto _ : state) {
        g_cond_signal(&cond);
        benchmark::ClobberMemory();
    }
    g_cond_clear(&cond);
}

/// GMutex and GCond with the operations of Cond.
class BareCond {
public:
    BareCond()
    {
        g_mutex_init(&_mutex);
        g_cond_init(&_cond);
    }
    ~BareCond()
    {
        g_cond_clear(&_cond);
        g_mutex_clear(&_mutex);
    }

    BareCond(const BareCond&) = delete;
    BareCond& operator=(const BareCond&) = delete;

    void lock() { g_mutex_lock(&_mutex); }
    void unlock() { g_mutex_unlock(&_mutex); }
    void wait() { g_cond_wait(&_cond, &_mutex); }
    void signal() { g_cond_signal(&_cond); }

private:
    GMutex _mutex;
    GCond _cond;
};

enum class Turn { Here, There, Over };

template <typename Condition>
void awaitTurn(Condition& cond, const Turn& turn, Turn otherThan)
{
    while (turn == otherThan)
        cond.wait();
}

// Two threads hand a turn to each other.
template <typename Condition>
void handOver(benchmark::State& state)
{
    Condition cond;
    Turn turn = Turn::Here;
    long answers = 0;
    std::thread other([&] {
        cond.lock();
        for (;;) {
            awaitTurn(cond, turn, Turn::Here);
            if (turn == Turn::Over)
                break;
            ++answers;
            turn = Turn::Here;
            cond.signal();
        }
        cond.unlock();
    });

    for (auto _ : state) {
        cond.lock();
        turn = Turn::There;
        cond.signal();
        awaitTurn(cond, turn, Turn::There);
        cond.unlock();
    }

    cond.lock();
    turn = Turn::Over;
    cond.signal();
    cond.unlock();
    other.join();
    require(answers == static_cast<long>(state.iterations()), "every turn was answered");
}

}  // namespace

int main(int argc, char** argv)
{
    RatioTable table;
    table.compare("Mutex: lock and unlock", libraryLock, floorLock);
    table.compare("MutexLocker: lock and unlock", libraryLocker, floorLock);
    table.compare("Mutex: tryLock and unlock", libraryTryLock, floorTryLock);
    table.compare("Cond: signal to nobody", librarySignal, floorSignal);
    table.compare("Cond: hand a turn over and back", handOver<Murn::Cond>, handOver<BareCond>, RatioTable::Clock::Wall);
    return table.run(argc, argv);
}
