// The queue behind EventQueue. Private.
#ifndef MURN_EVENT_QUEUE_IMPL_H
#define MURN_EVENT_QUEUE_IMPL_H

#include <glib.h>

#include <vector>

namespace Murn {

class Event;
class Object;

/// A GLib asynchronous queue of events. See EventQueue for the operations and their threads.
///
/// An item that equals the address of this object is a marker, reserved for waking up whoever waits on the queue.
/// The runtime queues none, but every operation recognises it: it counts as pending, it is never delivered, and
/// whatever scans the queue drops it.
class EventQueueImpl {
public:
    EventQueueImpl();
    virtual ~EventQueueImpl();

    EventQueueImpl(const EventQueueImpl&) = delete;
    EventQueueImpl& operator=(const EventQueueImpl&) = delete;

    void enqueueEvent(Event* event);
    bool hasPendingEvents() const;
    void processEvents();
    std::vector<Event*>* getEventsForObject(Object* receiver);
    unsigned int countEventsForObject(Object* receiver);

private:
    std::vector<Event*> popAll();
    void pushBack(const std::vector<Event*>& events);

    GAsyncQueue* _asyncQueue;  // one reference
};

}  // namespace Murn

#endif
