// Activity: threads of all kinds come and go.
#ifndef SOAK_THREADS_H
#define SOAK_THREADS_H

#include <atomic>
#include <cstdint>

#include "Activity.h"

class Threads : public Activity {
public:
    const char* name() const override { return "threads"; }
    void live(Round& round, Dice& dice) override;

    /// @return threads that were handed to the collector and are not deleted yet
    static std::int64_t Uncollected();
};

#endif
