// An event handler that waits, and what is served meanwhile.
#include <kxPAL/Application.h>
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>
#include <kxPAL/Timer.h>

namespace {

class Patience : public Murn::Timer {
public:
    void timeout() override { _isOver = true; }

    bool _isOver = false;
};

int events = 0;
int eventsWhileWaiting = 0;

class Waiter : public Murn::Object {
public:
    static const unsigned int Wait = 100;

    void event(Murn::Event* event) override
    {
        if (event->_type != Wait) {
            Murn::Object::event(event);
            return;
        }
        ++events;
        if (events == 2) {
            destroy();
            Murn::Application::Quit();
            return;
        }
        Murn::Application::PostEvent(this, new Murn::Event(Wait, nullptr));
        // [wait]
        Patience patience;
        patience.start(10, nullptr);
        while (!patience._isOver)
            Murn::Application::ProcessEvents(true);  // timers, streams and servers go on; further events wait
        // [end]
        eventsWhileWaiting = events - 1;
    }
};

}  // namespace

int main(int argc, char** argv)
{
    Murn::Application application(argc, argv);
    Murn::Application::PostEvent(new Waiter, new Murn::Event(Waiter::Wait, nullptr));
    application.exec();
    return events == 2 && eventsWhileWaiting == 0 ? 0 : 1;
}
