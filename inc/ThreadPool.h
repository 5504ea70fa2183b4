// A fixed number of threads that share the work.
#ifndef MURN_THREAD_POOL_H
#define MURN_THREAD_POOL_H

#include "Export.h"

namespace Murn {

class Runnable;
class ThreadPoolImpl;

/// Runs units of work on a fixed number of worker threads, which all take from one queue (`GAsyncQueue`). The pool
/// works from its constructor to its destructor; it cannot be paused or resized.
///
/// The workers are ordinary joinable Threads, but what they wait for is the next unit, and not their loop. After each
/// unit a worker runs one iteration of its loop that does not wait, so what has come for the objects, timers and
/// streams on it is served then. After that it hands the objects that are still bound to it to the main application
/// thread, with a warning for each. So an object that a unit creates is to be gone by the end of the unit, or by way
/// of destroy(); results are posted to objects on other threads. An idle worker serves nothing: what comes meanwhile
/// waits until its next unit is done, or until the pool ends, when each worker does all this a last time.
class MURN_API ThreadPool {
public:
    /// Starts the workers. There must be an application. A worker that the system refuses is reported in the log, and
    /// the others do its work.
    /// @param count  how many workers; not negative. A pool of none keeps what is handed to it and runs nothing.
    explicit ThreadPool(int count);
    /// Any thread but the pool's own workers; the application must still be there. Waits until all units that were
    /// handed in before have run, and the workers have ended. A unit that was handed in meanwhile, by others or by a
    /// unit that ran, and found no worker any more ends the process through a fatal check, because it would be lost; so
    /// does any unit in a pool without workers.
    ~ThreadPool();

    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    /// Any thread, also from a unit that runs. Hands in a unit of work and returns at once. One worker takes the units
    /// in the order of the hand-overs; between several there is no order.
    /// @param runnable  the pool's from now on; null ends the process through a fatal check
    void run(Runnable* runnable);

private:
    ThreadPoolImpl* _impl;  // owned
};

}  // namespace Murn

#endif
