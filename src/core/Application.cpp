// The process-wide runtime.
#include "Application.h"

#include <glib.h>

#include <algorithm>

#include "AffinityLock.h"
#include "ApplicationGlib.h"
#include "Check.h"
#include "Event.h"
#include "Logger.h"
#include "MutexLocker.h"
#include "Object.h"
#include "Thread.h"
#include "ThreadImpl.h"

namespace Murn {

std::atomic<Application*> Application::_Instance(nullptr);

namespace {

// Takes the first thread that waits for collection out of the list; null when there is none. A thread that handed over
// itself and is still at work cannot wait for itself: it is left for another one to collect.
Thread* nextGarbage(ApplicationGlib* impl)
{
    const MutexLocker locker(&impl->_garbageMutex);
    std::list<Thread*>& garbage = impl->_garbage;
    const auto entry =
        std::find_if(garbage.begin(), garbage.end(), [](const Thread* thread) { return !thread->isCurrentThread(); });
    if (entry == garbage.end())
        return nullptr;
    Thread* const thread = *entry;
    garbage.erase(entry);
    return thread;
}

// The list is not locked while a thread is stopped, joined and deleted: its last handlers may hand over others.
void Application_doThreadGarbage(ApplicationGlib* impl)
{
    while (Thread* const thread = nextGarbage(impl)) {
        // A loop that has yet to begin would not hear of the stop, and the join would never end.
        ThreadImpl::Of(thread)->retire();
        thread->stop();
        thread->join();
        delete thread;
    }
}

}  // namespace

Application::Application(int argc, char** argv) : _impl(new ApplicationGlib)
{
    {
        const MutexLocker locker(&_impl->_registryMutex);
        Application* none = nullptr;
        const bool isTheOnlyApplication = _Instance.compare_exchange_strong(none, this);
        MURN_CHECK(isTheOnlyApplication);
        _impl->_threads = g_hash_table_new(nullptr, nullptr);
    }
    // Without memory, or with an argument that is null, there is to be no application: not half of one either.
    try {
        for (int index = 0; index < argc; ++index)
            _impl->_arguments.emplace_back(argv[index]);
        _impl->_mainThread = new Thread;
    } catch (...) {
        forget();
        throw;
    }
    ThreadImpl::Of(_impl->_mainThread)->adoptCallingThread();
    RegisterThread(_impl->_mainThread);
}

Application::~Application()
{
    Application_doThreadGarbage(_impl);
    UnregisterThread(_impl->_mainThread);
    delete _impl->_mainThread;  // its last events are delivered here
    _impl->_mainThread = nullptr;
    // Threads that the last events handed over are not collected any more.
    forget();
}

void Application::forget()
{
    {
        const MutexLocker locker(&_impl->_registryMutex);
        _Instance = nullptr;
        g_hash_table_destroy(_impl->_threads);
        _impl->_threads = nullptr;
        _impl->_arguments.clear();
    }
    delete _impl;
    _impl = nullptr;
}

void Application::exec()
{
    _impl->_mainThread->exec();
}

void Application::Quit()
{
    MainApplicationThread()->stop();
}

std::vector<std::string> Application::Arguments()
{
    Application* const application = _Instance;
    MURN_CHECK(application != nullptr);
    const MutexLocker locker(&application->_impl->_registryMutex);
    return application->_impl->_arguments;
}

Thread* Application::MainApplicationThread()
{
    Application* const application = _Instance;
    if (application == nullptr) {
        Logger::Warning("PAL", "The Application was not instantiated !");
        return nullptr;
    }
    return application->_impl->_mainThread;
}

Thread* Application::CurrentThread()
{
    Application* const application = _Instance;
    if (application == nullptr)
        return nullptr;
    const MutexLocker locker(&application->_impl->_registryMutex);
    return static_cast<Thread*>(g_hash_table_lookup(application->_impl->_threads, g_thread_self()));
}

bool Application::isExternalThreadAlreadyRegistered()
{
    return CurrentThread() != nullptr;
}

void Application::ProcessEvents(bool mayBlock)
{
    Thread* const thread = CurrentThread();
    if (thread == nullptr)
        Logger::Warning("PAL", "Trying to process events from an unregistered thread !");
    else
        thread->processEvents(mayBlock);
}

void Application::RegisterThread(Thread* thread)
{
    Application* const application = _Instance;
    MURN_CHECK(application != nullptr);
    MURN_CHECK(CurrentThread() == nullptr);
    const MutexLocker locker(&application->_impl->_registryMutex);
    g_hash_table_insert(application->_impl->_threads, g_thread_self(), thread);
}

void Application::UnregisterThread(Thread* thread)
{
    Application* const application = _Instance;
    MURN_CHECK(application != nullptr);
    MURN_CHECK(CurrentThread() == thread);
    const MutexLocker locker(&application->_impl->_registryMutex);
    g_hash_table_remove(application->_impl->_threads, g_thread_self());
}

void Application::RegisterExternalThread()
{
    MURN_CHECK(CurrentThread() == nullptr);
    auto* const thread = new Thread;
    ThreadImpl::Of(thread)->adoptCallingThread();
    RegisterThread(thread);
}

void Application::UnregisterExternalThread()
{
    Thread* const thread = CurrentThread();
    MURN_CHECK(thread != nullptr);
    ThreadImpl::Of(thread)->checkOrpheanObjects();
    UnregisterThread(thread);
    delete thread;
}

void Application::PostEvent(Object* target, Event* event)
{
    {
        const AffinityLock lock(target);
        if (Thread* const thread = target->thread()) {
            event->_receiver = target;
            thread->postEvent(event);
            return;
        }
    }
    Logger::Error("PAL", "Impossible to post event to an object without a thread affinity !");
}

void Application::SendEvent(Object* target, Event& event)
{
    MURN_CHECK(target->thread() ? target->thread()->isCurrentThread() : true);
    target->event(&event);
}

void Application::DispatchEvent(Object* target, Event* event)
{
    bool isElsewhere = false;
    {
        // The lock keeps a thread that the object may be leaving alive until it was asked.
        const AffinityLock lock(target);
        Thread* const thread = target->thread();
        isElsewhere = thread != nullptr && !thread->isCurrentThread();
    }
    if (isElsewhere) {
        PostEvent(target, event);
        return;
    }
    SendEvent(target, *event);
    event->destroy();
}

void Application::AddToThreadGarbageCollector(Thread* thread)
{
    ApplicationGlib* const impl = _Instance.load()->_impl;
    if (impl == nullptr)
        return;
    Application_doThreadGarbage(impl);
    const MutexLocker locker(&impl->_garbageMutex);
    impl->_garbage.push_back(thread);
}

}  // namespace Murn
