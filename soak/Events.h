// Activity: objects that come, go and move while many threads post to them.
#ifndef SOAK_EVENTS_H
#define SOAK_EVENTS_H

#include "Activity.h"

class Events : public Activity {
public:
    const char* name() const override { return "events"; }
    void live(Round& round, Dice& dice) override;
};

#endif
