// The library for hosts without classes: plain C11, and valid C++ as well.
#ifndef MURN_MURN_C_H
#define MURN_MURN_C_H

#include "Export.h"

/// Murn_Event: a message to an object, with a type code and a data pointer. Only ever used through a pointer.
///
/// Murn_Object: what receives events. A component written in C++ makes objects and hands out their addresses; C only
/// passes them on. An object belongs to one thread, on which it receives its events.
///
/// In C++ these are the classes Murn::Event and Murn::Object.
#ifdef __cplusplus
namespace Murn {
class Event;
class Object;
}  // namespace Murn
typedef Murn::Event Murn_Event;
typedef Murn::Object Murn_Object;

extern "C" {
#else
typedef struct Murn_Event Murn_Event;
typedef struct Murn_Object Murn_Object;
#endif

/// There is one application in a process, and there are two ways to it. They know nothing of each other, and a second
/// application, by whichever way, ends the process through a fatal check. A host takes one of them:
///
/// - counted, for a process with several components that each need the library: each calls Murn_C_application_init()
///   once and Murn_C_application_shutdown() once;
/// - plain, for a host that is the only one: Murn_Application_Init() and Murn_Application_Cleanup().
///
/// A fatal check prints a line that begins with "FATAL ERROR" and a backtrace, and calls `exit(-1)`; see CrashHook().

/// Counted start. One thread at a time, not locked: normally the main thread. The first call starts the runtime and
/// makes the calling thread the main application thread; later ones only count. A first call without memory, or with a
/// null among the first `argc` arguments, starts and counts nothing: a C++ exception passes through the caller, and
/// where no component in C++ catches it further up, it ends the process.
/// @param argc  the number of program arguments; 0 or less for none. Ignored by all calls but the first.
/// @param argv  the arguments, which are copied. Ignored by all calls but the first.
MURN_API void Murn_C_application_init(int argc, char** argv);

/// Counted end. One thread at a time, not locked, and the last call on the main application thread, outside of any
/// handler, after every other thread that uses the runtime has ended: it ends the runtime when the number of shutdowns
/// reaches the number of inits.
///
/// There is no guard against a shutdown too many, on purpose: the counter, of 32 bits, wraps to its largest value. An
/// init after that only counts, and starts nothing.
MURN_API void Murn_C_application_shutdown(void);

/// The calling thread only. Makes it known to the runtime, so that objects can belong to it; it delivers their events
/// with Murn_Application_Process_Events(). Does nothing on a thread that is known already, such as the main application
/// thread and threads of Murn::Thread, so that it may be called any number of times. Without an application of the
/// counted kind it ends the process through a fatal check.
///
/// There is no counterpart in C: the thread stays registered, and what is kept for it (a few hundred bytes and three
/// GLib objects) stays until the process ends. **A registered thread must not end before the last thing that the
/// application is used for:** the system may give its handle to a later thread, which would then count as registered
/// and get its events, or, if the runtime starts it, end the process through a fatal check. A thread that does end
/// earlier needs a component in C++ that calls Murn::Application::UnregisterExternalThread() on it.
MURN_API void Murn_C_thread_register(void);

/// Plain start. Starts the runtime and makes the calling thread the main application thread. Nothing is counted.
/// Without memory, or with a null among the first `argc` arguments, it starts nothing: a C++ exception passes through
/// the caller, and where no component in C++ catches it further up, it ends the process.
/// @param argc  the number of program arguments; 0 or less for none
/// @param argv  the arguments, which are copied
MURN_API void Murn_Application_Init(int argc, char** argv);

/// Plain end. The main application thread only, outside of any handler, after every other thread that uses the runtime
/// has ended. Deletes the application, which Murn_Application_Init() made, or a component in C++ with `new`; does
/// nothing without one. Not for an application of the counted kind, whose last shutdown would end it once more.
MURN_API void Murn_Application_Cleanup(void);

/// The main application thread only. Runs its event loop until a component in C++ calls Murn::Application::Quit(). The
/// application must exist, of either kind; this is not checked.
MURN_API void Murn_Application_Exec(void);

/// Any registered thread, for its own events. Runs one iteration of its loop (`g_main_context_iteration`): delivers
/// what waits for its objects and serves its timers and streams; never blocks. A thread that is not registered gets a
/// warning in the log and nothing else.
MURN_API void Murn_Application_Process_Events(void);

/// Any thread. Hands an event to an object and disposes of the event: at once when the object belongs to the calling
/// thread (or to none), through the queue of the object's thread otherwise.
/// @param target  must live until the event is delivered
/// @param event   the runtime owns it from now on
MURN_API void Murn_Application_Dispatch_Event(Murn_Object* target, Murn_Event* event);

/// Any thread. Makes an event.
/// @param type  what the event means to its receiver. 1 is reserved: it asks the receiver to delete itself. All others
///              are the host's to choose.
/// @param data  handed to the receiver as it is; the event never frees it
/// @return the event, which is the caller's until it dispatches or deletes it; never null
MURN_API Murn_Event* Murn_Create_Event(unsigned int type, void* data);

/// One thread at a time, not locked. Deletes an event that was not dispatched.
/// @param event  null is ignored
MURN_API void Murn_Event_Delete(Murn_Event* event);

/// One thread at a time, not locked.
/// @param event  not null; this is not checked
/// @return the type that the event was made with
MURN_API unsigned int Murn_Event_Get_Type(Murn_Event* event);

/// One thread at a time, not locked.
/// @param event  not null; this is not checked
/// @return the data pointer that the event was made with
MURN_API void* Murn_Event_Get_Data(Murn_Event* event);

/// Any thread. Prints a backtrace of at most 20 frames to standard output and ends the process with `exit(-1)`: what a
/// fatal check does after its line. Does not return.
MURN_API void CrashHook(void) __attribute__((noreturn));

/// Any thread. Blocks the calling thread (`usleep`).
/// @param ms  milliseconds. The microseconds are formed in 32 bits on purpose, as `usleep` takes them, so a value
///            above 4294967 wraps around.
/// @return what `usleep` returns: 0, or -1 when a signal came in between
MURN_API int TimerSleep(unsigned int ms);

#ifdef __cplusplus
}
#endif

#endif
