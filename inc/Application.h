// The process-wide runtime: thread registry, main loop, and the ways to hand over an event.
#ifndef MURN_APPLICATION_H
#define MURN_APPLICATION_H

#include <atomic>
#include <string>
#include <vector>

#include "Export.h"

namespace Murn {

class ApplicationGlib;
class Event;
class Object;
class Thread;

/// The runtime of a process; a host creates exactly one, on the thread that becomes the main application thread,
/// and destroys it there, outside of any handler, after every other thread that uses the runtime has ended.
///
///     int main(int argc, char** argv)
///     {
///         Murn::Application application(argc, argv);
///         ...
///         application.exec();  // until somebody calls Murn::Application::Quit()
///     }
class MURN_API Application {
public:
    /// Starts the runtime and makes the calling thread the main application thread. A second application ends the
    /// process through a fatal check. What the standard library throws, for want of memory or for an argument that is
    /// null, leaves no application behind.
    /// @param argc  the number of program arguments; 0 or less for none
    /// @param argv  the arguments, which are copied
    Application(int argc, char** argv);
    /// The main application thread only. Stops, joins and deletes the threads that were handed to the collector,
    /// delivers the events that still wait on the main application thread (CurrentThread() is null by then), and
    /// ends the runtime. That delivery is one iteration of the loop. Stop timers that post to the thread's objects
    /// before this: an event that a due one posts in that iteration is left over, and a fatal check ends the process.
    virtual ~Application();

    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    /// The main application thread only. Runs its event loop until Quit(); see Thread::exec(). Objects that are
    /// bound to the main thread by then are each warned about and are unlisted: there is no thread to hand them to.
    /// They work on as before, but the deletion of each, or its move to another thread, logs another warning, that it
    /// is not listed.
    void exec();
    /// Any thread. Ends exec(). Before exec() it is forgotten, with a warning. The application must exist.
    static void Quit();

    /// Any thread. Without an application it ends the process through a fatal check.
    /// @return a copy of the program arguments, in order, the program's name first
    static std::vector<std::string> Arguments();
    /// Any thread.
    /// @return the main application thread, which stays the application's; null with a warning without an application
    static Thread* MainApplicationThread();
    /// Any thread.
    /// @return the thread that the caller runs on, if it is registered; else null, also without an application
    static Thread* CurrentThread();
    /// Any thread.
    /// @return whether the caller's thread is registered, in whatever way
    static bool isExternalThreadAlreadyRegistered();

    /// Any thread, for its own events: Thread::processEvents() on it. An unregistered one gets a warning and nothing
    /// else.
    /// @param mayBlock  whether to wait until something is ready
    static void ProcessEvents(bool mayBlock);

    /// Any thread that is not registered. Binds the calling system thread to `thread`; a started Thread does so by
    /// itself. Ends the process through a fatal check without an application, or when the system thread is registered
    /// already.
    ///
    /// The thread gets no handle by this: one that is not started is never Thread::isCurrentThread(). It may post, and
    /// its objects get what is posted to them, but SendEvent() to them, Object::moveToThread() and the end of an exec()
    /// that leaves objects each end the process through a fatal check. A thread that was not started by the runtime is
    /// better off with RegisterExternalThread().
    /// @param thread  stays the caller's; must be unregistered before the system thread ends
    static void RegisterThread(Thread* thread);
    /// A registered thread only. Undoes RegisterThread(). Ends the process through a fatal check without an
    /// application, or when the caller does not run on `thread`.
    /// @param thread  the caller's own thread
    static void UnregisterThread(Thread* thread);
    /// A system thread that the runtime did not start. Makes a Thread for it, so that it may have objects, timers and
    /// streams; it delivers their events by calling ProcessEvents() or CurrentThread()->exec(). It must call
    /// UnregisterExternalThread() before it ends: a later system thread may be given the same handle, and would count
    /// as registered. Ends the process through a fatal check without an application, or when the thread is registered
    /// already.
    static void RegisterExternalThread();
    /// A thread that called RegisterExternalThread(), outside of its handlers. Hands its objects to the main
    /// application thread, unregisters it and deletes its Thread; what events are left are delivered while
    /// CurrentThread() is null already. Ends the process through a fatal check on a thread that is not registered.
    static void UnregisterExternalThread();

    /// Any thread. Asynchronous delivery: queues the event for the target's thread, which delivers and disposes of
    /// it. An object that is bound to no thread gets nothing: an error is logged and the event stays the caller's.
    /// @param target  must live until the event is delivered, or be deleted on its own thread
    /// @param event   made with `new`
    static void PostEvent(Object* target, Event* event);
    /// Owning thread of the target only. Synchronous delivery: calls the target's Object::event() at once. Ends the
    /// process through a fatal check on another thread than the target's; an object that is bound to no thread takes it
    /// from any.
    /// @param target  an object of the calling thread, or of none
    /// @param event   stays the caller's; its receiver is not set
    static void SendEvent(Object* target, Event& event);
    /// Any thread. Sends to a target of the calling thread (or of none) and disposes of the event; posts to all others.
    /// @param target  as for PostEvent()
    /// @param event   made with `new`; the runtime owns it from now on
    static void DispatchEvent(Object* target, Event* event);

    /// Any thread. Hands over a thread that is no longer needed: it is stopped, joined and deleted, not at once but
    /// by the next hand-over or by the application's end. So the call waits for the threads that were handed over
    /// before. A thread may hand over itself from within its own loop, as the last one that it hands over. The
    /// application must exist; this is not checked, and without one the process crashes.
    /// @param thread  started as joinable and made with `new`; the application owns it from now on. One that is not
    ///                joinable, or not started, ends the process through a fatal check when it is to be joined.
    static void AddToThreadGarbageCollector(Thread* thread);

private:
    friend struct ApplicationC;  // the functions of Murn_c.h

    MURN_LOCAL void forget();

    MURN_LOCAL static std::atomic<Application*> _Instance;

    ApplicationGlib* _impl;  // owned
};

}  // namespace Murn

#endif
