// A second thread with a loop, for as long as a step needs it.
#include "LoopThread.h"

namespace {

/// The last object of a thread: when it goes, the loop ends. A stop() from outside could come before the loop began
/// and be forgotten, and it would not wait for what is still posted to the thread.
class LastObject : public Murn::Object {
public:
    ~LastObject() override { Murn::Thread::CurrentThread()->stop(); }
};

}  // namespace

LoopThread::LoopThread() : _last(new LastObject)
{
    _thread.setJoinable(true);
    _thread.start();
    _last->moveToThread(&_thread);
}

LoopThread::~LoopThread()
{
    _last->destroy();
    _thread.join();
}
