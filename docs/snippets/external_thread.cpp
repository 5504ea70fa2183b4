// A thread that the runtime did not start takes part in it.
#include <kxPAL/Application.h>
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>

#include <future>
#include <thread>

namespace {

class Listener : public Murn::Object {
public:
    static const unsigned int Heard = 100;

    void event(Murn::Event* event) override
    {
        if (event->_type == Heard)
            _done = true;
        else
            Murn::Object::event(event);
    }

    bool _done = false;
};

}  // namespace

int main(int argc, char** argv)
{
    Murn::Application application(argc, argv);
    std::promise<Listener*> made;

    // [foreign]
    std::thread foreign([&made] {
        Murn::Application::RegisterExternalThread();
        {
            Listener listener;  // bound to this thread
            made.set_value(&listener);
            while (!listener._done)
                Murn::Application::ProcessEvents(true);  // sleeps until something is posted
        }
        Murn::Application::UnregisterExternalThread();
    });
    // [end]

    Murn::Application::PostEvent(made.get_future().get(), new Murn::Event(Listener::Heard, nullptr));
    foreign.join();
    return 0;
}
