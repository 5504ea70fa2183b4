// Threads that share the work.
#include "ThreadPool.h"

#include <glib.h>

#include <cstddef>
#include <memory>

#include "Check.h"
#include "Runnable.h"
#include "ThreadImpl.h"
#include "ThreadPoolImpl.h"

namespace Murn {

namespace {

// Its address in the queue tells a worker to end, since a GLib queue cannot carry a null pointer.
char stopMarker;

}  // namespace

Runnable::~Runnable() = default;

ThreadPoolThread::ThreadPoolThread() : _pool(nullptr)
{
    setJoinable(true);
}

void ThreadPoolThread::run()
{
    for (;;) {
        gpointer const item = g_async_queue_pop(_pool->_queue);
        if (item == &stopMarker)
            break;
        auto* const runnable = static_cast<Runnable*>(item);
        runnable->run();
        delete runnable;
        serveLoop();
    }
    serveLoop();  // for what came after the last unit
}

void ThreadPoolThread::serveLoop()
{
    processEvents(false);
    ThreadImpl::Of(this)->checkOrpheanObjects();
}

ThreadPoolImpl::ThreadPoolImpl(int count) : _queue(g_async_queue_new()), _count(count), _threads(nullptr) {}

ThreadPoolImpl::~ThreadPoolImpl()
{
    delete[] _threads;
    MURN_CHECK(g_async_queue_length(_queue) == 0);
    g_async_queue_unref(_queue);
}

// From here to the end of joinWorkers() the workers use the record.
void ThreadPoolImpl::startWorkers()
{
    for (ThreadPoolThread& worker : workers()) {
        worker._pool = this;
        g_async_queue_ref(_queue);
        worker.start();
    }
}

// One marker for each worker, behind all the work. A worker that the system refused takes none.
void ThreadPoolImpl::stopWorkers()
{
    for (const ThreadPoolThread& worker : workers()) {
        if (worker.isRunning())
            g_async_queue_push(_queue, &stopMarker);
    }
}

void ThreadPoolImpl::joinWorkers()
{
    for (ThreadPoolThread& worker : workers()) {
        if (worker.isRunning())
            worker.join();
        g_async_queue_unref(_queue);
    }
}

ThreadPool::ThreadPool(int count) : _impl(nullptr)
{
    // Until the workers have started, an exception takes the record along.
    auto impl = std::make_unique<ThreadPoolImpl>(count);
    impl->_threads = new ThreadPoolThread[static_cast<std::size_t>(count)];
    impl->startWorkers();
    _impl = impl.release();
}

ThreadPool::~ThreadPool()
{
    if (_impl == nullptr)
        return;
    _impl->stopWorkers();
    _impl->joinWorkers();
    delete _impl;
}

void ThreadPool::run(Runnable* runnable)
{
    MURN_CHECK(runnable);
    g_async_queue_push(_impl->_queue, runnable);
}

}  // namespace Murn
