// Date-times and clocks.
//
//   now                    getNowTime               against gettimeofday
//   start and elapsed      kxClock                  against gettimeofday twice
//   now, as a date-time    DateTime                 against g_date_time_new_now_utc
//   difference             DateTime::differenceWith against g_date_time_difference and its temporary
#include <glib.h>
#include <kxPAL/DateTime.h>
#include <kxPAL/kxClock.h>
#include <sys/time.h>

#include "Ratio.h"

namespace {

constexpr std::int64_t minute = 60000000;

std::uint64_t systemNow()
{
    timeval now;
    ::gettimeofday(&now, nullptr);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000 + static_cast<std::uint64_t>(now.tv_usec);
}

void libraryNow(benchmark::State& state)
{
    std::uint64_t last = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(last = getNowTime());
    require(last != 0, "there was a time");
}

void floorNow(benchmark::State& state)
{
    std::uint64_t last = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(last = systemNow());
    require(last != 0, "there was a time");
}

void libraryClock(benchmark::State& state)
{
    kxClock clock;
    std::uint64_t last = 0;
    for (auto _ : state) {
        last = clock.start();
        benchmark::DoNotOptimize(clock.elapsed());
    }
    require(clock.stop() >= last, "time went by");
}

void floorClock(benchmark::State& state)
{
    std::uint64_t begin = 0;
    for (auto _ : state) {
        begin = systemNow();
        benchmark::DoNotOptimize(systemNow() - begin);
    }
    require(begin != 0, "time went by");
}

void libraryDateTime(benchmark::State& state)
{
    std::int64_t last = 0;
    for (auto _ : state) {
        const Murn::DateTime now;
        benchmark::DoNotOptimize(last = now.toUNIX());
    }
    require(last != 0, "there was a time");
}

void floorDateTime(benchmark::State& state)
{
    std::int64_t last = 0;
    for (auto _ : state) {
        GDateTime* const now = g_date_time_new_now_utc();
        benchmark::DoNotOptimize(last = g_date_time_to_unix(now));
        g_date_time_unref(now);
    }
    require(last != 0, "there was a time");
}

void libraryDifference(benchmark::State& state)
{
    Murn::DateTime begin(0);
    Murn::DateTime end(60);
    bool all = true;
    for (auto _ : state)
        all = begin.differenceWith(end) == minute && all;
    require(all, "the difference is a minute");
}

void floorDifference(benchmark::State& state)
{
    GDateTime* const begin = g_date_time_new_from_unix_utc(0);
    GDateTime* const end = g_date_time_new_from_unix_utc(60);
    bool all = true;
    for (auto _ : state) {
        GDateTime* const whole = g_date_time_new_from_unix_utc(g_date_time_to_unix(end));
        all = g_date_time_difference(whole, begin) == minute && all;
        g_date_time_unref(whole);
    }
    g_date_time_unref(end);
    g_date_time_unref(begin);
    require(all, "the difference is a minute");
}

}  // namespace

int main(int argc, char** argv)
{
    RatioTable table;
    table.compare("getNowTime", libraryNow, floorNow);
    table.compare("kxClock: start and elapsed", libraryClock, floorClock);
    table.compare("DateTime: now", libraryDateTime, floorDateTime);
    table.compare("DateTime: difference", libraryDifference, floorDifference);
    return table.run(argc, argv);
}
