// The log handlers that are installed, and the calls of them that are under way.
#include "utils/LogHandlers.h"

#include <glib.h>

namespace Murn {

namespace {

struct Installation {
    LogHandler* handler;
    Installation* next;
};

// Calls that take longer may be waiting for what the caller of Remove() holds.
constexpr gint64 patienceUs = G_USEC_PER_SEC;

// Zeroed memory is a free mutex and a condition, and nothing is destroyed at the end of the process, when threads may
// still log.
GMutex mutex;
GCond callEnded;
Installation* firstInstallation = nullptr;   // guarded by mutex, like what follows
LogHandler* defaultHandler = nullptr;        // must live for the rest of the process
LogHandlers::Call* innermostCall = nullptr;  // of any thread

class Lock {
public:
    Lock() { g_mutex_lock(&mutex); }
    ~Lock() { g_mutex_unlock(&mutex); }

    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
};

Installation** findInstallation(const LogHandler* handler)
{
    Installation** link = &firstInstallation;
    while (*link != nullptr && (*link)->handler != handler)
        link = &(*link)->next;
    return link;
}

bool isInstalled(const LogHandler* handler)
{
    return handler == defaultHandler || *findInstallation(handler) != nullptr;
}

}  // namespace

void LogHandlers::Add(LogHandler* handler)
{
    auto* const installation = new Installation{handler, nullptr};
    const Lock lock;
    installation->next = firstInstallation;
    firstInstallation = installation;
}

void LogHandlers::SetDefault(LogHandler* handler)
{
    const Lock lock;
    defaultHandler = handler;
}

void LogHandlers::Remove(LogHandler* handler)
{
    const Lock lock;
    Installation** const link = findInstallation(handler);
    if (Installation* const installation = *link) {
        *link = installation->next;
        delete installation;
    }
    if (isInstalled(handler) || isCalledHere(handler))
        return;
    const gint64 end = g_get_monotonic_time() + patienceUs;
    while (isCalled(handler) && g_cond_wait_until(&callEnded, &mutex, end) == TRUE) {
    }
}

bool LogHandlers::isCalledHere(const LogHandler* handler)
{
    for (const Call* call = innermostCall; call != nullptr; call = call->_next) {
        if (call->_handler == handler && pthread_equal(call->_thread, pthread_self()) != 0)
            return true;
    }
    return false;
}

bool LogHandlers::isCalled(const LogHandler* handler)
{
    for (const Call* call = innermostCall; call != nullptr; call = call->_next) {
        if (call->_handler == handler)
            return true;
    }
    return false;
}

LogHandlers::Call::Call(LogHandler* handler) : _handler(handler), _thread(pthread_self()), _next(nullptr)
{
    const Lock lock;
    if (!isInstalled(handler))
        _handler = defaultHandler;
    _next = innermostCall;
    innermostCall = this;
}

LogHandlers::Call::~Call()
{
    const Lock lock;
    Call** link = &innermostCall;
    while (*link != this)
        link = &(*link)->_next;
    *link = _next;
    g_cond_broadcast(&callEnded);
}

}  // namespace Murn
