// A thread with an event loop.
#ifndef MURN_THREAD_H
#define MURN_THREAD_H

#include "Export.h"

namespace Murn {

class Event;
class Object;
class ThreadImpl;

/// A system thread with its own event loop, event queue and list of bound objects.
///
/// The loop runs on a `GMainContext` of the thread's own, never GLib's default one, and serves everything that is
/// attached to the thread: posted events, timers, streams, accepting servers. A typical worker:
///
///     Murn::Thread worker;
///     worker.setJoinable(true);
///     worker.start();
///     ...              // post events to objects on it; one of their handlers
///                      // ends the loop: Murn::Thread::CurrentThread()->stop();
///     worker.join();
///
/// stop() from another thread is forgotten while the loop has yet to begin, and a join() would wait for ever then.
/// Nothing tells from outside that a loop has begun, but an event that a handler received does: stop from a handler, or
/// after one has answered. Handlers must not throw: GLib's loop, which calls them, cannot be unwound.
///
/// Objects belong on joinable threads: a thread that is not joinable does not know its own handle, so it is never
/// isCurrentThread(), nothing can be sent to objects on it, and objects that are left when its loop ends end the
/// process. The Thread must outlive its system thread and every object, timer, stream and armed server on it.
class MURN_API Thread {
public:
    /// A thread that is not started and not joinable. Events can be posted to it already; they are kept. Its loop needs
    /// a descriptor: GLib ends the process when there is none.
    Thread();
    /// A joinable thread must have been joined, or a fatal check ends the process. Events that are still queued are
    /// delivered now, on the thread that deletes this one, in one iteration of the loop. Stop timers that post to the
    /// thread's objects before this: an event that a due one posts in that iteration is left over, and a fatal check
    /// ends the process.
    virtual ~Thread();

    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// The thread itself only. The body of the started thread; runs exec(). A derived class overrides it to do
    /// something else.
    virtual void run();

    /// One thread at a time, not locked. Starts the system thread, which registers with the application, calls run()
    /// and unregisters. Without an application, a fatal check on the new system thread ends the process; so does
    /// starting a joinable thread that is started and not joined. A system that refuses the thread is reported in the
    /// log, and the thread counts as not started.
    ///
    /// A thread that is not joinable keeps no handle to tell that it is started, so another start is not refused, on
    /// purpose: one more system thread calls run(). Where run() is exec(), stop() then reaches only the loop that began
    /// last, and the one before it never ends. So the host starts such a thread anew only once its run() has returned,
    /// which run() itself has to tell.
    void start();
    /// Any thread. Ends the loop that exec() runs. Without one, also before it began, it logs a warning and is
    /// forgotten.
    void stop();
    /// Any other thread. Waits until a started joinable thread has ended; it may be started anew then. A thread that
    /// is not started or not joinable ends the process through a fatal check.
    void join();
    /// Owning thread only. Runs the event loop until stop(); then hands the objects that are still bound to the
    /// thread to the main application thread, with a warning for each. Not to be nested.
    void exec();
    /// Any thread. Makes a loop that waits look at its sources again (`g_main_context_wakeup`).
    void wakeUp();

    /// One thread at a time, not locked. Chooses for the next start(). While the thread has a handle, which is from a
    /// joinable start() to join(), it ends the process through a fatal check; the main application thread and external
    /// threads always have one. After the start of a thread that is not joinable nothing is noticed.
    /// @param joinable  whether the thread is to be waited for with join()
    void setJoinable(bool joinable);
    /// Any thread.
    /// @return whether the thread was started as joinable at any time, and is to be joinable by the last setJoinable().
    ///         So it is false before start(), on purpose, even after setJoinable(true). And it is true for a thread
    ///         that was joined, started anew as not joinable and set to joinable then, though there is nothing to join.
    bool isJoinable() const;
    /// Any thread.
    /// @return whether the thread has a system handle: from start() to join() for a joinable thread, always for the
    ///         main application thread and external threads, never for a thread that is not joinable
    bool isRunning() const;
    /// Any thread.
    /// @return whether the caller runs on this thread; never true for a thread that is not joinable
    bool isCurrentThread() const;

    /// Any thread. Queues an event and wakes the loop. Hosts post through Application::PostEvent(), which sets the
    /// receiver.
    /// @param event  with its receiver set; the queue owns it from now on
    void postEvent(Event* event);
    /// Owning thread only. Runs one iteration of the loop (`g_main_context_iteration`): delivers what is ready.
    /// Within an event handler it serves timers, streams and servers, but further events wait for the handler's end.
    /// @param mayBlock  whether to wait until something is ready
    /// @return whether something was delivered
    bool processEvents(bool mayBlock);
    /// Owning thread only. Delivers one object's events now until none waits for it, or a handler moves or deletes it.
    /// @param receiver  an object that is bound to this thread
    void processEventsForObject(Object* receiver);
    /// Any thread. Counts one object's events; see EventQueue::countEventsForObject().
    /// @param receiver  the object; only its address matters
    /// @return how many wait
    unsigned int countEventsForObject(Object* receiver);

    /// Any thread.
    /// @return what Application::CurrentThread() returns
    static Thread* CurrentThread();

private:
    friend class ThreadImpl;

    ThreadImpl* _impl;  // owned
};

}  // namespace Murn

#endif
