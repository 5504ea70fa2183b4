// Step: a host without classes.
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>
#include <kxPAL/Thread.h>

#include <atomic>

#include "LoopThread.h"
#include "PlainC.h"
#include "Pump.h"
#include "Steps.h"

namespace {

/// Lets plain C look at its events.
class Listener : public Murn::Object {
public:
    explicit Listener(std::atomic<int>& atHome) : _atHome(atHome) {}

    void event(Murn::Event* event) override
    {
        if (event->_type == 1)
            Object::event(event);  // the request to delete this object
        else if (plain_c_knows(event) != 0 && thread()->isCurrentThread())
            ++_atHome;
    }

private:
    std::atomic<int>& _atHome;
};

Findings walk(Murn::Application&)
{
    Findings findings;
    std::atomic<int> here{0};
    std::atomic<int> there{0};
    {
        say("Functions in plain C make events and hand them to two objects, one of them on another thread.");
        LoopThread worker;
        auto* const onMain = new Listener(here);
        auto* const onWorker = new Listener(there);
        onWorker->moveToThread(worker.thread());

        plain_c_dispatches(onMain);
        findings.check(here == 1, "the object of the calling thread had its event at once");
        plain_c_dispatches(onWorker);
        findings.check(pumpUntil([&] { return there == 1; }), "the other had it on its own thread");

        onMain->destroy();
        onWorker->destroy();
    }
    findings.check(pumpUntil([&] { return Murn::Thread::CurrentThread()->processEvents(false) == false; }),
                   "nothing is left to deliver");
    findings.check(plain_c_reads_back() != 0, "C reads back what an event was made with");
    return findings;
}

}  // namespace

const Step cInterfaceStep = {"Dispatching events from plain C", walk};
