// The smallest host: one object on the main application thread, and one event for it.
#include <kxPAL/Application.h>
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>

#include <cstdio>

// [program]
class Greeter : public Murn::Object {
public:
    static const unsigned int Greet = 100;  // any type but 1

    void event(Murn::Event* event) override
    {
        if (event->_type == Greet) {
            std::printf("Hello from the loop.\n");
            destroy();                  // deleted after this handler ...
            Murn::Application::Quit();  // ... and before exec() returns
        } else {
            Murn::Object::event(event);  // type 1, the request to delete, is the base's business
        }
    }
};

int main(int argc, char** argv)
{
    Murn::Application application(argc, argv);
    Murn::Application::PostEvent(new Greeter, new Murn::Event(Greeter::Greet, nullptr));
    application.exec();
    return 0;
}
// [end]
