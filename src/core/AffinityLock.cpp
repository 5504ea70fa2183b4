// The locks that hold an object to its queue, and the watches on objects while handlers run.
#include "AffinityLock.h"

#include <cstddef>
#include <cstdint>

#include "Mutex.h"

namespace Murn {

namespace {

struct Stripe {
    GMutex mutex;
    LifeWatch* watches;
};

// Zeroed memory is a free mutex, and nothing is destroyed at the end of the process, when threads may still run.
constexpr std::size_t stripeCount = 64;
Stripe stripes[stripeCount];

Stripe& stripeOf(const Object* object)
{
    // Objects are at least a cache line apart; multiplying spreads equal strides over the table.
    const auto line = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(object) >> 6);
    return stripes[(line * 0x9E3779B97F4A7C15ULL) >> 58];
}

}  // namespace

static_assert(stripeCount == 1U << (64 - 58), "the hash yields six bits");

AffinityLock::AffinityLock(const Object* object) : _mutex(&stripeOf(object).mutex)
{
    g_mutex_lock(_mutex);
}

AffinityLock::~AffinityLock()
{
    g_mutex_unlock(_mutex);
}

LifeWatch::LifeWatch(const Object* object, Mutex* held)
    : _object(object), _held(held), _thread(g_thread_self()), _gone(false), _next(nullptr)
{
    const AffinityLock lock(_object);
    Stripe& stripe = stripeOf(_object);
    _next = stripe.watches;
    stripe.watches = this;
}

LifeWatch::~LifeWatch()
{
    Mutex* held = nullptr;
    {
        const AffinityLock lock(_object);
        LifeWatch** link = &stripeOf(_object).watches;
        while (*link != this)
            link = &(*link)->_next;
        *link = _next;
        held = _held;
    }
    if (held != nullptr)
        held->unlock();
}

bool LifeWatch::objectGone() const
{
    const AffinityLock lock(_object);
    return _gone;
}

void LifeWatch::NoteDestroyed(const Object* object)
{
    const AffinityLock lock(object);
    for (LifeWatch* watch = stripeOf(object).watches; watch != nullptr; watch = watch->_next) {
        if (watch->_object != object || watch->_gone)
            continue;
        watch->_gone = true;
        // Only the thread that locked may unlock; for a mover on another thread the mutex's destructor waits.
        if (watch->_held != nullptr && watch->_thread == g_thread_self()) {
            watch->_held->unlock();
            watch->_held = nullptr;
        }
    }
}

}  // namespace Murn
