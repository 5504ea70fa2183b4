// A point in time as a date and a time of day in UTC.
#ifndef MURN_DATE_TIME_H
#define MURN_DATE_TIME_H

#include <cstdint>

#include "Export.h"

struct _GDateTime;

namespace Murn {

/// A date and time of day in UTC, from the year 1 to the year 9999, to the microsecond. Stands on `GDateTime`.
///
/// Values that GLib refuses, such as month 13 or a year beyond 9999, are not checked: the object then holds no
/// date-time, and whatever is done with it, its copying and its destruction included, is a GLib usage error, which GLib
/// logs as critical in its own domain. So check what came from outside first. One thread at a time, not locked.
class MURN_API DateTime {
public:
    /// Now, to the microsecond (`g_date_time_new_now_utc`).
    DateTime();
    /// `g_date_time_new_from_unix_utc`.
    /// @param unixSeconds  seconds since 1970-01-01 00:00:00 UTC; negative for earlier
    explicit DateTime(long unixSeconds);
    /// `g_date_time_new_utc`.
    /// @param year     1 to 9999
    /// @param month    1 to 12
    /// @param day      1 to the month's last
    /// @param hour     0 to 23
    /// @param minute   0 to 59
    /// @param seconds  from 0 to below 60, with a fraction, of which whole microseconds are kept
    DateTime(int year, int month, int day, int hour, int minute, double seconds);
    /// Shares the value, which never changes (`g_date_time_ref`).
    DateTime(const DateTime& other);
    DateTime& operator=(const DateTime& other);
    virtual ~DateTime();

    /// @return whole seconds since 1970-01-01 00:00:00 UTC; a fraction is dropped (`g_date_time_to_unix`)
    std::int64_t toUNIX() const;
    /// How far away another date-time is. The other one is taken in whole seconds, without its fraction, while this one
    /// keeps its microseconds, on purpose: so of two taken a moment apart, within one second, the result is the first
    /// one's microseconds, negated.
    /// @return microseconds; positive when `other` is later
    std::int64_t differenceWith(DateTime& other) const;

private:
    _GDateTime* _dateTime;  // one reference; null when GLib refused the values
};

}  // namespace Murn

#endif
