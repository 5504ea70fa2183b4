// Objects with thread affinity.
#include "Object.h"

#include "AffinityLock.h"
#include "Application.h"
#include "Check.h"
#include "DeleteLaterEvent.h"
#include "MutexLocker.h"
#include "Thread.h"
#include "ThreadImpl.h"

namespace Murn {

namespace {

// The parameter bears the field's name because the check prints it.
void checkOwnThread(Thread* _thread)
{
    MURN_CHECK(_thread->isCurrentThread());
}

void registerWith(Thread* thread, Object* object)
{
    ThreadImpl::Of(thread)->registerObject(object);
}

void unregisterFrom(Thread* thread, Object* object)
{
    ThreadImpl::Of(thread)->unregisterObject(object);
}

// Delivers everything that waits for the object on its thread. Returns false when a handler deleted the object or
// moved it by itself, so that there is nothing left to move.
bool deliverPending(Object* object, Thread* home, const LifeWatch& watch)
{
    while (home->countEventsForObject(object) != 0) {
        home->processEventsForObject(object);
        if (watch.objectGone() || object->thread() != home)
            return false;
    }
    return true;
}

}  // namespace

Object::Object() : _valid(true), _refsCount(0), _thread(Application::CurrentThread())
{
    if (Thread* const home = thread())
        registerWith(home, this);
}

Object::~Object()
{
    MURN_CHECK(_refsCount == 0);
    if (Thread* const home = thread()) {
        // The derived parts are gone: these events reach the base handler, which drops them.
        while (home->countEventsForObject(this) != 0)
            home->processEventsForObject(this);
        unregisterFrom(home, this);
    }
    LifeWatch::NoteDestroyed(this);
}

void Object::event(Event* event)
{
    if (event->_type == 1)
        delete this;
}

void Object::destroy()
{
    if (thread() == nullptr)
        delete this;
    else
        Application::PostEvent(this, new DeleteLaterEvent);
}

void Object::ref()
{
    const MutexLocker locker(&_mutex);
    MURN_CHECK(_valid);
    ++_refsCount;
}

void Object::deref()
{
    bool last = false;
    {
        const MutexLocker locker(&_mutex);
        // No underflow check: a release too many wraps the count and destroys nothing.
        last = _refsCount-- == 1;
        if (last)
            _valid = false;
    }
    // After the lock, so that an override may take it.
    if (last)
        destroy();
}

unsigned int Object::refsCount()
{
    const MutexLocker locker(&_mutex);
    return _refsCount;
}

bool Object::isValid() const
{
    return _valid.load(std::memory_order_relaxed);
}

Thread* Object::thread() const
{
    // Whoever finds a thread here must also find it complete.
    return _thread.load(std::memory_order_acquire);
}

Mutex* Object::mutex()
{
    return &_mutex;
}

void Object::moveToThread(Thread* target)
{
    _mutex.lock();
    const LifeWatch watch(this, &_mutex);  // unlocks at the end, or when a handler deletes the object
    Thread* const home = thread();
    if (home == target)
        return;
    if (home != nullptr)
        checkOwnThread(home);

    for (;;) {
        if (home != nullptr) {
            if (!deliverPending(this, home, watch))
                return;
            unregisterFrom(home, this);
        }
        // Listed before it is bound: from then on the target may deliver to the object, and delete it.
        registerWith(target, this);
        {
            const AffinityLock lock(this);
            if (home == nullptr || home->countEventsForObject(this) == 0) {
                _thread.store(target, std::memory_order_release);
                return;
            }
        }
        // Somebody posted in between: back home, where that event is delivered first.
        unregisterFrom(target, this);
        registerWith(home, this);
    }
}

}  // namespace Murn
