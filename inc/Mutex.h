// A recursive lock.
#ifndef MURN_MUTEX_H
#define MURN_MUTEX_H

#include "Export.h"

struct _GRecMutex;

namespace Murn {

/// A recursive mutex: the thread that holds it may lock it again and unlocks it as often as it locked it. The
/// runtime itself relies on that. Stands on GLib's `GRecMutex`.
class MURN_API Mutex {
public:
    /// An unlocked mutex.
    Mutex();
    /// Waits until no other thread holds the mutex, then frees it. Nobody may wait for it or lock it any more.
    ~Mutex();

    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /// Any thread. Waits until no other thread holds the mutex, and locks it once more for this one.
    void lock();
    /// The thread that holds the mutex only. Undoes one lock().
    void unlock();
    /// Any thread. Locks the mutex unless another thread holds it; does not wait.
    /// @return true when it is locked for this thread now, also when this thread held it already
    bool tryLock();

private:
    _GRecMutex* _impl;  // owned
};

}  // namespace Murn

#endif
