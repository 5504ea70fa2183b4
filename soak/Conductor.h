// Leads the activities from round to round.
#ifndef SOAK_CONDUCTOR_H
#define SOAK_CONDUCTOR_H

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include "Activity.h"
#include "Options.h"
#include "Series.h"
#include "Vitals.h"

/// Has all activities live at once for a number of rounds, measures meanwhile and between the rounds, and says each
/// minute how it goes. One thread at a time, not locked.
class Conductor {
public:
    using Clock = std::chrono::steady_clock;
    using Activities = std::vector<std::unique_ptr<Activity>>;

    Conductor(const Options& options, Activities activities, Ledger& ledger);

    /// Plays all rounds, unless something does not add up before.
    void run();
    /// Judges what was measured, and prints the closing table.
    void close();

private:
    struct Driver;

    Clock::duration roundLength() const;
    void playRound(Dice& dice);
    std::vector<Vitals> watch(const std::vector<std::unique_ptr<Driver>>& drivers, Clock::time_point limit);
    void settle(bool isFirst);
    void sayMinute();
    void judge(const char* what, const Series& series, bool counts);

    const Options _options;
    const Activities _activities;
    Ledger& _ledger;
    const Clock::time_point _start;
    std::chrono::minutes _said;
    Vitals _base;   // between two rounds
    Vitals _quiet;  // after the last round
    Vitals _busy;   // the last one within a round
    Series _quietHeap;
    Series _quietResident;
    Series _busyResident;
};

#endif
