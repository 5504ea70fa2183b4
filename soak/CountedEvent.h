// Events that are counted from their birth to their end.
#ifndef SOAK_COUNTED_EVENT_H
#define SOAK_COUNTED_EVENT_H

#include <kxPAL/Event.h>

#include <atomic>
#include <cstdint>

/// What became of events. Any thread.
struct EventCounts {
    std::atomic<std::uint64_t> made{0};
    std::atomic<std::uint64_t> gone{0};
    std::atomic<std::uint64_t> handled{0};
    std::atomic<std::uint64_t> toDiscard{0};  ///< Those of which it is known that they come too late.
};

/// An event with a number, in the order in which its poster posted to its receiver.
class CountedEvent : public Murn::Event {
public:
    CountedEvent(unsigned int type, EventCounts& counts, unsigned int whichPoster, std::uint64_t whichNumber)
        : Event(type, nullptr), poster(whichPoster), number(whichNumber), _counts(counts)
    {
        ++_counts.made;
    }
    ~CountedEvent() override { ++_counts.gone; }

    const unsigned int poster;
    const std::uint64_t number;

private:
    EventCounts& _counts;
};

#endif
