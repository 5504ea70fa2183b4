// The base of everything that receives events.
#ifndef MURN_OBJECT_H
#define MURN_OBJECT_H

#include <atomic>

#include "Export.h"
#include "Mutex.h"

namespace Murn {

class Event;
class Thread;

/// Receives events on one thread, can be shared by counting references, and can be deleted from any thread.
///
/// An object is bound to the thread that creates it, if that thread is known to the Application. Events that any
/// thread posts to it (Application::PostEvent()) are delivered to its event() on the bound thread. An object must
/// be gone before its thread is; a thread whose loop ends hands the objects that are left to the main application
/// thread first.
///
/// Delete an object with destroy(), or with deref() when it is shared. A plain `delete` is for the owning thread,
/// and only while no destroy() is under way.
class MURN_API Object {
public:
    /// Binds the object to the current thread (Application::CurrentThread()); on a thread that is not registered,
    /// or before there is an application, it is bound to none and nothing can be posted to it.
    Object();
    /// Ends the process through a fatal check when references are left. Events that still wait for the object are
    /// given to the base event(), since the derived parts are gone by now, and so are dropped.
    virtual ~Object();

    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    /// Called with each event for the object, on its thread. This base handler knows one type, 1, the request to
    /// delete: it deletes the object. It ignores all others. An override must hand type 1 on to it, or destroy()
    /// stops working for that class. It may delete the object, move it, post, and pump the loop. It must not throw. A
    /// handler that posts to its own thread each time keeps that thread from everything else, its stop included.
    /// @param event  stays the runtime's, which disposes of it afterwards
    virtual void event(Event* event);

    /// Any thread. Deletes the object: on its own thread and after every event posted to it earlier, by posting a
    /// DeleteLaterEvent; at once if it is bound to no thread. Do not touch the object afterwards, and call it once.
    /// Each deletion looks through all events that wait on the thread.
    virtual void destroy();

    /// Any thread. Adds a reference. An object starts with none, and counting is for those who call this. Ends the
    /// process through a fatal check when the last reference was released already.
    void ref();
    /// Any thread. Releases a reference; the last one makes the object invalid and calls destroy(). Do not touch the
    /// object afterwards, unless other references are left for certain: one that is bound to no thread is gone when
    /// this returns. A release without a reference is not noticed: the count wraps around and nothing is destroyed.
    void deref();
    /// Any thread.
    /// @return the number of references
    unsigned int refsCount();

    /// Any thread, not locked.
    /// @return false from the release of the last reference on
    bool isValid() const;
    /// Any thread, not locked: another thread may be moving the object.
    /// @return the thread that the object is bound to, or null
    Thread* thread() const;
    /// Any thread. The lock that guards the reference count and the object's move, for derived classes and callers
    /// that want to share it.
    /// @return the object's own mutex
    Mutex* mutex();

    /// Owning thread only; any thread for an object that is bound to none. Binds the object to another thread. The
    /// events that wait for it are delivered first, here and now, and the object's mutex is held meanwhile; a destroy()
    /// among them deletes the object before this returns, and a handler that moves the object makes its own move the
    /// one that counts. Does nothing if it is bound to `target` already. A call from another thread than the object's
    /// ends the process through a fatal check.
    /// @param target  not null
    void moveToThread(Thread* target);

private:
    std::atomic<bool> _valid;
    unsigned int _refsCount;  // guarded by _mutex
    Mutex _mutex;
    std::atomic<Thread*> _thread;  // not owned; changes under _mutex and the object's AffinityLock
};

}  // namespace Murn

#endif
