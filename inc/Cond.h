// A condition variable with a lock of its own.
#ifndef MURN_COND_H
#define MURN_COND_H

#include "Export.h"

namespace Murn {

class GlibCond;

/// A condition that carries its own lock, which is not recursive. Wait for a change like this:
///
///     cond.lock();
///     while (!ready)
///         cond.wait();
///     cond.unlock();
///
/// Stands on GLib's `GMutex` and `GCond`; a waiter may wake up without a signal, hence the loop.
class MURN_API Cond {
public:
    /// A condition that nobody waits for, with its lock free. Without memory for them the process ends through a fatal
    /// check.
    Cond();
    /// Nobody may hold the lock or wait any more.
    ~Cond();

    Cond(const Cond&) = delete;
    Cond& operator=(const Cond&) = delete;

    /// Any thread. Wakes one thread that waits, if there is one.
    /// @return true
    bool signal();
    /// Any thread. Wakes every thread that waits.
    /// @return true
    bool broadcast();
    /// The thread that holds the lock only. Gives the lock up, waits for a signal, and takes the lock again.
    /// @return true
    bool wait();
    /// Any thread that does not hold the lock. Waits for the lock and takes it.
    /// @return true
    bool lock();
    /// The thread that holds the lock only. Frees it.
    /// @return true
    bool unlock();
    /// The thread that holds the lock only. Waits like wait(), but no longer than a time measured by the monotonic
    /// clock (`g_cond_wait_until`).
    /// @param timeoutMs  the limit in milliseconds. 0 means without limit, on purpose: it is wait() and not a poll.
    ///                   A negative value is a limit that has passed already.
    /// @return true when signalled, false when the limit passed
    bool timedWait(int timeoutMs);

private:
    GlibCond* _impl;  // owned
};

}  // namespace Murn

#endif
