// A scoped lock of a Mutex.
#ifndef MURN_MUTEX_LOCKER_H
#define MURN_MUTEX_LOCKER_H

#include "Export.h"
#include "Mutex.h"

namespace Murn {

/// Holds a Mutex from its construction to its destruction. Lives on the stack of one thread.
class MURN_API MutexLocker {
public:
    /// Locks the mutex, waiting for it if need be.
    /// @param mutex  must exist (it is not checked) and outlive the locker; stays the caller's
    MutexLocker(Mutex* mutex);
    /// Unlocks the mutex.
    ~MutexLocker();

    MutexLocker(const MutexLocker&) = delete;
    MutexLocker& operator=(const MutexLocker&) = delete;

private:
    Mutex* _mutex;  // not owned
};

}  // namespace Murn

#endif
