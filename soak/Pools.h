// Activity: pools of several sizes come, work and go.
#ifndef SOAK_POOLS_H
#define SOAK_POOLS_H

#include "Activity.h"

class Pools : public Activity {
public:
    const char* name() const override { return "pools"; }
    void live(Round& round, Dice& dice) override;
};

#endif
