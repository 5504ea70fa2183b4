// What the echo server counts, and the line that tells it.
#ifndef ECHO_SERVER_STATISTICS_H
#define ECHO_SERVER_STATISTICS_H

#include <kxPAL/Timer.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>

/// What one thread has done so far. That thread alone writes, any thread may read. On cache lines of its own, so that
/// counting on one thread does not slow down the others.
struct alignas(64) Counters {
    std::atomic<std::uint64_t> bytesEchoed{0};
    std::atomic<std::uint64_t> connectionsEnded{0};
    std::atomic<std::uint64_t> connectionsDropped{0};  ///< of those ended: they took nothing for too long
};

/// Adds to a counter that no other thread writes, without the cost of an atomic addition.
inline void count(std::atomic<std::uint64_t>& counter, std::uint64_t amount = 1)
{
    counter.store(counter.load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
}

/// The sums over all threads at one moment.
struct Totals {
    std::uint64_t connections = 0;  ///< open or ended
    std::uint64_t ended = 0;
    std::uint64_t dropped = 0;
    std::uint64_t bytes = 0;
};

/// Prints a line of statistics every two seconds, on the loop of the thread that made it.
class StatisticsTimer : public Murn::Timer {
public:
    using Clock = std::chrono::steady_clock;

    /// @param takeTotals  asked for the sums each time
    /// @param afterwards  called after each line, for what else is due now and then
    StatisticsTimer(std::function<Totals()> takeTotals, std::function<void()> afterwards);

    void timeout() override;

private:
    std::function<Totals()> _takeTotals;
    std::function<void()> _afterwards;
    Clock::time_point _lastTime;
    std::uint64_t _lastBytes;
};

#endif
