// A point in time as a date and a time of day in UTC.
#include "DateTime.h"

#include <glib.h>

#include <utility>

namespace Murn {

DateTime::DateTime() : _dateTime(g_date_time_new_now_utc()) {}

DateTime::DateTime(long unixSeconds) : _dateTime(g_date_time_new_from_unix_utc(unixSeconds)) {}

DateTime::DateTime(int year, int month, int day, int hour, int minute, double seconds)
    : _dateTime(g_date_time_new_utc(year, month, day, hour, minute, seconds))
{
}

DateTime::DateTime(const DateTime& other) : _dateTime(g_date_time_ref(other._dateTime)) {}

DateTime& DateTime::operator=(const DateTime& other)
{
    DateTime copy(other);
    std::swap(_dateTime, copy._dateTime);
    return *this;
}

DateTime::~DateTime()
{
    g_date_time_unref(_dateTime);
}

std::int64_t DateTime::toUNIX() const
{
    return g_date_time_to_unix(_dateTime);
}

std::int64_t DateTime::differenceWith(DateTime& other) const
{
    // Only the other one loses its fraction, on purpose: hosts count whole seconds from a precise moment.
    GDateTime* const wholeSeconds = g_date_time_new_from_unix_utc(other.toUNIX());
    const GTimeSpan difference = g_date_time_difference(wholeSeconds, _dateTime);
    g_date_time_unref(wholeSeconds);
    return difference;
}

}  // namespace Murn
