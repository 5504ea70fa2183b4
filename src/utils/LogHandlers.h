// The log handlers that are installed, and the calls of them that are under way. Private.
#ifndef MURN_LOG_HANDLERS_H
#define MURN_LOG_HANDLERS_H

#include <pthread.h>

namespace Murn {

class LogHandler;

/// Keeps a handler from being called once it is uninstalled. GLib looks a message's handler up and calls it without a
/// lock, so that a call may begin after the handler was removed, and another may be under way.
class LogHandlers {
public:
    /// Any thread. Notes an installation, before GLib is told.
    static void Add(LogHandler* handler);
    /// Any thread. Ends one installation, after GLib was told. Behind the last one it waits for the calls on other
    /// threads, a second at most, and not at all within a call of the same handler: see Logger::UninstallHandler().
    static void Remove(LogHandler* handler);
    /// Any thread. Notes the handler that takes what no other does.
    static void SetDefault(LogHandler* handler);

    /// A call of a handler, on the stack of the thread that logs.
    class Call {
    public:
        explicit Call(LogHandler* handler);
        ~Call();

        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

        /// The handler to call: the one that was asked for, the default one if that was uninstalled meanwhile, or null
        /// when there is none.
        LogHandler* handler() const { return _handler; }

    private:
        friend class LogHandlers;

        LogHandler* _handler;
        pthread_t _thread;
        Call* _next;  // guarded by the lock of the list
    };

private:
    static bool isCalledHere(const LogHandler* handler);
    static bool isCalled(const LogHandler* handler);
};

}  // namespace Murn

#endif
