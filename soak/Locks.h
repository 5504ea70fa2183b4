// Activity: threads wait for each other.
#ifndef SOAK_LOCKS_H
#define SOAK_LOCKS_H

#include "Activity.h"

class Locks : public Activity {
public:
    const char* name() const override { return "locks"; }
    void live(Round& round, Dice& dice) override;
};

#endif
