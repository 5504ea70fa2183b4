// A worker thread with an object on it that answers questions from the main application thread.
#include <kxPAL/Application.h>
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>
#include <kxPAL/Thread.h>

namespace {

class Number : public Murn::Event {
public:
    static const unsigned int Question = 100;
    static const unsigned int Answer = 101;

    Number(unsigned int type, long value) : Event(type, nullptr), _value(value) {}

    long _value;
};

long answer = 0;

class Asker : public Murn::Object {
public:
    void event(Murn::Event* event) override
    {
        if (event->_type == Number::Answer) {
            answer = static_cast<Number*>(event)->_value;
            destroy();
            Murn::Application::Quit();
        } else {
            Murn::Object::event(event);
        }
    }
};

// [worker]
class Squarer : public Murn::Object {
public:
    static const unsigned int Finish = 102;

    explicit Squarer(Murn::Object* asker) : _asker(asker) {}

    void event(Murn::Event* event) override
    {
        if (event->_type == Number::Question) {
            const long value = static_cast<Number*>(event)->_value;
            Murn::Application::PostEvent(_asker, new Number(Number::Answer, value * value));
        } else if (event->_type == Finish) {
            destroy();                              // gone before the loop ends, ...
            Murn::Thread::CurrentThread()->stop();  // ... which is running for certain, so that it hears of the stop
        } else {
            Murn::Object::event(event);
        }
    }

private:
    Murn::Object* _asker;
};
// [end]

}  // namespace

int main(int argc, char** argv)
{
    // [main]
    Murn::Application application(argc, argv);
    Murn::Thread thread;
    thread.setJoinable(true);
    thread.start();

    auto* const asker = new Asker;             // bound to the main application thread
    auto* const squarer = new Squarer(asker);  // so is this one, ...
    squarer->moveToThread(&thread);            // ... until its own thread gives it away
    Murn::Application::PostEvent(squarer, new Number(Number::Question, 12));
    application.exec();  // until the asker has its answer and quits

    Murn::Application::PostEvent(squarer, new Murn::Event(Squarer::Finish, nullptr));
    thread.join();
    // [end]
    return answer == 144 ? 0 : 1;
}
