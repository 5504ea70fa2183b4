// Activity: names are looked up, interfaces listed, and blocking sockets exchange a few words.
#ifndef SOAK_SOCKETS_H
#define SOAK_SOCKETS_H

#include "Activity.h"

class Sockets : public Activity {
public:
    const char* name() const override { return "sockets"; }
    void live(Round& round, Dice& dice) override;
};

#endif
