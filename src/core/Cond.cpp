// The condition variable with its own lock.
#include "Cond.h"

#include "Check.h"
#include "GlibCond.h"

namespace Murn {

GlibCond::GlibCond() : _tex(nullptr), _cond(g_try_new(GCond, 1)), _waiters(0)
{
    _tex = g_try_new(GMutex, 1);
    MURN_CHECK(_cond);
    MURN_CHECK(_tex);
    g_cond_init(_cond);
    g_mutex_init(_tex);
}

GlibCond::~GlibCond()
{
    g_cond_clear(_cond);
    g_free(_cond);
    _cond = nullptr;
    g_mutex_clear(_tex);
    g_free(_tex);
    _tex = nullptr;
}

bool GlibCond::signal()
{
    g_cond_signal(_cond);
    return true;
}

bool GlibCond::broadcast()
{
    g_cond_broadcast(_cond);
    return true;
}

bool GlibCond::wait()
{
    ++_waiters;
    g_cond_wait(_cond, _tex);
    --_waiters;
    return true;
}

bool GlibCond::lock()
{
    g_mutex_lock(_tex);
    return true;
}

bool GlibCond::unlock()
{
    g_mutex_unlock(_tex);
    return true;
}

bool GlibCond::timedWait(int timeoutMs)
{
    // Zero means no limit, on purpose: callers pass their "no time-out" through as it is, and nobody polls here.
    if (timeoutMs == 0)
        return wait();

    const gint64 deadline = g_get_monotonic_time() + static_cast<gint64>(timeoutMs) * 1000;
    ++_waiters;
    const bool signalled = g_cond_wait_until(_cond, _tex, deadline) == TRUE;
    --_waiters;
    return signalled;
}

Cond::Cond() : _impl(new GlibCond) {}

Cond::~Cond()
{
    GlibCond* const impl = _impl;
    _impl = nullptr;
    delete impl;
}

bool Cond::signal()
{
    return _impl->signal();
}

bool Cond::broadcast()
{
    return _impl->broadcast();
}

bool Cond::wait()
{
    return _impl->wait();
}

bool Cond::lock()
{
    return _impl->lock();
}

bool Cond::unlock()
{
    return _impl->unlock();
}

bool Cond::timedWait(int timeoutMs)
{
    return _impl->timedWait(timeoutMs);
}

}  // namespace Murn
