// A thread that connections live on.
#include "EchoLoop.h"

#include <kxPAL/Application.h>
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>

#include "EchoConnection.h"

namespace {

constexpr unsigned int beginType = 2;

}  // namespace

class EchoLoop::Hub : public Murn::Object {
public:
    void event(Murn::Event* event) override
    {
        if (event->_type == beginType)
            static_cast<EchoConnection*>(event->_data)->begin();
        else
            Object::event(event);
    }
};

EchoLoop::EchoLoop() : _hub(new Hub)
{
    _hub->moveToThread(_loop.thread());
}

EchoLoop::~EchoLoop()
{
    finish();
}

void EchoLoop::finish()
{
    if (_hub == nullptr)
        return;
    _hub->destroy();
    _hub = nullptr;
    _loop.finish();
}

void EchoLoop::begin(EchoConnection* connection)
{
    Murn::Application::PostEvent(_hub, new Murn::Event(beginType, connection));
}
