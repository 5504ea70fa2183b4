// A component as hosts in C have them: written in C++, used through C.
#include "CComponent.h"

#include <kxPAL/Application.h>
#include <kxPAL/Event.h>
#include <kxPAL/LogHandler.h>
#include <kxPAL/Logger.h>
#include <kxPAL/Object.h>
#include <kxPAL/Thread.h>

#include <mutex>
#include <thread>

namespace {

class Counter : public Murn::Object {
public:
    struct Last {
        int count = 0;
        unsigned int type = 0;
        void* data = nullptr;
        std::thread::id thread;
    };

    void event(Murn::Event* event) override
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        _last = {_last.count + 1, event->_type, event->_data, std::this_thread::get_id()};
    }

    Last last() const
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _last;
    }

private:
    mutable std::mutex _mutex;
    Last _last;  // guarded by _mutex
};

class Quitter : public Murn::Object {
public:
    explicit Quitter(int* cameOnMainThread) : _cameOnMainThread(cameOnMainThread) {}

    void event(Murn::Event* event) override
    {
        if (event->_type == 1) {
            Object::event(event);
            return;
        }
        *_cameOnMainThread = Murn::Application::MainApplicationThread()->isCurrentThread() ? 1 : 0;
        destroy();
        Murn::Application::Quit();
    }

private:
    int* _cameOnMainThread;
};

Counter* counterOf(Murn_Object* object)
{
    return static_cast<Counter*>(object);
}

}  // namespace

Murn_Object* component_new_counter()
{
    return new Counter;
}

void component_delete_counter(Murn_Object* counter)
{
    delete counter;
}

int component_count(Murn_Object* counter)
{
    return counterOf(counter)->last().count;
}

unsigned int component_last_type(Murn_Object* counter)
{
    return counterOf(counter)->last().type;
}

void* component_last_data(Murn_Object* counter)
{
    return counterOf(counter)->last().data;
}

int component_last_came_here(Murn_Object* counter)
{
    return counterOf(counter)->last().thread == std::this_thread::get_id() ? 1 : 0;
}

Murn_Object* component_new_quitter(int* came_on_main_thread)
{
    return new Quitter(came_on_main_thread);
}

int component_argument_count()
{
    return static_cast<int>(Murn::Application::Arguments().size());
}

int component_argument_is(int index, const char* text)
{
    return Murn::Application::Arguments().at(static_cast<std::size_t>(index)) == text ? 1 : 0;
}

int component_has_application()
{
    // Asking without one is answered, but with a warning.
    const unsigned int levels = Murn::Logger::__logLevelMask;
    Murn::Logger::__logLevelMask = 0;
    const bool has = Murn::Application::MainApplicationThread() != nullptr;
    Murn::Logger::__logLevelMask = levels;
    return has ? 1 : 0;
}

int component_is_registered()
{
    return Murn::Application::CurrentThread() != nullptr ? 1 : 0;
}

void component_unregister()
{
    Murn::Application::UnregisterExternalThread();
}
