// An object that many post to while it wanders.
#ifndef SOAK_WANDERER_H
#define SOAK_WANDERER_H

#include <kxPAL/Object.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "CountedEvent.h"
#include "LoopThread.h"
#include "Round.h"

/// Receives events from a number of posters, each in order, on the thread that it is bound to at the time.
class Wanderer : public Murn::Object {
public:
    enum : unsigned int {
        Plain = 100,  ///< Nothing but a number.
        Move,         ///< The object is to go to another loop.
        Die           ///< The object is to delete itself with events waiting, without waiting for them.
    };
    static constexpr unsigned int posters = 4;
    using Loops = std::vector<std::unique_ptr<LoopThread>>;

    /// @param living  counts the objects that there are
    Wanderer(Round& round, EventCounts& counts, Loops& loops, std::atomic<std::int64_t>& living);
    ~Wanderer() override;

    void event(Murn::Event* event) override;
    /// Any thread. What a poster has posted, to be compared when the object goes.
    void tellPosted(unsigned int poster, std::uint64_t count) { _posted[poster] = count; }

private:
    void moveOn(std::uint64_t number);
    void die();

    Round& _round;
    EventCounts& _counts;
    Loops& _loops;
    std::atomic<std::int64_t>& _living;
    std::array<std::uint64_t, posters> _handled{};
    std::array<std::atomic<std::uint64_t>, posters> _posted{};
};

#endif
