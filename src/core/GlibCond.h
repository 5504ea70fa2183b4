// The condition behind Cond. Private.
#ifndef MURN_GLIB_COND_H
#define MURN_GLIB_COND_H

#include <glib.h>

namespace Murn {

/// A GLib condition with the plain (not recursive) mutex that goes with it. See Cond for the operations.
class GlibCond {
public:
    GlibCond();
    ~GlibCond();

    GlibCond(const GlibCond&) = delete;
    GlibCond& operator=(const GlibCond&) = delete;

    bool signal();
    bool broadcast();
    bool wait();
    bool lock();
    bool unlock();
    bool timedWait(int timeoutMs);

private:
    GMutex* _tex;     // owned
    GCond* _cond;     // owned
    gint32 _waiters;  // threads inside wait() or timedWait(), guarded by _tex; kept for whoever debugs a host
};

}  // namespace Murn

#endif
