// Activity: groups are joined and left, and datagrams go to them.
#ifndef SOAK_MULTICAST_H
#define SOAK_MULTICAST_H

#include "Activity.h"

/// Needs a network of the process's own, with two interfaces.
class Multicast : public Activity {
public:
    const char* name() const override { return "multicast"; }
    void live(Round& round, Dice& dice) override;
};

#endif
