// What the echo server counts, and the line that tells it.
#include "Statistics.h"

#include <cinttypes>
#include <cstdio>
#include <utility>

namespace {

constexpr unsigned int intervalMs = 2000;

}  // namespace

StatisticsTimer::StatisticsTimer(std::function<Totals()> takeTotals, std::function<void()> afterwards)
    : _takeTotals(std::move(takeTotals)), _afterwards(std::move(afterwards)), _lastTime(Clock::now()), _lastBytes(0)
{
    start(intervalMs, nullptr);
}

void StatisticsTimer::timeout()
{
    const Totals totals = _takeTotals();
    const Clock::time_point now = Clock::now();
    const double seconds = std::chrono::duration<double>(now - _lastTime).count();
    const double megabytesPerSecond = static_cast<double>(totals.bytes - _lastBytes) / 1e6 / seconds;
    _lastTime = now;
    _lastBytes = totals.bytes;

    std::printf("Connections: %" PRIu64 " open, %" PRIu64 " so far, %" PRIu64 " dropped; echoed %" PRIu64
                " bytes, now %.2f MB/s.\n",
                totals.connections - totals.ended, totals.connections, totals.dropped, totals.bytes,
                megabytesPerSecond);
    _afterwards();
}
