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
/// No handler and no logging runs under it, and nothing else is locked before it is let go but the queue's and the
/// context's own locks, so it cannot take part in a deadlock. Objects share a fixed set of locks by address.
class AffinityLock {
public:
    explicit AffinityLock(const Object* object);
    ~AffinityLock();

    AffinityLock(const AffinityLock&) = delete;
    AffinityLock& operator=(const AffinityLock&) = delete;

private:
    GMutex* _mutex;
};

/// Tells, after handlers have run, whether the object that they ran for is still there. Lives on the stack of the
/// thread that calls the handlers.
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

    bool objectGone() const;

    /// Called by an object's destructor, as the last thing before its mutex goes.
    static void NoteDestroyed(const Object* object);

private:
    const Object* _object;
    Mutex* _held;
    GThread* _thread;
    bool _gone;
    LifeWatch* _next;  // guarded by the object's AffinityLock, like _held and _gone
};

}  // namespace Murn

#endif
