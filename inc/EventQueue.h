// The events that wait for one thread.
#ifndef MURN_EVENT_QUEUE_H
#define MURN_EVENT_QUEUE_H

#include <vector>

#include "Export.h"

namespace Murn {

class Event;
class EventQueueImpl;
class Object;

/// The events posted to the objects of one thread, first in, first out. The queue owns the events in it; whoever
/// takes one out owns it. Every Thread has one; hosts post through Application and rarely meet it. Stands on
/// GLib's `GAsyncQueue`.
class MURN_API EventQueue {
public:
    /// An empty queue.
    EventQueue();
    /// The queue must be empty by now: a leftover event ends the process through a fatal check, because its
    /// receiver would never hear of it.
    virtual ~EventQueue();

    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    /// Any thread. Appends an event and takes ownership of it.
    /// @param event  not null, and with its receiver set already
    void enqueueEvent(Event* event);

    /// Any thread.
    /// @return whether an event waits
    bool hasPendingEvents() const;

    /// Owning thread only. Delivers each event to its receiver's Object::event() and disposes of it with
    /// Event::destroy(), until the queue is empty; what the handlers post meanwhile is delivered as well.
    void processEvents();

    /// Any thread. Takes one object's events out; the others keep their order. The time grows with the length of
    /// the queue, and other threads' posts wait meanwhile.
    /// @param receiver  the object; only its address matters
    /// @return the events in the order of the queue, in a new vector; the caller owns it and the events in it
    std::vector<Event*>* getEventsForObject(Object* receiver);

    /// Any thread. Counts one object's events; at the cost of getEventsForObject().
    /// @param receiver  the object; only its address matters
    /// @return how many wait
    unsigned int countEventsForObject(Object* receiver);

private:
    EventQueueImpl* _impl;  // owned
};

}  // namespace Murn

#endif
