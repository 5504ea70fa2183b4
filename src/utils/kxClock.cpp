// A stopwatch in microseconds, and the time of day that it reads.
#include "kxClock.h"

#include <sys/time.h>

#include <atomic>

namespace {

// The origin of all clocks, set when first needed and never again. There is no lock, on purpose: of two threads that
// both find it unset the later one wins.
std::atomic<bool> isOriginSet(false);
std::atomic<std::uint64_t> origin(0);

std::uint64_t sinceOrigin()
{
    if (!isOriginSet.load(std::memory_order_acquire)) {
        origin.store(getNowTime(), std::memory_order_relaxed);
        isOriginSet.store(true, std::memory_order_release);
    }
    return getNowTime() - origin.load(std::memory_order_relaxed);
}

}  // namespace

std::uint64_t getNowTime()
{
    constexpr std::uint64_t microsecondsPerSecond = 1000000;
    timeval now = {0, 0};
    ::gettimeofday(&now, nullptr);  // cannot fail with a good pointer
    return static_cast<std::uint64_t>(now.tv_sec) * microsecondsPerSecond + static_cast<std::uint64_t>(now.tv_usec);
}

kxClock::kxClock() : _start(0), _stop(0), _running(false) {}

kxClock::~kxClock() = default;

std::uint64_t kxClock::start()
{
    _running = true;
    _start = sinceOrigin();
    return _start;
}

std::uint64_t kxClock::stop()
{
    _running = false;
    _stop = sinceOrigin();
    return _stop;
}

std::uint64_t kxClock::elapsed() const
{
    return (_running ? sinceOrigin() : _stop) - _start;
}
