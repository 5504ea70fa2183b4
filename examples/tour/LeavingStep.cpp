// Step: the main loop, and how it ends.
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>
#include <kxPAL/Thread.h>
#include <kxPAL/Timer.h>

#include <atomic>

#include "Steps.h"

namespace {

using Murn::Application;

/// Ends the main loop when an event reaches it, on whatever thread it lives, and goes.
class Gatekeeper : public Murn::Object {
public:
    enum : unsigned int { Close = 2 };

    explicit Gatekeeper(std::atomic<bool>& askedFromElsewhere) : _askedFromElsewhere(askedFromElsewhere) {}

    void event(Murn::Event* event) override
    {
        if (event->_type != Close) {
            Object::event(event);
            return;
        }
        _askedFromElsewhere = !Application::MainApplicationThread()->isCurrentThread();
        Application::Quit();
        delete this;  // allowed here; objects must be gone before their thread is
    }

private:
    std::atomic<bool>& _askedFromElsewhere;
};

/// Sends the gatekeeper its event from within the main loop: a Quit() that comes before the loop has begun is lost.
class ClosingTime : public Murn::Timer {
public:
    explicit ClosingTime(Murn::Object& gatekeeper) : _gatekeeper(gatekeeper) { start(1, nullptr); }

    void timeout() override
    {
        stop();
        Application::PostEvent(&_gatekeeper, new Murn::Event(Gatekeeper::Close, nullptr));
    }

private:
    Murn::Object& _gatekeeper;
};

Findings walk(Murn::Application& application)
{
    Findings findings;
    std::atomic<bool> askedFromElsewhere{false};
    auto* const thread = new Murn::Thread;
    thread->setJoinable(true);
    thread->start();
    auto* const gatekeeper = new Gatekeeper(askedFromElsewhere);
    gatekeeper->moveToThread(thread);

    say("A host spends its life in exec(), until somebody, here another thread, calls Quit().");
    const ClosingTime closingTime(*gatekeeper);
    application.exec();
    findings.check(askedFromElsewhere, "the main loop ran and ended when another thread asked it to");

    say("A thread that nobody needs any more goes to the application's collector, which");
    say("stops, joins and deletes it, at the latest when the application ends. That is now.");
    Application::AddToThreadGarbageCollector(thread);
    return findings;
}

}  // namespace

const Step leavingStep = {"Leaving", walk};
