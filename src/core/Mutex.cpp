// The recursive lock and its scoped guard.
#include "Mutex.h"

#include <glib.h>

#include "MutexLocker.h"

namespace Murn {

Mutex::Mutex() : _impl(g_new(GRecMutex, 1))
{
    g_rec_mutex_init(_impl);
}

Mutex::~Mutex()
{
    // Passing through the lock once waits for a thread that is about to leave it.
    g_rec_mutex_lock(_impl);
    g_rec_mutex_unlock(_impl);
    g_rec_mutex_clear(_impl);
    g_free(_impl);
    _impl = nullptr;
}

void Mutex::lock()
{
    g_rec_mutex_lock(_impl);
}

void Mutex::unlock()
{
    g_rec_mutex_unlock(_impl);
}

bool Mutex::tryLock()
{
    return g_rec_mutex_trylock(_impl) == TRUE;
}

MutexLocker::MutexLocker(Mutex* mutex) : _mutex(mutex)
{
    _mutex->lock();
}

MutexLocker::~MutexLocker()
{
    _mutex->unlock();
}

}  // namespace Murn
