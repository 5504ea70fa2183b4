// Fuzz target: date-times against the calendar's own arithmetic, and stopwatches on a clock that jumps.
#include <glib.h>
#include <kxPAL/DateTime.h>
#include <kxPAL/kxClock.h>

#include <cmath>

#include "Input.h"
#include "InterposeLibc.h"

namespace {

using Murn::DateTime;

constexpr std::int64_t microsecondsPerSecond = 1000000;
constexpr std::int64_t earliest = -62135596800;  // 0001-01-01 00:00:00
constexpr std::int64_t latest = 253402300799;    // 9999-12-31 23:59:59

bool isLeapYear(int year)
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

int daysOf(int year, int month)
{
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return days[month - 1] + (month == 2 && isLeapYear(year) ? 1 : 0);
}

// Days since 1970-01-01, counted year by year in blocks of four hundred.
std::int64_t daysSinceEpoch(int year, int month, int day)
{
    std::int64_t days = day - 1;
    for (int before = 1; before < month; ++before)
        days += daysOf(year, before);
    const int years = year - 1;
    days += years * 365 + years / 4 - years / 100 + years / 400;
    return days - 719162;
}

/// Counts GLib's complaints, which stand for values that it refuses.
class Complaints {
public:
    Complaints() : _previous(g_log_set_default_handler(count, this)) {}
    ~Complaints() { g_log_set_default_handler(_previous, nullptr); }
    Complaints(const Complaints&) = delete;
    Complaints& operator=(const Complaints&) = delete;

    int count() const { return _count; }

private:
    static void count(const gchar*, GLogLevelFlags, const gchar*, gpointer self)
    {
        ++static_cast<Complaints*>(self)->_count;
    }

    int _count = 0;
    GLogFunc _previous;
};

void checkDifference(const DateTime& from, std::int64_t fromMicroseconds, Input& input)
{
    const std::int64_t seconds =
        earliest +
        static_cast<std::int64_t>(input.number<std::uint64_t>() % static_cast<std::uint64_t>(latest - earliest + 1));
    DateTime to(seconds);
    FUZZ_CHECK(to.toUNIX() == seconds);
    FUZZ_CHECK(from.differenceWith(to) == seconds * microsecondsPerSecond - fromMicroseconds);
}

void checkUnix(Input& input)
{
    const bool atEnd = input.flag();
    const long seconds = input.awkward(atEnd ? latest : earliest);
    const Complaints complaints;
    {
        const DateTime dateTime(seconds);
        if (seconds >= earliest && seconds <= latest) {
            FUZZ_CHECK(dateTime.toUNIX() == seconds);
            checkDifference(dateTime, seconds * microsecondsPerSecond, input);
            FUZZ_CHECK(complaints.count() == 0);
        }
    }
    // An object that holds no date-time is a usage error, which GLib tells of when it ends.
    FUZZ_CHECK(complaints.count() == (seconds >= earliest && seconds <= latest ? 0 : 1));
}

// Values around the ends of their ranges; what is not a number is no second at all.
double secondsFrom(Input& input)
{
    switch (input.upTo(3)) {
        case 0:
            return static_cast<double>(input.upTo(60));
        case 1:
            return static_cast<double>(input.number<std::uint32_t>() % 60000000) / 1e6;
        case 2:
            return std::nextafter(60.0, 0.0);
        default: {
            const double any = static_cast<double>(input.awkward(60)) / static_cast<double>(1 + input.byte());
            return std::isfinite(any) ? any : 0;
        }
    }
}

// Up to the limit, or anything.
int fromZero(Input& input, std::size_t limit)
{
    return input.flag() ? static_cast<int>(input.upTo(limit))
                        : static_cast<int>(input.awkward(static_cast<long>(limit)));
}

int fromOne(Input& input, std::size_t limit)
{
    return input.flag() ? 1 + static_cast<int>(input.upTo(limit - 1)) : fromZero(input, limit);
}

void checkCalendar(Input& input)
{
    const auto year = static_cast<int>(input.awkward(9999));
    const int month = fromOne(input, 12);
    const int day = fromOne(input, 31);
    const int hour = fromZero(input, 23);
    const int minute = fromZero(input, 59);
    const double seconds = secondsFrom(input);
    const bool isDate =
        year >= 1 && year <= 9999 && month >= 1 && month <= 12 && day >= 1 && day <= daysOf(year, month);
    const bool isTaken =
        isDate && hour >= 0 && hour <= 23 && minute >= 0 && minute <= 59 && seconds >= 0 && seconds < 60;

    const Complaints complaints;
    {
        const DateTime dateTime(year, month, day, hour, minute, seconds);
        if (isTaken) {
            const std::int64_t whole = daysSinceEpoch(year, month, day) * 86400 + hour * 3600 + minute * 60 +
                                       static_cast<std::int64_t>(seconds);
            DateTime copy(whole);
            copy = dateTime;
            FUZZ_CHECK(dateTime.toUNIX() == whole && copy.toUNIX() == whole);
            DateTime same(whole);
            // Whole microseconds of what a double can say of them.
            const std::int64_t fraction = -dateTime.differenceWith(same);
            FUZZ_CHECK(std::abs(static_cast<double>(fraction) - (seconds - std::floor(seconds)) * 1e6) <= 1.0);
            FUZZ_CHECK(fraction >= 0 && fraction < microsecondsPerSecond);
            FUZZ_CHECK(copy.differenceWith(copy) == -fraction);
            checkDifference(copy, whole * microsecondsPerSecond + fraction, input);
        }
    }
    FUZZ_CHECK(complaints.count() == (isTaken ? 0 : 1));
}

void checkClock(Input& input)
{
    timeval now{};
    const Interposed<int(timeval*, void*)> clock(interpose::gettimeofday, [&now](auto, timeval* result, void*) {
        *result = now;
        return 0;
    });
    const auto jump = [&] {
        now.tv_sec = static_cast<std::time_t>(input.number<std::int64_t>());
        now.tv_usec = static_cast<suseconds_t>(input.upTo(999999));
        const std::uint64_t micro =
            static_cast<std::uint64_t>(now.tv_sec) * 1000000 + static_cast<std::uint64_t>(now.tv_usec);
        FUZZ_CHECK(getNowTime() == micro);
        return micro;
    };

    jump();
    kxClock watch;
    FUZZ_CHECK(watch.elapsed() == 0);
    // A clock of its own tells the origin, which is set once for the whole process.
    const std::uint64_t origin = getNowTime() - kxClock(watch).start();
    std::uint64_t start = 0;
    std::uint64_t stop = 0;
    bool isRunning = false;
    while (!input.isEmpty()) {
        const std::uint8_t action = input.byte();
        const std::uint64_t at = jump() - origin;
        if (action % 3 == 0) {
            isRunning = true;
            start = at;
            FUZZ_CHECK(watch.start() == at);
        } else if (action % 3 == 1) {
            isRunning = false;
            stop = at;
            FUZZ_CHECK(watch.stop() == at);
        }
        FUZZ_CHECK(watch.elapsed() == (isRunning ? at : stop) - start);
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    switch (input.upTo(2)) {
        case 0:
            checkUnix(input);
            break;
        case 1:
            checkCalendar(input);
            break;
        default:
            checkClock(input);
            break;
    }
    return 0;
}
