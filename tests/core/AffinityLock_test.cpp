// The watches on objects: what they notice, of which object, and the mutex that a mover holds.
#include "core/AffinityLock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/Mutex.h>

#include <array>
#include <list>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "InterposeGlib.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Murn::AffinityLock;
using Murn::LifeWatch;
using Murn::Mutex;
using Murn::Object;

namespace {

/// Stands for an object of which only the address matters.
struct Place {
    const Object* object() const { return reinterpret_cast<const Object*>(this); }

    alignas(16) std::array<char, 32> _bytes{};
};

/// More than there are locks, so that some share one.
constexpr std::size_t manyPlaces = 200;

bool isUnlocked(Mutex& mutex)
{
    bool locked = false;
    std::thread([&] {
        locked = mutex.tryLock();
        if (locked)
            mutex.unlock();
    }).join();
    return locked;
}

void noteMoved(const Place& place)
{
    const AffinityLock lock(place.object());
    LifeWatch::NoteMoved(place.object(), lock);
}

/// Watches all places and returns which watches have noticed something after the function ran.
template <typename Function>
std::vector<std::size_t> noticedBy(const std::vector<Place>& places, Function function)
{
    std::list<LifeWatch> watches;
    for (const Place& place : places)
        watches.emplace_back(place.object());
    function();

    std::vector<std::size_t> noticed;
    std::size_t index = 0;
    for (const LifeWatch& watch : watches) {
        if (watch.objectLeft())
            noticed.push_back(index);
        ++index;
    }
    return noticed;
}

/// How often the function takes and gives back locks, in order.
template <typename Function>
std::vector<std::string> locking(Function function)
{
    interpose::CallLog log;
    const Interposed lock(interpose::g_mutex_lock, log.noting("lock"));
    const Interposed unlock(interpose::g_mutex_unlock, log.noting("unlock"));
    function();
    return log.calls();
}

TEST(AffinityLock, spreadsObjectsOfAnySizeOverManyLocks)
{
    for (const std::uintptr_t size : {16U, 32U, 48U, 64U, 256U, 4096U}) {
        std::set<GMutex*> locks;
        const Interposed lock(interpose::g_mutex_lock, [&](auto* real, GMutex* mutex) {
            locks.insert(mutex);
            real(mutex);
        });
        for (std::uintptr_t number = 1; number <= 1000; ++number)
            const AffinityLock held(reinterpret_cast<const Object*>(number * size));
        EXPECT_GT(locks.size(), 48U) << "objects of " << size << " bytes";
    }
}

TEST(LifeWatch, isSetReadAndEndedUnderItsObjectsLock)
{
    const Place place;
    std::optional<LifeWatch> watch;

    EXPECT_THAT(locking([&] { watch.emplace(place.object()); }), ElementsAre("lock", "unlock"));
    EXPECT_THAT(locking([&] { EXPECT_FALSE(watch->objectLeft()); }), ElementsAre("lock", "unlock"));
    EXPECT_THAT(locking([&] { LifeWatch::NoteDestroyed(place.object()); }), ElementsAre("lock", "unlock"));
    EXPECT_THAT(locking([&] { watch.reset(); }), ElementsAre("lock", "unlock"));
}

TEST(LifeWatch, costsADestructorNoLockWhenThereIsNone)
{
    const Place place;

    EXPECT_THAT(locking([&] { LifeWatch::NoteDestroyed(place.object()); }), IsEmpty());
}

TEST(LifeWatch, noticesTheDestructionOfItsObjectAlone)
{
    const std::vector<Place> places(manyPlaces);

    EXPECT_THAT(noticedBy(places, [&] { LifeWatch::NoteDestroyed(places[120].object()); }), ElementsAre(120U));
}

TEST(LifeWatch, noticesTheMoveOfItsObjectAlone)
{
    const std::vector<Place> places(manyPlaces);

    EXPECT_THAT(noticedBy(places, [&] { noteMoved(places[120]); }), ElementsAre(120U));
}

TEST(LifeWatch, noticesNothingThatHappensBeforeItBegins)
{
    const Place place;
    LifeWatch::NoteDestroyed(place.object());
    noteMoved(place);

    const LifeWatch watch(place.object());

    EXPECT_FALSE(watch.objectLeft());
}

TEST(LifeWatch, canEndInAnyOrder)
{
    const Place place;
    std::array<std::optional<LifeWatch>, 4> watches;
    for (std::optional<LifeWatch>& watch : watches)
        watch.emplace(place.object());

    watches[1].reset();
    watches[3].reset();
    LifeWatch::NoteDestroyed(place.object());

    EXPECT_TRUE(watches[0]->objectLeft());
    EXPECT_TRUE(watches[2]->objectLeft());
    watches[0].reset();
    EXPECT_TRUE(watches[2]->objectLeft());
}

TEST(LifeWatch, freesTheMutexOfItsMoverWhenItEnds)
{
    const Place place;
    Mutex mutex;
    mutex.lock();
    {
        const LifeWatch watch(place.object(), &mutex);
        noteMoved(place);
        EXPECT_FALSE(isUnlocked(mutex));
    }
    EXPECT_TRUE(isUnlocked(mutex));
}

TEST(LifeWatch, freesTheMutexOfItsMoverBeforeTheObjectGoes)
{
    const Place place;
    Mutex mutex;
    mutex.lock();
    {
        const LifeWatch watch(place.object(), &mutex);
        LifeWatch::NoteDestroyed(place.object());
        EXPECT_TRUE(isUnlocked(mutex));
        mutex.lock();  // somebody else's lock by now
    }
    EXPECT_FALSE(isUnlocked(mutex));
    mutex.unlock();
}

TEST(LifeWatch, takesNoLaterObjectAtTheSamePlaceForItsOwn)
{
    const Place place;
    Mutex mutex;
    mutex.lock();
    {
        const LifeWatch watch(place.object(), &mutex);
        std::thread([&] { LifeWatch::NoteDestroyed(place.object()); }).join();
        LifeWatch::NoteDestroyed(place.object());
        EXPECT_FALSE(isUnlocked(mutex));
    }
    EXPECT_TRUE(isUnlocked(mutex));
}

TEST(LifeWatch, leavesTheMutexToItsMoverWhenTheObjectGoesOnAnotherThread)
{
    const Place place;
    Mutex mutex;
    mutex.lock();
    {
        const LifeWatch watch(place.object(), &mutex);
        std::thread([&] { LifeWatch::NoteDestroyed(place.object()); }).join();
        EXPECT_TRUE(watch.objectLeft());
        EXPECT_FALSE(isUnlocked(mutex));
    }
    EXPECT_TRUE(isUnlocked(mutex));
}

TEST(LifeWatch, knowsALaterObjectInTheSamePlaceFromItsOwn)
{
    const Place place;
    Mutex mutex;
    mutex.lock();
    {
        const LifeWatch watch(place.object(), &mutex);
        std::thread([&] { LifeWatch::NoteDestroyed(place.object()); }).join();
        LifeWatch::NoteDestroyed(place.object());  // the later one, on the mover's thread
        EXPECT_FALSE(isUnlocked(mutex));
    }
    EXPECT_TRUE(isUnlocked(mutex));
}

}  // namespace
