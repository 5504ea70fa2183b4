// Activity: threads that the library did not start register, live and leave.
#ifndef SOAK_FOREIGN_THREADS_H
#define SOAK_FOREIGN_THREADS_H

#include "Activity.h"

class ForeignThreads : public Activity {
public:
    const char* name() const override { return "foreign threads"; }
    void live(Round& round, Dice& dice) override;
};

#endif
