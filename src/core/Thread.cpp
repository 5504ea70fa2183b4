// Threads and their event loops.
#include "Thread.h"

#include <glib.h>

#include <algorithm>
#include <vector>

#include "AffinityLock.h"
#include "Application.h"
#include "Check.h"
#include "Delivery.h"
#include "Event.h"
#include "EventQueue.h"
#include "Logger.h"
#include "MutexLocker.h"
#include "Object.h"
#include "ThreadImpl.h"

namespace Murn {

static_assert(sizeof(std::atomic<bool>) == sizeof(bool) && sizeof(std::atomic<GThread*>) == sizeof(GThread*));

namespace {

// The source that delivers a thread's events whenever its context is iterated. It has neither descriptor nor timer:
// the wake-up in postEvent() is what makes a waiting loop ask prepare and check again.
struct ThreadEventSource {
    GSource source;
    ThreadImpl* thread;
};

EventQueue* eventsOf(GSource* source)
{
    return reinterpret_cast<ThreadEventSource*>(source)->thread->events();
}

gboolean prepareEvents(GSource* source, gint* timeoutMs)
{
    *timeoutMs = -1;
    return eventsOf(source)->hasPendingEvents() ? TRUE : FALSE;
}

gboolean checkEvents(GSource* source)
{
    return eventsOf(source)->hasPendingEvents() ? TRUE : FALSE;
}

gboolean dispatchEvents(GSource* source, GSourceFunc /*callback*/, gpointer /*data*/)
{
    eventsOf(source)->processEvents();
    return TRUE;
}

GSourceFuncs threadEventFuncs = {prepareEvents, checkEvents, dispatchEvents, nullptr, nullptr, nullptr};

void warnOfOrphans(const std::vector<Object*>& orphans)
{
    const auto count = static_cast<int>(orphans.size());
    for (Object* const orphan : orphans)
        Logger::Warning("Thread", "Thread deleted with objects still attached to it! : (%d) => %p", count,
                        static_cast<void*>(orphan));
}

// The threads that are in their destructors. Zeroed memory is a free mutex.
GMutex dyingMutex;
ThreadImpl* firstDying = nullptr;

}  // namespace

ThreadImpl::ThreadImpl(Thread* owner)
    : _events(new EventQueue),
      _joinable(false),
      _startedJoinable(false),
      _running(false),
      _loopRunning(false),
      _thread(nullptr),
      _context(g_main_context_new()),
      _loop(nullptr),
      _owner(owner),
      _retired(false),
      _dying(false),
      _nextDying(nullptr),
      _deliveries(nullptr)
{
    attachEventSource();
    Thread_attachPlatformSources(_context);
}

void ThreadImpl::attachEventSource()
{
    GSource* const source = g_source_new(&threadEventFuncs, sizeof(ThreadEventSource));
    reinterpret_cast<ThreadEventSource*>(source)->thread = this;
    g_source_attach(source, _context);
    g_source_unref(source);  // the context owns it now
}

ThreadImpl::~ThreadImpl()
{
    MURN_CHECK(!_joinable || _thread == nullptr);

    // From here on the owner has no implementation any more, but the handlers of the last events may still ask for it.
    _dying = true;
    g_mutex_lock(&dyingMutex);
    _nextDying = firstDying;
    firstDying = this;
    g_mutex_unlock(&dyingMutex);

    processEvents(false);

    g_mutex_lock(&dyingMutex);
    ThreadImpl** link = &firstDying;
    while (*link != this)
        link = &(*link)->_nextDying;
    *link = _nextDying;
    g_mutex_unlock(&dyingMutex);

    g_main_context_unref(_context);
    _context = nullptr;
    delete _events;
}

ThreadImpl* ThreadImpl::Of(const Thread* thread)
{
    if (thread->_impl != nullptr)
        return thread->_impl;

    g_mutex_lock(&dyingMutex);
    ThreadImpl* impl = firstDying;
    while (impl != nullptr && impl->_owner != thread)
        impl = impl->_nextDying;
    g_mutex_unlock(&dyingMutex);
    return impl;
}

void ThreadImpl::start()
{
    MURN_CHECK(_thread == nullptr);

    GError* error = nullptr;
    {
        // The new thread waits for this lock before its body runs, so it always finds its handle in place.
        const MutexLocker locker(&_stateMutex);
        GThread* const handle = g_thread_try_new(nullptr, threadEntry, this, &error);
        if (handle != nullptr && _joinable) {
            _startedJoinable = true;
            _thread = handle;
        } else if (handle != nullptr) {
            // Dropped on purpose: nobody waits for this thread, so nobody may take it for one that can be waited for.
            g_thread_unref(handle);
        }
    }
    if (error != nullptr) {
        Logger::Error("Thread", "Thread [%p] could not be started: %s", static_cast<void*>(this), error->message);
        g_error_free(error);
    }
}

gpointer ThreadImpl::threadEntry(gpointer impl)
{
    static_cast<ThreadImpl*>(impl)->spawner();
    return nullptr;
}

void ThreadImpl::spawner()
{
    {
        const MutexLocker startIsThrough(&_stateMutex);
    }
    Application::RegisterThread(_owner);
    _running = true;
    _owner->run();
    _running = false;
    Application::UnregisterThread(_owner);
}

void ThreadImpl::exec()
{
    GMainLoop* const loop = g_main_loop_new(_context, FALSE);
    {
        const MutexLocker locker(&_stateMutex);
        _loop = loop;
        _loopRunning = !_retired;
    }

    // GLib forgets a g_main_loop_quit() that comes before its loop runs. So the first thing that the loop does is to
    // look whether it was stopped meanwhile.
    GSource* const firstLook = g_idle_source_new();
    g_source_set_priority(firstLook, G_MININT);
    g_source_set_callback(firstLook, quitIfStopped, this, nullptr);
    g_source_attach(firstLook, _context);
    g_main_loop_run(loop);
    g_source_destroy(firstLook);
    g_source_unref(firstLook);

    _loopRunning = false;
    _running = false;
    checkOrpheanObjects();
    {
        // Under the lock: another thread may be about to quit this very loop.
        const MutexLocker locker(&_stateMutex);
        _loop = nullptr;
    }
    g_main_loop_unref(loop);
}

gboolean ThreadImpl::quitIfStopped(gpointer data)
{
    auto* const impl = static_cast<ThreadImpl*>(data);
    const MutexLocker locker(&impl->_stateMutex);
    if (!impl->_loopRunning)
        g_main_loop_quit(impl->_loop);
    return G_SOURCE_REMOVE;
}

void ThreadImpl::stop()
{
    {
        const MutexLocker locker(&_stateMutex);
        if (_loop != nullptr) {
            if (_loopRunning.exchange(false))
                g_main_loop_quit(_loop);
            return;
        }
    }
    Logger::Warning("PAL", "Can not stop Thread [%p] which is not running an event loop !", static_cast<void*>(this));
}

void ThreadImpl::retire()
{
    const MutexLocker locker(&_stateMutex);
    _retired = true;
}

void ThreadImpl::join()
{
    MURN_CHECK(_thread != nullptr);
    MURN_CHECK(_joinable == true);
    // One that start() made is not the main one; it may well be joined after the application's end.
    if (!_startedJoinable && _owner == Application::MainApplicationThread()) {
        Logger::Warning("PAL", "Warning : trying to join the mainApplicationThread\n");
        return;
    }
    g_thread_join(_thread);
    _thread = nullptr;
}

void ThreadImpl::wakeUp()
{
    if (_context == nullptr)
        Logger::Warning("Thread", "wakeup : no _THREADCONTEXT to exit from ...\n");
    else
        g_main_context_wakeup(_context);
}

void ThreadImpl::setJoinable(bool joinable)
{
    MURN_CHECK(_thread == nullptr);
    _joinable = joinable;
}

bool ThreadImpl::isJoinable() const
{
    // Not before the start, on purpose: until then there is nothing to join.
    return _joinable && _startedJoinable;
}

bool ThreadImpl::isRunning() const
{
    return _thread != nullptr;
}

bool ThreadImpl::isCurrentThread() const
{
    return _thread == g_thread_self();
}

void ThreadImpl::adoptCallingThread()
{
    _thread = g_thread_self();
}

void ThreadImpl::postEvent(Event* event)
{
    // As soon as the event is queued it may be delivered, and its handler may end this thread and have it deleted. So
    // nothing but the context is touched from then on, and that stays until it has been woken.
    GMainContext* const context = _context != nullptr ? g_main_context_ref(_context) : nullptr;
    _events->enqueueEvent(event);
    if (context == nullptr)
        return;
    g_main_context_wakeup(context);
    g_main_context_unref(context);
}

bool ThreadImpl::processEvents(bool mayBlock)
{
    return g_main_context_iteration(_context, mayBlock ? TRUE : FALSE) == TRUE;
}

void ThreadImpl::processEventsForObject(Object* receiver)
{
    if (!_dying)
        deliverEventsForObject(receiver, LifeWatch(receiver));
}

void ThreadImpl::deliverEventsForObject(Object* receiver, const LifeWatch& watch)
{
    Delivery delivery(this, receiver);
    while (Event* const event = delivery.next()) {
        event->_receiver->event(event);
        event->destroy();
        if (watch.objectLeft())
            return;
    }
}

unsigned int ThreadImpl::countEventsForObject(Object* receiver)
{
    // Once the thread is in its destructor, its loop alone delivers what is left.
    return _dying ? 0 : _events->countEventsForObject(receiver);
}

bool ThreadImpl::hasEventsForObject(Object* object)
{
    return _events->countEventsForObject(object) != 0 || Delivery::HasEvents(this, object);
}

bool ThreadImpl::registerObject(Object* object)
{
    const MutexLocker locker(&_objectsMutex);
    _objects.push_back(object);
    return true;
}

bool ThreadImpl::unlistObject(Object* object)
{
    const MutexLocker locker(&_objectsMutex);
    const auto entry = std::find(_objects.begin(), _objects.end(), object);
    if (entry == _objects.end())
        return false;
    _objects.erase(entry);
    return true;
}

bool ThreadImpl::unregisterObject(Object* object)
{
    if (_dying) {
        // The list goes with the thread. Events that still wait have nobody to go to any more.
        Delivery rest(this, object);
        while (Event* const event = rest.next())
            event->destroy();
        return true;
    }
    const bool wasListed = unlistObject(object);
    if (!wasListed)
        WarnNotListed();
    return wasListed;
}

void ThreadImpl::WarnNotListed()
{
    Logger::Warning("Thread", "Error removing object from affinity thread, its not attached (?\?)");
}

bool ThreadImpl::isListed(const Object* object)
{
    const MutexLocker locker(&_objectsMutex);
    return std::find(_objects.begin(), _objects.end(), object) != _objects.end();
}

std::vector<Object*> ThreadImpl::listedObjects()
{
    const MutexLocker locker(&_objectsMutex);
    return _objects;
}

// The list is not locked while an object moves: the move takes the object's mutex, which comes first in the order of
// the two, and runs handlers, which may create, delete and move other objects of this thread.
bool ThreadImpl::checkOrpheanObjects()
{
    std::vector<Object*> orphans = listedObjects();
    if (orphans.empty())
        return true;

    Thread* const heir = Application::MainApplicationThread();
    if (heir == nullptr || heir == _owner) {
        // The main thread has nobody to hand its objects to. They are unlisted all the same, in one step with being
        // looked up, because others may be moving objects here.
        orphans.clear();
        {
            const MutexLocker locker(&_objectsMutex);
            orphans.swap(_objects);
        }
        warnOfOrphans(orphans);
        return false;
    }
    while (!orphans.empty()) {
        warnOfOrphans(orphans);
        for (Object* const orphan : orphans) {
            if (isListed(orphan))  // else a handler of one that moved before it deleted or moved it
                orphan->moveToThread(heir);
        }
        orphans = listedObjects();  // what the handlers left here
    }
    return false;
}

Thread* ThreadImpl::CurrentThread()
{
    return Application::CurrentThread();
}

Thread::Thread() : _impl(new ThreadImpl(this)) {}

Thread::~Thread()
{
    ThreadImpl* const impl = _impl;
    _impl = nullptr;
    delete impl;
}

void Thread::run()
{
    exec();
}

void Thread::start()
{
    ThreadImpl::Of(this)->start();
}

void Thread::stop()
{
    ThreadImpl::Of(this)->stop();
}

void Thread::join()
{
    ThreadImpl::Of(this)->join();
}

void Thread::exec()
{
    ThreadImpl::Of(this)->exec();
}

void Thread::wakeUp()
{
    ThreadImpl::Of(this)->wakeUp();
}

void Thread::setJoinable(bool joinable)
{
    ThreadImpl::Of(this)->setJoinable(joinable);
}

bool Thread::isJoinable() const
{
    return ThreadImpl::Of(this)->isJoinable();
}

bool Thread::isRunning() const
{
    return ThreadImpl::Of(this)->isRunning();
}

bool Thread::isCurrentThread() const
{
    return ThreadImpl::Of(this)->isCurrentThread();
}

void Thread::postEvent(Event* event)
{
    ThreadImpl::Of(this)->postEvent(event);
}

bool Thread::processEvents(bool mayBlock)
{
    return ThreadImpl::Of(this)->processEvents(mayBlock);
}

void Thread::processEventsForObject(Object* receiver)
{
    ThreadImpl::Of(this)->processEventsForObject(receiver);
}

unsigned int Thread::countEventsForObject(Object* receiver)
{
    return ThreadImpl::Of(this)->countEventsForObject(receiver);
}

Thread* Thread::CurrentThread()
{
    return ThreadImpl::CurrentThread();
}

}  // namespace Murn
