// A thread with a loop.
#ifndef SOAK_LOOP_THREAD_H
#define SOAK_LOOP_THREAD_H

#include <kxPAL/Object.h>
#include <kxPAL/Thread.h>

/// A joinable thread that runs its loop until it is finished. All operations belong on the thread that made it.
class LoopThread {
public:
    LoopThread();
    /// Does what is left of finish().
    ~LoopThread();

    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;

    /// Ends the loop, after everything that was posted to the thread before, and waits for the thread's end. The
    /// Thread is still there afterwards, for what is attached to it.
    void finish();

    Murn::Thread* thread() { return &_thread; }

private:
    Murn::Thread _thread;
    Murn::Object* _last;  // deletes itself on the thread; null once finished
};

#endif
