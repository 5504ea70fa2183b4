// A second thread with a loop, for as long as a step needs it.
#ifndef TOUR_LOOP_THREAD_H
#define TOUR_LOOP_THREAD_H

#include <kxPAL/Object.h>
#include <kxPAL/Thread.h>

/// A thread that runs its loop while this object lives. The main application thread makes it and ends it.
class LoopThread {
public:
    LoopThread();
    /// Ends the loop, after everything that was posted to the thread before, and waits for the thread's end.
    ~LoopThread();

    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;

    Murn::Thread* thread() { return &_thread; }

private:
    Murn::Thread _thread;
    Murn::Object* _last;  // deletes itself on the thread
};

#endif
