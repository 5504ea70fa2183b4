// A thread that serves clients.
#include "WorkerThread.h"

#include <kxPAL/Application.h>

#include <utility>

#include "Worker.h"

WorkerThread::WorkerThread() : _worker(nullptr)
{
    _thread.setJoinable(true);
    _thread.start();
    if (!_thread.isRunning())
        return;
    _worker = new Worker(_counters);
    _worker->moveToThread(&_thread);
}

WorkerThread::~WorkerThread()
{
    finish();
    join();
}

bool WorkerThread::isRunning() const
{
    return _thread.isRunning();
}

void WorkerThread::serve(std::unique_ptr<Murn::TcpStream> stream)
{
    // The stream goes first, so that the worker finds it on its own thread and may arm a read there.
    stream->moveToThread(&_thread);
    Murn::Application::PostEvent(_worker, new NewStreamEvent(std::move(stream)));
}

void WorkerThread::finish()
{
    if (_worker == nullptr)
        return;
    _worker->destroy();  // after the streams that are still on their way to it
    _worker = nullptr;
}

void WorkerThread::join()
{
    if (_thread.isRunning())
        _thread.join();
}
