// A value that one thread makes for another, handed over in one of two ways: through the library, or, to see whether
// the thread sanitizer of the build notices, through plain memory.
#include <kxPAL/Application.h>
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>
#include <kxPAL/Thread.h>

#include <cstdio>
#include <cstring>

using Murn::Application;
using Murn::Event;
using Murn::Object;
using Murn::Thread;

namespace {

struct Parcel {
    volatile int value = 0;  // volatile keeps the loop that waits for it, and orders nothing
};

class Receiver : public Object {
public:
    void event(Event* event) override
    {
        if (event->_type == 1) {
            Object::event(event);
            return;
        }
        const Parcel* const parcel = static_cast<const Parcel*>(event->_data);
        std::printf("%d by event\n", parcel->value);
        destroy();
        Application::Quit();
    }
};

class Sender : public Thread {
public:
    Sender(Parcel& parcel, Receiver* receiver) : _parcel(parcel), _receiver(receiver) { setJoinable(true); }

    void run() override
    {
        _parcel.value = 42;
        if (_receiver != nullptr)
            Application::PostEvent(_receiver, new Event(7, &_parcel));
    }

private:
    Parcel& _parcel;
    Receiver* _receiver;
};

void handOverByEvent(Application& application)
{
    Parcel parcel;
    Sender sender(parcel, new Receiver);
    sender.start();
    application.exec();
    sender.join();
}

void handOverByMemory()
{
    Parcel parcel;
    Sender sender(parcel, nullptr);
    sender.start();
    while (parcel.value == 0) {
    }
    std::printf("%d by memory\n", parcel.value);
    sender.join();
}

}  // namespace

int main(int argc, char** argv)
{
    Application application(argc, argv);
    if (argc == 2 && std::strcmp(argv[1], "event") == 0)
        handOverByEvent(application);
    else
        handOverByMemory();
    return 0;
}
