// A thread that serves clients.
#ifndef ECHO_SERVER_WORKER_THREAD_H
#define ECHO_SERVER_WORKER_THREAD_H

#include <kxPAL/TcpStream.h>
#include <kxPAL/Thread.h>

#include <memory>

#include "Statistics.h"

class Worker;

/// A started thread and the worker on it. All operations belong on the thread that made it.
class WorkerThread {
public:
    /// Starts the thread; see isRunning().
    WorkerThread();
    /// Does what is left to do of finish() and join().
    ~WorkerThread();

    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    /// @return false when the system refused the thread; nothing can be served then
    bool isRunning() const;

    /// Hands a stream over.
    /// @param stream  attached to the calling thread, with no read armed
    void serve(std::unique_ptr<Murn::TcpStream> stream);
    /// Begins to close all connections, on their own thread, without waiting for it. Nothing can be served any more.
    void finish();
    /// Waits until the thread has ended, which takes a finish().
    void join();

    const Counters& counters() const { return _counters; }

private:
    Counters _counters;
    Murn::Thread _thread;
    Worker* _worker;  // null when there is nothing left to finish
};

#endif
