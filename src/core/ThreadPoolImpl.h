// What is behind ThreadPool: its record, and its workers. Private.
#ifndef MURN_THREAD_POOL_IMPL_H
#define MURN_THREAD_POOL_IMPL_H

#include <glib.h>

#include <cstddef>
#include <span>

#include "Thread.h"

namespace Murn {

class ThreadPoolImpl;

/// A worker: runs what it takes from the pool's queue until it finds the stop marker there.
class ThreadPoolThread : public Thread {
public:
    ThreadPoolThread();

    void run() override;

    ThreadPoolImpl* _pool;  // not owned; set before the thread starts

private:
    void serveLoop();
};

/// What the pool keeps. Nothing changes from the start of the first worker to the end of the last one but the queue,
/// which has its own lock.
class ThreadPoolImpl {
public:
    explicit ThreadPoolImpl(int count);
    /// The workers have ended.
    ~ThreadPoolImpl();

    ThreadPoolImpl(const ThreadPoolImpl&) = delete;
    ThreadPoolImpl& operator=(const ThreadPoolImpl&) = delete;

    void startWorkers();
    void stopWorkers();
    void joinWorkers();
    std::span<ThreadPoolThread> workers() { return {_threads, static_cast<std::size_t>(_count)}; }

    GAsyncQueue* _queue;         // one reference; each started worker has another
    gint32 _count;               // as given
    ThreadPoolThread* _threads;  // owned, _count of them
};

}  // namespace Murn

#endif
