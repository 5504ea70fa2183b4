// Activity: timers fire, are stopped, restarted and deleted.
#ifndef SOAK_TIMERS_H
#define SOAK_TIMERS_H

#include "Activity.h"

class Timers : public Activity {
public:
    const char* name() const override { return "timers"; }
    void live(Round& round, Dice& dice) override;
};

#endif
