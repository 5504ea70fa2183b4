// Records in network byte order, date-times and a stopwatch.
#include <kxPAL/Buffer.h>
#include <kxPAL/DateTime.h>
#include <kxPAL/kxClock.h>

#include <cstdint>

int main()
{
    // [record]
    unsigned char record[7];
    Murn::Buffer buffer(record, sizeof record);
    buffer.write8(0, 3);            // a type
    buffer.write16(1, 0x1234);      // at an odd offset: 12 34
    buffer.write32(3, 0x01020304);  // 01 02 03 04
    unsigned int length = buffer.read32(3);
    // [end]

    // [dates]
    Murn::DateTime deadline(2000, 1, 1, 0, 0, 0.0);
    Murn::DateTime moment(1999, 12, 31, 23, 59, 59.25);
    std::int64_t left = moment.differenceWith(deadline);  // 750000: microseconds, positive as the deadline is later
    std::int64_t unixSeconds = deadline.toUNIX();         // 946684800
    // [end]

    // [clock]
    kxClock clock;
    clock.start();
    std::uint64_t sofar = clock.elapsed();  // microseconds; the clock runs on
    clock.stop();
    std::uint64_t total = clock.elapsed();  // stays the same from now on
    // [end]

    const bool holds = length == 0x01020304 && left == 750000 && unixSeconds == 946684800 && sofar <= total;
    return holds ? 0 : 1;
}
