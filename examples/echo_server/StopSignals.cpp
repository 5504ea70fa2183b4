// SIGINT and SIGTERM as ordinary ends of the main loop.
#include "StopSignals.h"

#include <kxPAL/Application.h>
#include <kxPAL/Event.h>

namespace {

/// Ends the main loop from within: a Quit() from outside is lost when the loop has yet to begin, whereas an event
/// waits for it.
class Quitter : public Murn::Object {
public:
    enum : unsigned int { Quit = 2 };

    void event(Murn::Event* event) override
    {
        if (event->_type != Quit) {
            Object::event(event);
            return;
        }
        Murn::Application::Quit();
        delete this;  // now, since a loop that ends wants to leave no objects behind
    }
};

}  // namespace

StopSignals::StopSignals() : _signals(), _quitter(new Quitter)
{
    sigemptyset(&_signals);
    sigaddset(&_signals, SIGINT);
    sigaddset(&_signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &_signals, nullptr);
}

StopSignals::~StopSignals()
{
    if (isRunning())
        join();
    else
        delete _quitter;
}

bool StopSignals::begin()
{
    setJoinable(true);
    start();
    return isRunning();
}

void StopSignals::run()
{
    int signal = 0;
    sigwait(&_signals, &signal);
    Murn::Application::PostEvent(_quitter, new Murn::Event(Quitter::Quit, nullptr));
}
