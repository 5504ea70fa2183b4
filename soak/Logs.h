// Activity: log handlers are installed and removed, and threads log meanwhile.
#ifndef SOAK_LOGS_H
#define SOAK_LOGS_H

#include "Activity.h"

class Logs : public Activity {
public:
    const char* name() const override { return "logs"; }
    void live(Round& round, Dice& dice) override;
};

#endif
