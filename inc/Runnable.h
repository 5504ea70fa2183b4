// A unit of work for a pool of threads.
#ifndef MURN_RUNNABLE_H
#define MURN_RUNNABLE_H

#include "Export.h"

namespace Murn {

/// A unit of work. Derive from it, create it with `new`, and hand it to ThreadPool::run(), which takes it over: one of
/// the pool's workers calls run() and deletes the object right after it. Do not touch it once it is handed in.
class MURN_API Runnable {
public:
    Runnable() = default;
    /// Called on the worker that called run(), right after it.
    virtual ~Runnable();

    Runnable(const Runnable&) = delete;
    Runnable& operator=(const Runnable&) = delete;

    /// Called once, on a worker of the pool, which is a registered Thread: objects can be created here and events
    /// posted from here. It may hand in further units, as long as nobody has begun to destroy the pool. It must not
    /// throw: nothing catches the exception, and the process ends.
    virtual void run() = 0;
};

}  // namespace Murn

#endif
