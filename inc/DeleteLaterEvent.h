// The request to delete an object on its own thread.
#ifndef MURN_DELETE_LATER_EVENT_H
#define MURN_DELETE_LATER_EVENT_H

#include "Event.h"

namespace Murn {

/// The event of the reserved type 1, without data: Object::event() deletes the object that receives it.
/// Object::destroy() posts it; hosts have no need to. One thread at a time, not locked.
class MURN_API DeleteLaterEvent : public Event {
public:
    DeleteLaterEvent();
    ~DeleteLaterEvent() override;
};

}  // namespace Murn

#endif
