// The stopwatch and the time of day, on a clock of the test's own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/kxClock.h>
#include <sys/time.h>

#include <cstring>
#include <type_traits>
#include <utility>

#include "InterposeLibc.h"
#include "ThreadGroup.h"

namespace {

using ::testing::AllOf;
using ::testing::Ge;
using ::testing::Le;

static_assert(!std::is_polymorphic<kxClock>::value, "no virtual operations");
static_assert(sizeof(kxClock) == 24, "two times and a flag");
static_assert(std::is_same<decltype(std::declval<kxClock&>().elapsed()), std::uint64_t>::value, "64 bits, unsigned");
static_assert(std::is_same<decltype(getNowTime()), std::uint64_t>::value, "64 bits, unsigned");

template <typename Field>
Field fieldAt(const kxClock& clock, std::size_t offset)
{
    Field field;
    std::memcpy(&field, reinterpret_cast<const char*>(&clock) + offset, sizeof field);
    return field;
}

/// The time of day as the test has it. The process's origin is set before, wherever the tests begin.
class kxClockTest : public ::testing::Test {
protected:
    kxClockTest()
        : _now(1700000000 * million + 250000), _replaced(interpose::gettimeofday, [this](auto*, timeval* now, void*) {
              ++_readings;
              now->tv_sec = static_cast<time_t>(_now / million);
              now->tv_usec = static_cast<suseconds_t>(_now % million);
              return 0;
          })
    {
        kxClock clock;
        _origin = _now - clock.start();
    }

    static constexpr std::uint64_t million = 1000000;

    std::uint64_t _now;
    std::uint64_t _origin = 0;
    int _readings = 0;

private:
    Interposed<int(timeval*, void*)> _replaced;
};

TEST_F(kxClockTest, nowIsTheTimeOfDayInMicroseconds)
{
    EXPECT_EQ(getNowTime(), 1700000000250000U);
    _now = 5;
    EXPECT_EQ(getNowTime(), 5U);
}

TEST_F(kxClockTest, aFreshClockHasMeasuredNothing)
{
    const kxClock clock;
    _readings = 0;
    _now += million;
    EXPECT_EQ(clock.elapsed(), 0U);
    EXPECT_EQ(_readings, 0);
    EXPECT_EQ(fieldAt<std::uint64_t>(clock, 0), 0U);
    EXPECT_EQ(fieldAt<std::uint64_t>(clock, 8), 0U);
    EXPECT_FALSE(fieldAt<bool>(clock, 16));
}

TEST_F(kxClockTest, measuresFromStartToStop)
{
    kxClock clock;
    _now += 10;
    const std::uint64_t started = clock.start();
    EXPECT_EQ(started, _now - _origin);
    EXPECT_EQ(fieldAt<std::uint64_t>(clock, 0), started);
    EXPECT_TRUE(fieldAt<bool>(clock, 16));
    _now += 123;
    const std::uint64_t stopped = clock.stop();
    EXPECT_EQ(stopped, started + 123);
    EXPECT_EQ(fieldAt<std::uint64_t>(clock, 8), stopped);
    EXPECT_FALSE(fieldAt<bool>(clock, 16));

    _readings = 0;
    _now += million;
    EXPECT_EQ(clock.elapsed(), 123U);
    EXPECT_EQ(_readings, 0) << "a stopped clock reads no time";
}

TEST_F(kxClockTest, tellsTheTimeUntilNowWhileItRuns)
{
    kxClock clock;
    clock.start();
    EXPECT_EQ(clock.elapsed(), 0U);
    _now += 5;
    EXPECT_EQ(clock.elapsed(), 5U);
    _now += 5;
    EXPECT_EQ(clock.elapsed(), 10U);
}

TEST_F(kxClockTest, startsAnewWhileItRuns)
{
    kxClock clock;
    clock.start();
    _now += 100;
    clock.start();
    _now += 7;
    EXPECT_EQ(clock.elapsed(), 7U);
    clock.stop();
    EXPECT_EQ(clock.elapsed(), 7U);
}

TEST_F(kxClockTest, takesALaterStopAsItsEnd)
{
    kxClock clock;
    clock.start();
    _now += 3;
    clock.stop();
    _now += 4;
    clock.stop();
    EXPECT_EQ(clock.elapsed(), 7U);
}

TEST_F(kxClockTest, measuresFromTheOriginWhenItWasOnlyStopped)
{
    kxClock clock;
    _now += 42;
    EXPECT_EQ(clock.stop(), _now - _origin);
    EXPECT_EQ(clock.elapsed(), _now - _origin);
}

TEST_F(kxClockTest, countsFromOneOriginForAllClocks)
{
    kxClock one;
    kxClock two;
    const std::uint64_t first = one.start();
    _now += 9;
    EXPECT_EQ(two.start(), first + 9);
}

TEST_F(kxClockTest, wrapsAcrossAStepBackwards)
{
    kxClock clock;
    clock.start();
    _now -= 2;
    EXPECT_EQ(clock.elapsed(), UINT64_MAX - 1);
    clock.stop();
    EXPECT_EQ(clock.elapsed(), UINT64_MAX - 1);
}

TEST(kxClock, readsTheSystemsTimeOfDay)
{
    timeval before;
    timeval after;
    ASSERT_EQ(::gettimeofday(&before, nullptr), 0);
    const std::uint64_t now = getNowTime();
    ASSERT_EQ(::gettimeofday(&after, nullptr), 0);
    const auto microseconds = [](const timeval& time) {
        return static_cast<std::uint64_t>(time.tv_sec) * 1000000 + static_cast<std::uint64_t>(time.tv_usec);
    };
    EXPECT_THAT(now, AllOf(Ge(microseconds(before)), Le(microseconds(after))));
}

/// In a process of its own, where no clock has asked for the time yet.
void expectOriginAtTheFirst(std::uint64_t (*use)(kxClock&), std::uint64_t second)
{
    std::uint64_t now = 1000;
    Interposed replaced(interpose::gettimeofday, [&](auto*, timeval* time, void*) {
        *time = {0, static_cast<suseconds_t>(now)};
        ++now;  // the origin is read first, then the current time
        return 0;
    });
    kxClock clock;
    const bool measured = use(clock) == 1 && clock.elapsed() == second;
    std::_Exit(measured ? 0 : 1);
}

TEST(kxClockOrigin, isSetByTheFirstStart)
{
    EXPECT_EXIT(expectOriginAtTheFirst([](kxClock& clock) { return clock.start(); }, 1), ::testing::ExitedWithCode(0),
                "");
}

TEST(kxClockOrigin, isSetByTheFirstStop)
{
    EXPECT_EXIT(expectOriginAtTheFirst([](kxClock& clock) { return clock.stop(); }, 1), ::testing::ExitedWithCode(0),
                "");
}

TEST(kxClockOrigin, maySafelyBeSetByManyThreadsAtOnce)
{
    ThreadGroup threads(8, [](int) {
        kxClock clock;
        clock.start();
        clock.stop();
    });
    threads.join();
    kxClock clock;
    const std::uint64_t started = clock.start();
    EXPECT_LE(started, clock.stop());
}

}  // namespace
