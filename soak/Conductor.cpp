// Leads the activities from round to round.
#include "Conductor.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

constexpr seconds shortestRound(2);
constexpr seconds longestRound(20);
constexpr minutes patience(5);  // with a round that does not end

std::size_t mostRounds(const Options& options)
{
    return static_cast<std::size_t>(options.minutes * 60) + 10;
}

double kibibytes(std::size_t count)
{
    return static_cast<double>(count);
}

}  // namespace

/// The thread of one activity in one round.
struct Conductor::Driver {
    Driver(Activity& lived, Round& round, std::uint64_t seed)
        : activity(lived), isDone(false), thread([this, &round, seed] {
              Dice dice(seed);
              activity.live(round, dice);
              isDone = true;
          })
    {
    }

    Activity& activity;
    std::atomic<bool> isDone;
    std::thread thread;
};

// What is in use between two rounds is the same to a few dozen bytes where the allocator keeps nothing for its threads,
// as under scripts/soak, and to some KiB where it does.
Conductor::Conductor(const Options& options, Activities activities, Ledger& ledger)
    : _options(options),
      _activities(std::move(activities)),
      _ledger(ledger),
      _start(Clock::now()),
      _said(0),
      _base(),
      _quiet(),
      _busy(),
      _quietHeap(mostRounds(options), 4, 0.0),
      _quietResident(mostRounds(options), 2048, 0.05),
      _busyResident(mostRounds(options), 4096, 0.05)
{
}

Conductor::Clock::duration Conductor::roundLength() const
{
    const auto part = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double, std::ratio<60>>(_options.minutes / 60));
    return std::clamp<Clock::duration>(part, shortestRound, longestRound);
}

void Conductor::run()
{
    Dice dice(_options.seed);
    const auto end = _start + std::chrono::duration_cast<Clock::duration>(
                                  std::chrono::duration<double, std::ratio<60>>(_options.minutes));
    do
        playRound(dice);
    while (Clock::now() < end && _ledger.complaints() == 0);
}

void Conductor::playRound(Dice& dice)
{
    const bool isFirst = _ledger.total(Figure::rounds) == 0;
    const Clock::duration length = roundLength();
    Round round(_ledger, length, _options.share);
    std::vector<std::unique_ptr<Driver>> drivers;
    drivers.reserve(_activities.size());
    for (const auto& activity : _activities)
        drivers.push_back(std::make_unique<Driver>(*activity, round, dice.seed()));
    const std::vector<Vitals> samples = watch(drivers, Clock::now() + length + patience);
    for (const auto& driver : drivers)
        driver->thread.join();

    std::vector<double> resident;
    resident.reserve(samples.size());
    for (const Vitals& sample : samples)
        resident.push_back(kibibytes(sample.residentKiB));
    _busyResident.add(Series::Median(resident));
    drivers.clear();
    settle(isFirst);
    _ledger.add(Figure::rounds);
    sayMinute();
}

// Waits until all activities have come to their ends. Returns what was measured meanwhile.
std::vector<Vitals> Conductor::watch(const std::vector<std::unique_ptr<Driver>>& drivers, Clock::time_point limit)
{
    std::vector<Vitals> samples;
    const auto isDone = [](const auto& driver) { return driver->isDone.load(); };
    for (int tick = 0; !std::all_of(drivers.begin(), drivers.end(), isDone); ++tick) {
        std::this_thread::sleep_for(milliseconds(20));
        if (tick % 50 == 49) {
            _busy = Vitals::Now();
            samples.push_back(_busy);
        }
        if (Clock::now() < limit)
            continue;
        for (const auto& driver : drivers) {
            if (!driver->isDone)
                _ledger.complain("the activity \"%s\" does not end", driver->activity.name());
        }
        std::abort();  // a core tells where
    }
    return samples;
}

// Between two rounds nothing is left of the last one. The system may take a moment over the end of a thread.
void Conductor::settle(bool isFirst)
{
    const Clock::time_point limit = Clock::now() + seconds(20);
    const auto isBack = [&] { return _quiet.descriptors == _base.descriptors && _quiet.threads == _base.threads; };
    do {
        std::this_thread::sleep_for(milliseconds(isFirst ? 500 : 10));
        _quiet = Vitals::Now();
    } while (!isFirst && !isBack() && Clock::now() < limit);
    if (isFirst)
        _base = _quiet;  // what libraries keep for good is there by now
    _ledger.same("descriptors after a round", _base.descriptors, _quiet.descriptors);
    _ledger.same("threads after a round", _base.threads, _quiet.threads);
    _quietHeap.add(kibibytes(_quiet.heapKiB));
    _quietResident.add(kibibytes(_quiet.residentKiB));
}

void Conductor::sayMinute()
{
    const auto passed = std::chrono::duration_cast<minutes>(Clock::now() - _start);
    if (passed == _said)
        return;
    _said = passed;
    std::printf("minute %3" PRId64 ": %" PRIu64 " connections, %" PRIu64 " MiB echoed, %" PRIu64 " events, %" PRIu64
                " threads, %" PRIu64 " units, %" PRIu64
                " fires; busy: %zu KiB resident, %zu descriptors, %zu threads; "
                "quiet: %zu KiB resident, %zu KiB heap, %zu descriptors, %zu threads\n",
                static_cast<std::int64_t>(passed.count()), _ledger.total(Figure::connections),
                _ledger.total(Figure::bytesEchoed) >> 20U, _ledger.total(Figure::eventsHandled),
                _ledger.total(Figure::threads), _ledger.total(Figure::poolUnits), _ledger.total(Figure::timerFires),
                _busy.residentKiB, _busy.descriptors, _busy.threads, _quiet.residentKiB, _quiet.heapKiB,
                _quiet.descriptors, _quiet.threads);
}

void Conductor::close()
{
    std::printf("\n");
    for (std::size_t index = 0; index < static_cast<std::size_t>(Figure::count); ++index) {
        const auto figure = static_cast<Figure>(index);
        std::printf("%-24s %14" PRIu64 "\n", nameOf(figure), _ledger.total(figure));
    }
    std::printf("\n%-24s %14s %14s %14s\n", "median, KiB", "second third", "last third", "may grow by");
    judge("heap between rounds", _quietHeap, true);
    judge("resident between rounds", _quietResident, !Vitals::AreSanitized());
    judge("resident in rounds", _busyResident, !Vitals::AreSanitized());
    std::printf("%-24s %14zu %14zu %14d  %s\n", "descriptors", _base.descriptors, _quiet.descriptors, 0, "each round");
    std::printf("%-24s %14zu %14zu %14d  %s\n", "threads", _base.threads, _quiet.threads, 0, "each round");
}

void Conductor::judge(const char* what, const Series& series, bool counts)
{
    const char* verdict = "flat";
    if (!counts)
        verdict = "the sanitizer's own, not judged";
    else if (!series.isLongEnough())
        verdict = "too short a run to tell";
    else if (!series.isFlat())
        verdict = "GROWS";
    std::printf("%-24s %14.0f %14.0f %14.0f  %s\n", what, series.before(), series.after(), series.tolerance(), verdict);
    if (counts && series.isLongEnough() && !series.isFlat())
        _ledger.complain("%s: it grows from %.0f to %.0f KiB", what, series.before(), series.after());
}
