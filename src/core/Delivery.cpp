// The way of one object's events from its thread's queue to its handler.
#include "Delivery.h"

#include <memory>

#include "EventQueue.h"
#include "MutexLocker.h"

namespace Murn {

ThreadImpl::Delivery::Delivery(ThreadImpl* thread, Object* receiver)
    : _thread(thread), _receiver(receiver), _position(0), _outer(nullptr)
{
    const MutexLocker locker(&_thread->_objectsMutex);
    _outer = _thread->_deliveries;
    _thread->_deliveries = this;
}

ThreadImpl::Delivery::~Delivery()
{
    const MutexLocker locker(&_thread->_objectsMutex);
    Delivery** link = &_thread->_deliveries;
    while (*link != this)
        link = &(*link)->_outer;
    *link = _outer;
}

Event* ThreadImpl::Delivery::next()
{
    const MutexLocker locker(&_thread->_objectsMutex);
    Delivery* source = withEvents(_thread, _receiver);
    if (source == nullptr) {
        const std::unique_ptr<std::vector<Event*>> events(_thread->_events->getEventsForObject(_receiver));
        if (events->empty())
            return nullptr;
        _events.swap(*events);
        _position = 0;
        source = this;
    }
    return source->_events[source->_position++];
}

bool ThreadImpl::Delivery::HasEvents(ThreadImpl* thread, const Object* receiver)
{
    const MutexLocker locker(&thread->_objectsMutex);
    return withEvents(thread, receiver) != nullptr;
}

// There is one at most: nobody takes more out of the queue before it is empty.
ThreadImpl::Delivery* ThreadImpl::Delivery::withEvents(const ThreadImpl* thread, const Object* receiver)
{
    Delivery* delivery = thread->_deliveries;
    while (delivery != nullptr && (delivery->_receiver != receiver || delivery->_position == delivery->_events.size()))
        delivery = delivery->_outer;
    return delivery;
}

}  // namespace Murn
