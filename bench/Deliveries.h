// Waiting for what other threads are to do a number of times.
#ifndef KXPAL_BENCH_DELIVERIES_H
#define KXPAL_BENCH_DELIVERIES_H

#include <atomic>

/// Counts deliveries, and lets another thread wait for them.
class Deliveries {
public:
    void add()
    {
        const long count = _count.fetch_add(1, std::memory_order_release) + 1;
        if (count == _awaited.load(std::memory_order_acquire))
            _count.notify_one();
    }

    void expect(long more) { _awaited.store(_count.load(std::memory_order_relaxed) + more, std::memory_order_release); }

    void await()
    {
        const long awaited = _awaited.load(std::memory_order_relaxed);
        for (long count = _count.load(std::memory_order_acquire); count < awaited;
             count = _count.load(std::memory_order_acquire))
            _count.wait(count, std::memory_order_acquire);
    }

    long count() const { return _count.load(std::memory_order_acquire); }

private:
    std::atomic<long> _count{0};
    std::atomic<long> _awaited{-1};
};

#endif
