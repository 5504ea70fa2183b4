// Step: records in network byte order, date-times and a stopwatch.
#include <kxPAL/Buffer.h>
#include <kxPAL/DateTime.h>
#include <kxPAL/kxClock.h>

#include <iterator>
#include <utility>

#include "Pump.h"
#include "Steps.h"

namespace {

void buildARecord(Findings& findings)
{
    unsigned char record[23] = {};
    Murn::Buffer buffer(record, sizeof record);
    buffer.write8(0, 1);
    buffer.write16(1, 0x1234);
    buffer.write32(3, 946684800);
    buffer.write128(7, {1, 2});
    say("A record of %zu bytes, with numbers of 8, 16, 32 and 128 bits at odd places.", std::size(record));
    findings.check(record[1] == 0x12 && record[2] == 0x34, "the most significant byte comes first");
    findings.check(buffer.read16(1) == 0x1234 && buffer.read32(3) == 946684800 && buffer.read128(7).second == 2,
                   "what was written is read back");
}

void compareDates(Findings& findings)
{
    Murn::DateTime leapDay(2000, 2, 29, 23, 59, 59.5);
    Murn::DateTime march(2000, 3, 1, 0, 0, 0.0);
    findings.check(leapDay.differenceWith(march) == 500000, "half a second before March 2000 is February 29th");
    Murn::DateTime now;
    Murn::DateTime nextMinute(now.toUNIX() + 60);
    const std::int64_t left = now.differenceWith(nextMinute);
    findings.check(left > 59000000 && left <= 60000000, "a date-time of now knows its microseconds");
}

void measureTheLoop(Findings& findings)
{
    kxClock clock;
    clock.start();
    bool turned = false;
    pumpUntil([&] { return std::exchange(turned, true); });
    clock.stop();
    const std::uint64_t elapsed = clock.elapsed();
    say("A stopwatch took %llu us for a turn of the main loop.", static_cast<unsigned long long>(elapsed));
    findings.check(clock.elapsed() == elapsed, "a stopped clock stands still");
}

Findings walk(Murn::Application&)
{
    Findings findings;
    buildARecord(findings);
    compareDates(findings);
    measureTheLoop(findings);
    return findings;
}

}  // namespace

const Step valuesStep = {"Building records, comparing dates, measuring time", walk};
