// What is behind Thread: the loop, the queue and the bound objects. Private.
#ifndef MURN_THREAD_IMPL_H
#define MURN_THREAD_IMPL_H

#include <glib.h>

#include <atomic>
#include <vector>

#include "Mutex.h"

namespace Murn {

class Event;
class EventQueue;
class LifeWatch;
class Object;
class Thread;

/// The state of one Thread. See Thread for the operations that it forwards.
///
/// Objects, threads and the application need each other: a new object asks the application for its thread and is
/// listed here; a thread registers with the application and hands its last objects to the main thread. The circle
/// runs through this header and Application.h alone.
class ThreadImpl {
public:
    explicit ThreadImpl(Thread* owner);
    virtual ~ThreadImpl();

    ThreadImpl(const ThreadImpl&) = delete;
    ThreadImpl& operator=(const ThreadImpl&) = delete;

    /// The one way to a thread's implementation, for those parts of the runtime that attach sources or list objects.
    /// Also finds it while the thread is in its destructor, when its last events are delivered.
    static ThreadImpl* Of(const Thread* thread);

    void start();
    void stop();
    void join();
    void exec();
    void wakeUp();
    void setJoinable(bool joinable);
    bool isJoinable() const;
    bool isRunning() const;
    bool isCurrentThread() const;
    void postEvent(Event* event);
    bool processEvents(bool mayBlock);
    void processEventsForObject(Object* receiver);
    unsigned int countEventsForObject(Object* receiver);

    /// Any thread. Lists an object as bound to this thread. Returns true.
    bool registerObject(Object* object);
    /// Any thread. Returns whether the object was listed; logs a warning if it was not. In a thread's destructor, where
    /// the list goes anyway, this is for an object that is deleted: its events go with it.
    bool unregisterObject(Object* object);
    /// Any thread. Returns whether the object was listed, and leaves the warning to the caller.
    bool unlistObject(Object* object);
    static void WarnNotListed();

    /// What processEventsForObject() does, also in a thread's destructor. Ends when a handler deletes the receiver or
    /// moves it away.
    /// @param watch  on the receiver
    void deliverEventsForObject(Object* receiver, const LifeWatch& watch);
    /// Any thread. Whether events wait for the object, also in a thread's destructor; those that a delivery has taken
    /// out of the queue count until their handler is called.
    bool hasEventsForObject(Object* object);

    /// The thread itself only. Hands the objects that are still bound to it to the main application thread, with a
    /// warning each. Returns true when there were none.
    bool checkOrpheanObjects();

    /// Takes over the handle of the calling system thread, for a thread that the runtime did not start.
    void adoptCallingThread();
    /// Any thread. Makes every exec() from now on return at once: the thread collector has the thread, and waits for
    /// it even if its loop has yet to begin.
    void retire();
    /// The context that serves this thread; valid as long as the thread.
    GMainContext* context() const { return _context; }
    EventQueue* events() const { return _events; }

    static Thread* CurrentThread();

private:
    class Delivery;

    static gpointer threadEntry(gpointer impl);
    void spawner();
    void attachEventSource();
    static gboolean quitIfStopped(gpointer impl);
    bool isListed(const Object* object);
    std::vector<Object*> listedObjects();

    EventQueue* _events;  // owned
    std::atomic<bool> _joinable;
    std::atomic<bool> _startedJoinable;
    std::atomic<bool> _running;
    std::atomic<bool> _loopRunning;
    std::atomic<GThread*> _thread;
    GMainContext* _context;         // one reference
    GMainLoop* _loop;               // the one in exec(), guarded by _stateMutex
    Thread* _owner;                 // not owned
    std::vector<Object*> _objects;  // in registration order, not owned, guarded by _objectsMutex
    Mutex _objectsMutex;

    Mutex _stateMutex;  // guards _loop and _retired, and keeps a new thread back until start() knows its handle
    bool _retired;
    std::atomic<bool> _dying;  // the owner is in its destructor
    ThreadImpl* _nextDying;    // guarded by the lock of the list
    Delivery* _deliveries;     // of bound objects' events, guarded by _objectsMutex; not owned
};

}  // namespace Murn

/// A hook for ports: called once for each thread, right after its context was made and its event source attached, so
/// that a platform may attach sources of its own. On Linux there are none.
__attribute__((visibility("default"))) void Thread_attachPlatformSources(GMainContext* context);

#endif
