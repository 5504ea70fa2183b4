// Periodic timers, and a sleep.
#ifndef MURN_TIMER_H
#define MURN_TIMER_H

#include "Export.h"
#include "Mutex.h"

namespace Murn {

class GlibTimer;
class Thread;

/// Calls timeout() again and again at a fixed interval, on the event loop of a thread, until it is stopped. A
/// timer that is to fire once calls stop() from timeout(). Stands on GLib's timeout source.
///
/// start(), stop() and the destructor belong on the thread whose loop runs the timer, or to a time when that loop
/// cannot dispatch it; no lock is taken. A stopped timer may be started from any one thread.
class MURN_API Timer {
public:
    /// A stopped timer.
    Timer();
    /// Stops the timer. Allowed within timeout().
    virtual ~Timer();

    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    /// Called at each expiry, on the thread whose loop runs the timer. It must not throw. This default logs a message,
    /// "A timer fired in the wind @ %p !", because somebody forgot to override it. It may stop, restart and delete the
    /// timer.
    virtual void timeout();

    /// Starts the timer, anew from zero if it runs.
    /// @param intervalMs  milliseconds between two expiries
    /// @param thread      the thread whose loop runs the timer; null for the calling one, which must be registered
    ///                    with the application then. On another thread the first timeout() may come before this
    ///                    returns; it may stop and delete the timer. One that runs already is not restarted from here.
    void start(unsigned int intervalMs, Thread* thread);
    /// Stops the timer: timeout() is not called any more. Does nothing to a stopped timer. Allowed within timeout().
    void stop();
    /// One thread at a time, not locked.
    /// @return whether the timer was started and not stopped
    bool isRunning() const;

private:
    GlibTimer* _impl;  // owned; null while stopped
    Mutex _mutex;      // part of the class's layout; nothing locks it
};

}  // namespace Murn

/// Any thread. Blocks the calling thread (`usleep`).
/// @param ms  milliseconds. The microseconds are formed in 32 bits on purpose, as `usleep` takes them, so a value
///            above 4294967 wraps around.
/// @return what `usleep` returns: 0, or -1 when a signal came in between
extern "C" MURN_API int TimerSleep(unsigned int ms);

#endif
