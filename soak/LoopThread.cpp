// A thread with a loop.
#include "LoopThread.h"

namespace {

// When it goes, the loop ends. A stop() from outside could come before the loop began and be forgotten.
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
    finish();
}

void LoopThread::finish()
{
    if (_last == nullptr)
        return;
    _last->destroy();
    _last = nullptr;
    _thread.join();
}
