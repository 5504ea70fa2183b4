// The events that wait for one thread.
#include "EventQueue.h"

#include <glib.h>

#include <algorithm>

#include "Check.h"
#include "Event.h"
#include "EventQueueImpl.h"
#include "Object.h"

namespace Murn {

namespace {

// A leftover event would leave its sender waiting for ever: whoever owns a queue drains it first.
void onQueueItemDiscarded(gpointer /*item*/)
{
    MURN_CHECK(false);
}

// Holds GAsyncQueue's own lock, so that no other thread's push comes in between.
class QueueLock {
public:
    explicit QueueLock(GAsyncQueue* queue) : _queue(queue) { g_async_queue_lock(_queue); }
    ~QueueLock() { g_async_queue_unlock(_queue); }

    QueueLock(const QueueLock&) = delete;
    QueueLock& operator=(const QueueLock&) = delete;

private:
    GAsyncQueue* _queue;
};

}  // namespace

EventQueueImpl::EventQueueImpl() : _asyncQueue(g_async_queue_new_full(onQueueItemDiscarded)) {}

EventQueueImpl::~EventQueueImpl()
{
    g_async_queue_unref(_asyncQueue);
}

void EventQueueImpl::enqueueEvent(Event* event)
{
    g_async_queue_push(_asyncQueue, event);
}

bool EventQueueImpl::hasPendingEvents() const
{
    return g_async_queue_length(_asyncQueue) > 0;
}

void EventQueueImpl::processEvents()
{
    while (gpointer const item = g_async_queue_try_pop(_asyncQueue)) {
        if (item == this)
            continue;
        auto* const event = static_cast<Event*>(item);
        event->_receiver->event(event);
        event->destroy();
    }
}

std::vector<Event*>* EventQueueImpl::getEventsForObject(Object* receiver)
{
    const QueueLock lock(_asyncQueue);
    auto* const found = new std::vector<Event*>;
    std::vector<Event*> kept;
    for (Event* const event : popAll())
        (event->_receiver == receiver ? *found : kept).push_back(event);
    pushBack(kept);
    return found;
}

unsigned int EventQueueImpl::countEventsForObject(Object* receiver)
{
    const QueueLock lock(_asyncQueue);
    const std::vector<Event*> events = popAll();
    pushBack(events);
    return static_cast<unsigned int>(std::count_if(
        events.begin(), events.end(), [receiver](const Event* event) { return event->_receiver == receiver; }));
}

// Empties the locked queue, in order and without the markers.
std::vector<Event*> EventQueueImpl::popAll()
{
    std::vector<Event*> events;
    while (gpointer const item = g_async_queue_try_pop_unlocked(_asyncQueue)) {
        if (item != this)
            events.push_back(static_cast<Event*>(item));
    }
    return events;
}

void EventQueueImpl::pushBack(const std::vector<Event*>& events)
{
    for (Event* const event : events)
        g_async_queue_push_unlocked(_asyncQueue, event);
}

EventQueue::EventQueue() : _impl(new EventQueueImpl) {}

EventQueue::~EventQueue()
{
    EventQueueImpl* const impl = _impl;
    _impl = nullptr;
    delete impl;
}

void EventQueue::enqueueEvent(Event* event)
{
    _impl->enqueueEvent(event);
}

bool EventQueue::hasPendingEvents() const
{
    return _impl->hasPendingEvents();
}

void EventQueue::processEvents()
{
    _impl->processEvents();
}

std::vector<Event*>* EventQueue::getEventsForObject(Object* receiver)
{
    return _impl->getEventsForObject(receiver);
}

unsigned int EventQueue::countEventsForObject(Object* receiver)
{
    return _impl->countEventsForObject(receiver);
}

}  // namespace Murn
