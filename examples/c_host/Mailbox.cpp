// A component in C++ with an interface in C: an object that hands its events to a function of the host.
#include "Mailbox.h"

#include <kxPAL/Application.h>
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>

namespace {

class Mailbox : public Murn::Object {
public:
    Mailbox(mailbox_handler handler, void* context) : _handler(handler), _context(context) {}

    void event(Murn::Event* event) override
    {
        if (event->_type == 1)
            Object::event(event);
        else
            _handler(event, _context);
    }

private:
    const mailbox_handler _handler;
    void* const _context;
};

}  // namespace

Murn_Object* mailbox_create(mailbox_handler handler, void* context)
{
    return new Mailbox(handler, context);
}

void mailbox_delete(Murn_Object* mailbox)
{
    delete mailbox;
}

void mailbox_leave_thread()
{
    Murn::Application::UnregisterExternalThread();
}
