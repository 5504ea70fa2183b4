// Periodic timers, and a sleep.
#include "Timer.h"

#include <glib.h>
#include <unistd.h>

#include "Application.h"
#include "GlibTimer.h"
#include "Logger.h"
#include "ThreadImpl.h"

namespace Murn {

GlibTimer::GlibTimer(Timer* timer, unsigned int intervalMs, Thread* thread, GlibTimer** keeper)
    : _source(g_timeout_source_new(intervalMs)), _timer(timer)
{
    // Kept before it is attached: from then on the thread may fire the timer, stop it and delete it.
    if (keeper != nullptr)
        *keeper = this;
    // The callback gets the timer, which outlives a stop from within timeout(), and not this object.
    g_source_set_callback(_source, Timer_Callback, _timer, nullptr);
    Thread* const home = thread != nullptr ? thread : Application::CurrentThread();
    g_source_attach(_source, ThreadImpl::Of(home)->context());
}

GlibTimer::~GlibTimer()
{
    g_source_destroy(_source);
    g_source_unref(_source);
    _source = nullptr;
}

gboolean GlibTimer::Timer_Callback(void* data)
{
    static_cast<Timer*>(data)->timeout();
    return TRUE;  // periodic; after a stop within timeout() GLib ignores it
}

Timer::Timer() : _impl(nullptr) {}

Timer::~Timer()
{
    stop();
}

void Timer::timeout()
{
    Logger::Message("PAL", "A timer fired in the wind @ %p !", static_cast<void*>(this));
}

void Timer::start(unsigned int intervalMs, Thread* thread)
{
    if (isRunning())
        stop();
    static_cast<void>(new GlibTimer(this, intervalMs, thread, &_impl));  // may be gone again by now
}

void Timer::stop()
{
    if (_impl == nullptr)
        return;
    GlibTimer* const impl = _impl;
    _impl = nullptr;
    delete impl;
}

bool Timer::isRunning() const
{
    return _impl != nullptr;
}

}  // namespace Murn

int TimerSleep(unsigned int ms)
{
    // 32-bit on purpose: usleep takes no more, and hosts know the wrap above 4294967 ms.
    return ::usleep(ms * 1000U);
}
