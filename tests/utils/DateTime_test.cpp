// Points in time in UTC.
#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/DateTime.h>

#include <cstring>
#include <ctime>
#include <memory>
#include <type_traits>
#include <utility>

#include "InterposeGlib.h"
#include "LogCapture.h"

namespace {

using Murn::DateTime;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Le;

constexpr std::int64_t second = 1000000;  // microseconds

static_assert(std::has_virtual_destructor<DateTime>::value, "a virtual destructor");
static_assert(sizeof(DateTime) == 2 * sizeof(void*), "one field");
static_assert(std::is_same<decltype(std::declval<DateTime&>().toUNIX()), std::int64_t>::value, "64 bits, signed");

GDateTime* heldBy(const DateTime& dateTime)
{
    GDateTime* held = nullptr;
    std::memcpy(&held, reinterpret_cast<const char*>(&dateTime) + sizeof(void*), sizeof held);
    return held;
}

int microsecondsOf(const DateTime& dateTime)
{
    return g_date_time_get_microsecond(heldBy(dateTime));
}

TEST(DateTime, isNowByDefault)
{
    const std::int64_t before = g_get_real_time();
    const DateTime now;
    const std::int64_t after = g_get_real_time();
    EXPECT_THAT(now.toUNIX() * second + microsecondsOf(now), AllOf(Ge(before), Le(after)));
}

TEST(DateTime, isInUtcWhateverTheZone)
{
    const DateTime now;
    const DateTime fromSeconds(0);
    const DateTime fromDate(1970, 1, 1, 0, 0, 0.0);
    for (const DateTime* const dateTime : {&now, &fromSeconds, &fromDate})
        EXPECT_EQ(g_date_time_get_utc_offset(heldBy(*dateTime)), 0);
    EXPECT_EQ(fromDate.toUNIX(), 0);
}

TEST(DateTime, comesFromUnixSecondsAndGoesBack)
{
    for (const long seconds : {0L, 1L, -1L, 946684800L, 2147483648L, -62135596800L, 253402300799L})
        EXPECT_EQ(DateTime(seconds).toUNIX(), seconds);
}

TEST(DateTime, takesADateAndATimeOfDay)
{
    EXPECT_EQ(DateTime(2000, 1, 1, 0, 0, 0.0).toUNIX(), 946684800);
    EXPECT_EQ(DateTime(2001, 2, 3, 4, 5, 6.0).toUNIX(), 981173106);
    EXPECT_EQ(DateTime(1969, 12, 31, 23, 59, 59.0).toUNIX(), -1);
}

TEST(DateTime, knowsTheFirstAndTheLastYear)
{
    EXPECT_EQ(DateTime(1, 1, 1, 0, 0, 0.0).toUNIX(), -62135596800);
    EXPECT_EQ(DateTime(9999, 12, 31, 23, 59, 59.0).toUNIX(), 253402300799);
}

TEST(DateTime, knowsLeapDays)
{
    EXPECT_EQ(DateTime(2000, 2, 29, 0, 0, 0.0).toUNIX(), 951782400);
    EXPECT_EQ(DateTime(2024, 2, 29, 0, 0, 0.0).toUNIX() + 86400, DateTime(2024, 3, 1, 0, 0, 0.0).toUNIX());
    EXPECT_EQ(DateTime(2023, 2, 28, 0, 0, 0.0).toUNIX() + 86400, DateTime(2023, 3, 1, 0, 0, 0.0).toUNIX());
}

TEST(DateTime, dropsTheFractionOnTheWayToUnixSeconds)
{
    const DateTime dateTime(2000, 1, 1, 0, 0, 0.75);
    EXPECT_EQ(dateTime.toUNIX(), 946684800);
    EXPECT_EQ(microsecondsOf(dateTime), 750000);
    // Down, also before the epoch.
    EXPECT_EQ(DateTime(1969, 12, 31, 23, 59, 58.5).toUNIX(), -2);
}

TEST(DateTime, differsPositivelyFromALaterOne)
{
    DateTime early(2000, 1, 1, 0, 0, 0.0);
    DateTime late(2000, 1, 1, 0, 1, 0.0);
    EXPECT_EQ(early.differenceWith(late), 60 * second);
    EXPECT_EQ(late.differenceWith(early), -60 * second);
    EXPECT_EQ(early.differenceWith(early), 0);
}

TEST(DateTime, dropsTheFractionOfTheOtherOneOnly)
{
    DateTime whole(2000, 1, 1, 0, 0, 0.0);
    DateTime half(2000, 1, 1, 0, 0, 0.5);
    EXPECT_EQ(whole.differenceWith(half), 0);
    EXPECT_EQ(half.differenceWith(whole), -second / 2);
    EXPECT_EQ(half.differenceWith(half), -second / 2);
    EXPECT_EQ(microsecondsOf(half), 500000) << "only for the comparison";
}

TEST(DateTime, differsByItsOwnMicrosecondsFromAMinuteLater)
{
    DateTime now;
    DateTime minuteLater(now.toUNIX() + 60);
    EXPECT_EQ(now.differenceWith(minuteLater), 60 * second - microsecondsOf(now));
}

TEST(DateTime, differsByCenturies)
{
    DateTime first(1, 1, 1, 0, 0, 0.0);
    DateTime last(9999, 12, 31, 23, 59, 59.0);
    EXPECT_EQ(first.differenceWith(last), (253402300799 + 62135596800) * second);
}

TEST(DateTime, sharesItsValueWithItsCopies)
{
    auto original = std::make_unique<DateTime>(2000, 1, 1, 0, 0, 0.25);
    const DateTime copy(*original);
    EXPECT_EQ(heldBy(copy), heldBy(*original));
    original.reset();
    EXPECT_EQ(copy.toUNIX(), 946684800);
    EXPECT_EQ(microsecondsOf(copy), 250000);
}

TEST(DateTime, isAssigned)
{
    DateTime target(0);
    const DateTime source(2000, 1, 1, 0, 0, 0.0);
    EXPECT_EQ(&(target = source), &target);
    EXPECT_EQ(target.toUNIX(), 946684800);
    const DateTime& itself = target;
    target = itself;
    EXPECT_EQ(target.toUNIX(), 946684800);
}

TEST(DateTime, releasesEachReferenceItTakes)
{
    int taken = 0;
    int released = 0;
    Interposed refs(interpose::g_date_time_ref, [&](auto* real, GDateTime* dateTime) {
        ++taken;
        return real(dateTime);
    });
    Interposed unrefs(interpose::g_date_time_unref, [&](auto* real, GDateTime* dateTime) {
        ++released;
        real(dateTime);
    });
    {
        DateTime one(0);  // the constructor's own reference
        EXPECT_EQ(taken, 0);
        DateTime two(one);
        EXPECT_EQ(taken, 1);
        one = two;
        EXPECT_EQ(taken, 2);
        EXPECT_EQ(released, 1);
        static_cast<void>(one.differenceWith(two));  // the temporary's
        EXPECT_EQ(released, 2);
    }
    EXPECT_EQ(released, 4);
    EXPECT_EQ(taken, 2);
}

/// What GLib says about the use of an object without a date-time.
TEST(DateTime, leavesInvalidValuesToGlib)
{
    LogCapture log;
    {
        DateTime good(0);
        for (DateTime bad :
             {DateTime(2023, 2, 29, 0, 0, 0.0), DateTime(2000, 13, 1, 0, 0, 0.0), DateTime(2000, 0, 1, 0, 0, 0.0),
              DateTime(2000, 1, 32, 0, 0, 0.0), DateTime(2000, 1, 1, 24, 0, 0.0), DateTime(2000, 1, 1, 0, 60, 0.0),
              DateTime(2000, 1, 1, 0, 0, 60.0), DateTime(0, 1, 1, 0, 0, 0.0), DateTime(10000, 1, 1, 0, 0, 0.0),
              DateTime(253402300800L)}) {
            EXPECT_EQ(heldBy(bad), nullptr);
            EXPECT_EQ(bad.toUNIX(), 0);
            EXPECT_EQ(bad.differenceWith(good), 0);
            EXPECT_EQ(good.differenceWith(bad), 0);
        }
    }
    const std::vector<LogMessage> messages = log.messages();
    EXPECT_FALSE(messages.empty());
    for (const LogMessage& message : messages) {
        EXPECT_EQ(message.domain, "GLib");
        EXPECT_THAT(message.text, HasSubstr("assertion"));
    }
}

TEST(DateTime, isSilentAboutInvalidValuesUntilTheyAreUsed)
{
    LogCapture log;
    {
        const DateTime bad(2023, 2, 29, 0, 0, 0.0);
        EXPECT_THAT(log.texts(), IsEmpty());
    }
    EXPECT_EQ(log.texts().size(), 1U) << "the release of what is not there";
}

}  // namespace
