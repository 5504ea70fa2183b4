// An event type of the host's own, and the three ways to hand an event over.
#include <kxPAL/Application.h>
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>

// [own event]
class Measurement : public Murn::Event {
public:
    static const unsigned int Type = 101;

    explicit Measurement(double value) : Event(Type, nullptr), _value(value) {}

    double _value;
};

class Meter : public Murn::Object {
public:
    void event(Murn::Event* event) override
    {
        if (event->_type == Measurement::Type)
            _sum += static_cast<Measurement*>(event)->_value;
        else
            Murn::Object::event(event);
    }

    double _sum = 0;
};
// [end]

int main(int argc, char** argv)
{
    Murn::Application application(argc, argv);
    Meter meter;

    // [three ways]
    // Queued: the meter's thread delivers it and disposes of it.
    Murn::Application::PostEvent(&meter, new Measurement(1));

    // At once, on the meter's own thread only; the event stays ours.
    Measurement measurement(10);
    Murn::Application::SendEvent(&meter, measurement);

    // At once on the meter's own thread, queued from any other; the event is the runtime's either way.
    Murn::Application::DispatchEvent(&meter, new Measurement(100));
    // [end]

    const bool sentAtOnce = meter._sum > 109;
    Murn::Application::ProcessEvents(false);
    const bool postedLater = meter._sum > 110;
    return sentAtOnce && postedLater ? 0 : 1;
}
