// The way of one object's events from its thread's queue to its handler. Private.
#ifndef MURN_DELIVERY_H
#define MURN_DELIVERY_H

#include <cstddef>
#include <vector>

#include "ThreadImpl.h"

namespace Murn {

/// The events of one object on their way to it. They are taken out of the queue all at once, or each would cost a walk
/// through everything in front of it. A handler that deletes the object, or moves it, has those behind delivered first:
/// the delivery within takes them from the one around it. Lives on the stack of the thread that calls the handlers.
class ThreadImpl::Delivery {
public:
    Delivery(ThreadImpl* thread, Object* receiver);
    ~Delivery();

    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;

    /// The next event, in the order of their posting, which the caller owns; null when none is left.
    Event* next();

    /// Any thread. Whether events of an object are out of the queue, but not delivered yet.
    static bool HasEvents(ThreadImpl* thread, const Object* receiver);

private:
    static Delivery* withEvents(const ThreadImpl* thread, const Object* receiver);

    // All that changes is guarded by the thread's _objectsMutex.
    ThreadImpl* const _thread;
    Object* const _receiver;
    std::vector<Event*> _events;
    std::size_t _position;
    Delivery* _outer;
};

}  // namespace Murn

#endif
