// A stopwatch in microseconds, and the time of day that it reads.
#ifndef MURN_KX_CLOCK_H
#define MURN_KX_CLOCK_H

#include <cstdint>

#include "Export.h"

/// Any thread. The time of day (`gettimeofday`), which follows changes of the system time: not for measuring across
/// them.
/// @return microseconds since 1970-01-01 00:00:00 UTC
MURN_API std::uint64_t getNowTime();

/// A stopwatch on the time of day. All clocks of a process count from one origin, the moment when the first of them
/// needed the current time. One thread at a time, not locked; two threads that use their first clocks at the same
/// moment may each set the origin, and the later one stays.
///
///     kxClock clock;
///     clock.start();
///     work();
///     clock.stop();
///     report(clock.elapsed());
///
/// A system time that is set back between two readings makes an elapsed time wrap to a huge one, as unsigned numbers
/// do.
class MURN_API kxClock {
public:
    /// A stopped clock, which has measured 0.
    kxClock();
    // Part of the library, where programs that were built with it look for it.
    ~kxClock();  // NOLINT(performance-trivially-destructible)

    /// Starts measuring, anew if the clock runs.
    /// @return microseconds since the origin
    std::uint64_t start();
    /// Stops measuring. A stopped clock takes this moment as its end too; one that was never started has then measured
    /// the time since the origin.
    /// @return microseconds since the origin
    std::uint64_t stop();
    /// @return microseconds from start to stop, or until now while the clock runs
    std::uint64_t elapsed() const;

private:
    std::uint64_t _start;  // of the last start(), since the origin
    std::uint64_t _stop;   // of the last stop(), since the origin
    bool _running;
};

#endif
