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

}  // namespace

Object::Object() : _valid(true), _refsCount(0), _thread(Application::CurrentThread())
{
    if (Thread* const home = thread())
        ThreadImpl::Of(home)->registerObject(this);
}

Object::~Object()
{
    MURN_CHECK(_refsCount == 0);
    if (Thread* const home = thread()) {
        // The derived parts are gone: these events reach the base handler, which drops them.
        if (ThreadImpl::Of(home)->hasEventsForObject(this))
            home->processEventsForObject(this);
        ThreadImpl::Of(home)->unregisterObject(this);
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

    ThreadImpl* const from = home != nullptr ? ThreadImpl::Of(home) : nullptr;
    bool wasListed = true;
    for (bool bound = false; !bound;) {
        if (from != nullptr) {
            from->deliverEventsForObject(this, watch);
            if (watch.objectLeft())
                return;  // a handler deleted the object, or moved it by itself
        }
        const AffinityLock lock(this);
        if (from != nullptr && from->hasEventsForObject(this))
            continue;  // somebody posted in between
        if (from != nullptr)
            wasListed = from->unlistObject(this);
        ThreadImpl::Of(target)->registerObject(this);
        // From here on the target may deliver to the object; to delete it, it has to wait for the mutex.
        _thread.store(target, std::memory_order_release);
        LifeWatch::NoteMoved(this, lock);
        bound = true;
    }
    if (!wasListed)
        ThreadImpl::WarnNotListed();
}

}  // namespace Murn
