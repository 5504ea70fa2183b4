// What objects send to each other.
#ifndef MURN_EVENT_H
#define MURN_EVENT_H

#include "Export.h"

namespace Murn {

class Object;

/// A message to an Object: a type code and a data pointer. Create it with `new`, hand it to
/// Application::PostEvent() or DispatchEvent(), and the runtime disposes of it through destroy() after delivery.
/// Derive from it to carry more. One thread at a time, not locked.
class MURN_API Event {
public:
    /// An event without a receiver.
    /// @param type  what the event means to its receiver. 1 is reserved for DeleteLaterEvent; all others are the
    ///              host's to choose.
    /// @param data  handed to the receiver as it is; the event never frees it
    Event(unsigned int type, void* data);
    /// A copy starts blank, with null receiver, type 0 and null data, on purpose: an event has one receiver and is
    /// delivered once, so nothing of it may go on living in a copy.
    Event(const Event& other);
    /// Changes nothing, for the same reason.
    Event& operator=(const Event& other);
    virtual ~Event();

    /// Deletes the event. The runtime disposes of every delivered event in this way, so a derived class that is not
    /// made with `new` overrides it. Called without dynamic dispatch on a null pointer it does nothing.
    virtual void destroy();

    Object* _receiver;   ///< The target, set by Application::PostEvent(); null before. Not owned.
    unsigned int _type;  ///< The type given at construction.
    void* _data;         ///< The data given at construction.
};

}  // namespace Murn

#endif
