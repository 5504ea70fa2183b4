// What keeps an object, its thread and its events together while threads run. Private.
#ifndef MURN_AFFINITY_LOCK_H
#define MURN_AFFINITY_LOCK_H

#include <glib.h>

namespace Murn {

class Mutex;
class Object;

/// Guards the choice of the queue that an object's events go into. Whoever posts holds it from reading the object's
/// thread until the event is queued there; whoever moves the object holds it from finding no event left until the
/// thread has changed. So no event stays behind in the queue of a thread that the object has left.
///
/// No handler and no logging runs under it, and what is locked while it is held is locked nowhere the other way round:
/// the queue's and the context's own locks, and the threads' object lists. So it cannot take part in a deadlock.
/// Objects share a fixed set of locks by address.
class AffinityLock {
public:
    explicit AffinityLock(const Object* object);
    ~AffinityLock();

    AffinityLock(const AffinityLock&) = delete;
    AffinityLock& operator=(const AffinityLock&) = delete;

private:
    GMutex* _mutex;
};

/// Tells, after handlers have run, whether the object that they ran for is still there: it may have been deleted, or
/// moved to another thread, which may be deleting it at this moment. Lives on the stack of the thread that calls the
/// handlers.
class LifeWatch {
public:
    /// Watches an object.
    /// @param object  alive now
    /// @param held    null, or the object's mutex, locked by the caller; it is unlocked when the watch ends or when
    ///                the object goes, whichever comes first
    explicit LifeWatch(const Object* object, Mutex* held = nullptr);
    ~LifeWatch();

    LifeWatch(const LifeWatch&) = delete;
    LifeWatch& operator=(const LifeWatch&) = delete;

    /// Whether the object was deleted or moved to another thread. Nothing of it may be touched then.
    bool objectLeft() const;

    /// Called by an object's destructor, as the last thing before its mutex goes.
    static void NoteDestroyed(const Object* object);
    /// Called by an object's move when the object is bound to its new thread.
    /// @param lock  held for the object
    static void NoteMoved(const Object* object, const AffinityLock& lock);

private:
    const Object* _object;
    Mutex* _held;
    GThread* _thread;
    bool _left;
    bool _destroyed;
    LifeWatch* _next;  // guarded by the object's AffinityLock, like _held, _left and _destroyed
};

}  // namespace Murn

#endif
