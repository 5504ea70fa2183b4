// Something that hosts do.
#ifndef SOAK_ACTIVITY_H
#define SOAK_ACTIVITY_H

#include "Dice.h"
#include "Round.h"

/// One of the things that go on at the same time. Each leaves nothing behind: what it has made in a round is gone at
/// the round's end.
class Activity {
public:
    Activity() = default;
    virtual ~Activity() = default;
    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;

    virtual const char* name() const = 0;
    /// Called once a round, on a thread of the activity's own that the library does not know. Goes on until the round
    /// is over, rests between its steps, and complains to the ledger of what does not add up.
    /// @param dice  for this activity in this round
    virtual void live(Round& round, Dice& dice) = 0;
};

#endif
