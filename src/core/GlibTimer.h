// The running half of a timer. Private.
#ifndef MURN_GLIB_TIMER_H
#define MURN_GLIB_TIMER_H

#include <glib.h>

namespace Murn {

class Thread;
class Timer;

/// A GLib timeout source that fires a Timer from its construction to its destruction.
class GlibTimer {
public:
    /// @param keeper  null, or where to keep the address of this object before the source can fire
    GlibTimer(Timer* timer, unsigned int intervalMs, Thread* thread, GlibTimer** keeper = nullptr);
    virtual ~GlibTimer();

    GlibTimer(const GlibTimer&) = delete;
    GlibTimer& operator=(const GlibTimer&) = delete;

    static gboolean Timer_Callback(void* data);

private:
    GSource* _source;  // one reference
    Timer* _timer;     // not owned
};

}  // namespace Murn

#endif
