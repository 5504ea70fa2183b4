// The time in which all activities go on at once.
#ifndef SOAK_ROUND_H
#define SOAK_ROUND_H

#include <atomic>
#include <chrono>
#include <functional>

#include "Ledger.h"

/// One round of all activities. Any thread.
class Round {
public:
    using Clock = std::chrono::steady_clock;

    /// @param ledger    must outlive the round
    /// @param duration  after which it is over
    /// @param share     the part of one processor that the process may take
    Round(Ledger& ledger, Clock::duration duration, double share);

    Ledger& ledger() { return _ledger; }
    /// @return whether the activities are to come to an end
    bool isOver() const;
    /// Waits a moment, and as long as the process has taken more than its share. Called between any two steps.
    void rest();
    /// Waits until it holds. A wait that takes minutes is a hang: it says so and ends the process, which leaves a core
    /// where the system keeps them.
    /// @param what  is waited for
    void await(const char* what, const std::function<bool()>& holds);

private:
    bool isAhead() const;

    Ledger& _ledger;
    const Clock::time_point _start;
    const Clock::time_point _end;
    const double _share;
    const double _cpuAtStart;  // seconds
};

#endif
