// The locks that hold an object to its queue, and the watches on objects while handlers run.
#include "AffinityLock.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "Mutex.h"

namespace Murn {

namespace {

struct Stripe {
    GMutex mutex;
    std::atomic<LifeWatch*> watches;  // changes under the mutex
};

// Zeroed memory is a free mutex, and nothing is destroyed at the end of the process, when threads may still run.
constexpr std::size_t stripeCount = 64;
Stripe stripes[stripeCount];

Stripe& stripeOf(const Object* object)
{
    // Allocations are multiples of 16 bytes; multiplying spreads equal strides over the table.
    const auto granule = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(object) >> 4);
    return stripes[(granule * 0x9E3779B97F4A7C15ULL) >> 58];
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
    : _object(object), _held(held), _thread(g_thread_self()), _left(false), _destroyed(false), _next(nullptr)
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
        Stripe& stripe = stripeOf(_object);
        LifeWatch* before = stripe.watches;
        if (before == this) {
            stripe.watches = _next;
        } else {
            while (before->_next != this)
                before = before->_next;
            before->_next = _next;
        }
        held = _held;
    }
    if (held != nullptr)
        held->unlock();
}

bool LifeWatch::objectLeft() const
{
    const AffinityLock lock(_object);
    return _left;
}

void LifeWatch::NoteDestroyed(const Object* object)
{
    // Most objects go while nobody watches any. A watch on this one was set before it could come to this thread.
    if (stripeOf(object).watches.load(std::memory_order_relaxed) == nullptr)
        return;

    const AffinityLock lock(object);
    for (LifeWatch* watch = stripeOf(object).watches; watch != nullptr; watch = watch->_next) {
        if (watch->_object != object || watch->_destroyed)
            continue;
        watch->_left = true;
        watch->_destroyed = true;
        // Only the thread that locked may unlock; for a mover on another thread the mutex's destructor waits.
        if (watch->_held != nullptr && watch->_thread == g_thread_self()) {
            watch->_held->unlock();
            watch->_held = nullptr;
        }
    }
}

void LifeWatch::NoteMoved(const Object* object, const AffinityLock& /*lock*/)
{
    for (LifeWatch* watch = stripeOf(object).watches; watch != nullptr; watch = watch->_next) {
        if (watch->_object == object)
            watch->_left = true;
    }
}

}  // namespace Murn
