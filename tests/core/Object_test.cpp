// Objects: thread affinity, references, deletion on their own thread, and the move to another one.
#include <kxPAL/DeleteLaterEvent.h>
#include <kxPAL/Mutex.h>

#include <new>

#include "FatalTest.h"
#include "InterposeGlib.h"
#include "Runtime.h"
#include "VirtualTable.h"

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Murn::Application;
using Murn::Event;
using Murn::Object;
using Murn::Thread;

namespace {

constexpr const char* source = "src/core/Object.cpp";

/// Whether another thread could lock the object's mutex just now.
bool isUnlocked(Object* object)
{
    bool locked = false;
    onForeignThread([&] {
        locked = object->mutex()->tryLock();
        if (locked)
            object->mutex()->unlock();
    });
    return locked;
}

/// An object that outlives its last reference and counts the calls of destroy().
class Shared : public Object {
public:
    void destroy() override
    {
        ++_destroyCalls;
        _wasUnlocked = isUnlocked(this);
        _wasValid = isValid();
    }

    int _destroyCalls = 0;
    bool _wasUnlocked = false;
    bool _wasValid = true;
};

class ObjectTest : public RuntimeTest {};

TEST_F(ObjectTest, hasItsFieldsWhereHostsExpectThem)
{
    Shared object;
    object.ref();
    object.ref();

    EXPECT_EQ(sizeof(Object), 32U);
    EXPECT_TRUE(fieldAt<bool>(&object, 8));
    EXPECT_EQ(fieldAt<unsigned int>(&object, 12), 2U);
    EXPECT_EQ(static_cast<void*>(object.mutex()), reinterpret_cast<char*>(&object) + 16);
    EXPECT_EQ(fieldAt<Thread*>(&object, 24), mainThread());

    object.deref();
    object.deref();
    EXPECT_FALSE(fieldAt<bool>(&object, 8));
}

TEST_F(ObjectTest, hasItsVirtualOperationsInTheSlotsThatHostsExpect)
{
    constexpr std::size_t destructorSlot = 0;
    constexpr std::size_t deletingDestructorSlot = 1;
    constexpr std::size_t eventSlot = 2;
    constexpr std::size_t destroySlot = 3;
    Record record;
    Event event(7, nullptr);
    auto* const object = new Recorder(record);

    callAddress(addressInSlot(object, eventSlot), object, &event);
    EXPECT_THAT(record.types(), ElementsAre(7U));
    callAddress(addressInSlot(object, destroySlot), object);
    EXPECT_EQ(mainThread()->countEventsForObject(object), 1U);
    pump();
    EXPECT_EQ(record.destructions(), 1);

    auto* const deleted = new Recorder(record);
    callAddress(addressInSlot(deleted, deletingDestructorSlot), deleted);
    EXPECT_EQ(record.destructions(), 2);

    alignas(Recorder) char memory[sizeof(Recorder)];
    auto* const destroyed = new (memory) Recorder(record);
    callAddress(addressInSlot(destroyed, destructorSlot), destroyed);
    EXPECT_EQ(record.destructions(), 3);
}

// Life and affinity

TEST_F(ObjectTest, isBoundToTheThreadThatCreatesIt)
{
    const Object onMain;
    EXPECT_EQ(onMain.thread(), mainThread());

    Worker worker;
    worker.run([&] {
        const Object onWorker;
        EXPECT_EQ(onWorker.thread(), worker.thread());
    });
}

TEST_F(ObjectTest, isBoundToNoThreadWhenItsCreatorIsNotRegistered)
{
    onForeignThread([] {
        const Object object;
        EXPECT_EQ(object.thread(), nullptr);
    });
}

TEST_F(ObjectTest, isBoundToNoThreadWhenThereIsNoApplication)
{
    endApplication();

    const Object object;

    EXPECT_EQ(object.thread(), nullptr);
}

TEST_F(ObjectTest, startsValidAndWithoutReferences)
{
    Object object;

    EXPECT_TRUE(object.isValid());
    EXPECT_EQ(object.refsCount(), 0U);
}

// References

TEST_F(ObjectTest, callsDestroyOnceWhenTheLastReferenceIsReleased)
{
    Shared object;
    object.ref();
    object.ref();
    EXPECT_EQ(object.refsCount(), 2U);

    object.deref();
    EXPECT_EQ(object._destroyCalls, 0);
    EXPECT_TRUE(object.isValid());

    object.deref();
    EXPECT_EQ(object._destroyCalls, 1);
    EXPECT_FALSE(object.isValid());
    EXPECT_EQ(object.refsCount(), 0U);
}

TEST_F(ObjectTest, releasesItsMutexBeforeTheLastReferenceCallsDestroy)
{
    Shared object;
    object.ref();

    object.deref();

    EXPECT_TRUE(object._wasUnlocked);
}

TEST_F(ObjectTest, isInvalidBeforeTheLastReferenceCallsDestroy)
{
    Shared object;
    object.ref();

    object.deref();

    EXPECT_FALSE(object._wasValid);
}

/// Notes how many references the object has whenever its mutex is locked and before it is unlocked.
std::vector<std::string> locksOf(Object& object, const std::function<void()>& function)
{
    interpose::CallLog calls;
    const auto* const mutex = fieldAt<GRecMutex*>(object.mutex(), 0);
    const auto note = [&](const GRecMutex* which, const char* what) {
        if (which == mutex)
            calls.note(what + std::to_string(fieldAt<unsigned int>(&object, 12)));
    };
    const Interposed locking(interpose::g_rec_mutex_lock, [&](auto real, GRecMutex* which) {
        real(which);
        note(which, "locked with ");
    });
    const Interposed unlocking(interpose::g_rec_mutex_unlock, [&](auto real, GRecMutex* which) {
        note(which, "unlocked with ");
        real(which);
    });
    function();
    return calls.calls();
}

TEST_F(ObjectTest, guardsItsReferencesWithItsMutex)
{
    Shared object;

    EXPECT_THAT(locksOf(object, [&] { object.ref(); }), ElementsAre("locked with 0", "unlocked with 1"));
    EXPECT_THAT(locksOf(object, [&] { object.ref(); }), ElementsAre("locked with 1", "unlocked with 2"));
    EXPECT_THAT(locksOf(object, [&] { object.refsCount(); }), ElementsAre("locked with 2", "unlocked with 2"));
    EXPECT_THAT(locksOf(object, [&] { object.deref(); }), ElementsAre("locked with 2", "unlocked with 1"));

    object.deref();
}

TEST_F(ObjectTest, readsItsCountOnlyOnceItHasTheMutex)
{
    Shared object;
    object.ref();
    bool isFirst = true;
    const Interposed locking(interpose::g_rec_mutex_lock, [&](auto real, GRecMutex* mutex) {
        if (std::exchange(isFirst, false))
            object.ref();  // somebody else is faster
        real(mutex);
    });

    EXPECT_EQ(object.refsCount(), 2U);

    object.deref();
    object.deref();
}

TEST_F(ObjectTest, locksItsMutexForEachLookAtItsReferences)
{
    Shared object;
    std::vector<GRecMutex*> locked;
    const Interposed lock(interpose::g_rec_mutex_lock, [&](auto* real, GRecMutex* mutex) {
        locked.push_back(mutex);
        real(mutex);
    });
    auto* const own = fieldAt<GRecMutex*>(object.mutex(), 0);

    object.ref();
    EXPECT_THAT(std::exchange(locked, {}), ElementsAre(own));
    EXPECT_EQ(object.refsCount(), 1U);
    EXPECT_THAT(std::exchange(locked, {}), ElementsAre(own));
    object.deref();
    ASSERT_FALSE(locked.empty());
    EXPECT_EQ(locked.front(), own);
}

TEST_F(ObjectTest, wrapsTheCountAndDestroysNothingWhenReleasedTooOften)
{
    Shared object;

    object.deref();

    EXPECT_EQ(object.refsCount(), 4294967295U);
    EXPECT_EQ(object._destroyCalls, 0);
    EXPECT_TRUE(object.isValid());

    object.ref();
    EXPECT_EQ(object.refsCount(), 0U);
}

TEST_F(ObjectTest, endsTheProcessAtAReferenceToAnInvalidObject)
{
    Shared object;
    object.ref();
    object.deref();

    EXPECT_FATAL(object.ref(), "_valid", source);
}

TEST_F(ObjectTest, endsTheProcessWhenDeletedWithReferencesLeft)
{
    EXPECT_FATAL(
        {
            Object object;
            object.ref();
        },
        "_refsCount == 0", source);
}

TEST_F(ObjectTest, looksForReferencesLeftBeforeItDropsItsWaitingEvents)
{
    struct Announced : Event {
        Announced() : Event(7, nullptr) {}
        ~Announced() override { std::fputs("event dropped, ", stdout); }
    };

    EXPECT_FATAL_AFTER(
        {
            Object object;
            object.ref();
            Application::PostEvent(&object, new Announced);
            std::fputs("deleted, ", stdout);
        },
        "deleted, ", "_refsCount == 0", source);
}

// Deletion

TEST_F(ObjectTest, deletesItselfAtOnceWhenBoundToNoThread)
{
    Record record;
    onForeignThread([&] {
        Object* const object = new Recorder(record);
        object->destroy();
        EXPECT_EQ(record.destructions(), 1);
    });
    EXPECT_THAT(record.types(), IsEmpty());
}

TEST_F(ObjectTest, isDeletedAfterTheEventsThatWerePostedBeforeDestroy)
{
    Record record;
    Object* const object = new Recorder(record);
    post(object, 7);
    object->destroy();
    EXPECT_EQ(record.destructions(), 0);

    pump();

    EXPECT_THAT(record.types(), ElementsAre(7U, 1U));
    EXPECT_EQ(record.destructions(), 1);
}

TEST_F(ObjectTest, isDeletedOnItsOwnThreadWhoeverDestroysIt)
{
    Worker worker;
    Record record;
    Object* object = nullptr;
    worker.run([&] { object = new Recorder(record); });

    object->destroy();

    worker.run([] {});
    EXPECT_EQ(record.destructions(), 1);
    EXPECT_THAT(record.threads(), ElementsAre(worker.thread()));
}

TEST_F(ObjectTest, isDeletedLaterWhenTheLastReferenceIsReleased)
{
    Record record;
    Object* const object = new Recorder(record);
    object->ref();
    post(object, 7);

    object->deref();
    EXPECT_EQ(record.destructions(), 0);
    EXPECT_FALSE(object->isValid());

    pump();
    EXPECT_THAT(record.types(), ElementsAre(7U, 1U));
    EXPECT_EQ(record.destructions(), 1);
}

TEST_F(ObjectTest, isDeletedAtOnceWhenTheLastReferenceIsReleasedAndItIsBoundToNoThread)
{
    Record record;
    onForeignThread([&] {
        Object* const object = new Recorder(record);
        object->ref();
        object->ref();
        object->deref();
        EXPECT_EQ(record.destructions(), 0);

        object->deref();  // touches it no more once it is gone
        EXPECT_EQ(record.destructions(), 1);
    });
    EXPECT_THAT(record.types(), IsEmpty());
}

TEST_F(ObjectTest, isServedByItsThreadWhenTheApplicationIsGone)
{
    Thread thread;
    Record record;
    std::atomic<int> disposals{0};
    Object* const object = new Recorder(record);
    object->moveToThread(&thread);
    endApplication();

    post(object, 7, disposals);
    object->destroy();
    EXPECT_EQ(thread.countEventsForObject(object), 2U);
    EXPECT_EQ(record.destructions(), 0);

    thread.processEvents(false);
    EXPECT_THAT(record.types(), ElementsAre(7U, 1U));
    EXPECT_EQ(disposals, 1);
    EXPECT_EQ(record.destructions(), 1);
}

TEST_F(ObjectTest, asksForItsDeletionWithADeleteLaterEvent)
{
    struct Asked : Object {
        void event(Event* event) override
        {
            _wasDeleteLater = dynamic_cast<Murn::DeleteLaterEvent*>(event) != nullptr;
            _type = event->_type;
            _data = event->_data;
            _receiver = event->_receiver;
        }

        bool _wasDeleteLater = false;
        unsigned int _type = 0;
        void* _data = this;
        Object* _receiver = nullptr;
    };
    Asked object;

    object.destroy();
    pump();

    EXPECT_TRUE(object._wasDeleteLater);
    EXPECT_EQ(object._type, 1U);
    EXPECT_EQ(object._data, nullptr);
    EXPECT_EQ(object._receiver, &object);
}

TEST_F(ObjectTest, ignoresEventsOfUnknownTypes)
{
    Object object;
    Event unknown(2, nullptr);
    Event zero(0, nullptr);
    Event largest(4294967295U, nullptr);

    object.event(&unknown);
    object.event(&zero);
    object.event(&largest);

    EXPECT_TRUE(object.isValid());
}

TEST_F(ObjectTest, dropsItsWaitingEventsWhenDeletedAndLeavesThoseOfOthers)
{
    Record doomedRecord;
    Record otherRecord;
    std::atomic<int> disposals{0};
    auto* const doomed = new Recorder(doomedRecord);
    Recorder other(otherRecord);
    post(&other, 10);
    post(doomed, 7, disposals);
    post(&other, 11);
    post(doomed, 8, disposals);
    post(&other, 12);

    delete doomed;
    EXPECT_EQ(disposals, 2);

    pump();
    EXPECT_THAT(doomedRecord.types(), IsEmpty());
    EXPECT_THAT(otherRecord.types(), ElementsAre(10U, 11U, 12U));
}

TEST_F(ObjectTest, dropsItsWaitingEventsOnWhateverThreadDeletesIt)
{
    Record record;
    std::atomic<int> disposals{0};
    auto* const object = new Recorder(record);
    post(object, 7, disposals);

    onForeignThread([&] { delete object; });

    EXPECT_EQ(disposals, 1);
    pump();
    EXPECT_THAT(record.types(), IsEmpty());
}

TEST_F(ObjectTest, mayBeDeletedInItsOwnEventWithMoreEventsWaiting)
{
    Record record;
    Record otherRecord;
    std::atomic<int> disposals{0};
    Object* object = nullptr;
    object = new Recorder(record, [&](Event*) { delete object; });
    Recorder other(otherRecord);
    post(object, 7, disposals);
    post(object, 8, disposals);
    post(&other, 9);
    post(object, 10, disposals);

    pump();

    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_EQ(record.destructions(), 1);
    EXPECT_EQ(disposals, 3);
    EXPECT_THAT(otherRecord.types(), ElementsAre(9U));
}

TEST_F(ObjectTest, mayDeleteAnotherObjectInItsEvent)
{
    Record record;
    Record otherRecord;
    auto* const other = new Recorder(otherRecord);
    Recorder object(record, [&](Event*) { delete other; });
    post(&object, 7);
    post(other, 8);

    pump();

    EXPECT_EQ(otherRecord.destructions(), 1);
    EXPECT_THAT(otherRecord.types(), IsEmpty());
}

TEST_F(ObjectTest, warnsAtItsDeletionWhenItsThreadDoesNotListIt)
{
    Record record;
    auto* const object = new Recorder(record, [](Event*) { Application::Quit(); });
    post(object, 7);
    application().exec();  // the main thread forgets its objects at the end
    ASSERT_EQ(logged().size(), 1U);

    delete object;

    ASSERT_EQ(logged().size(), 2U);
    EXPECT_THAT(logged()[1],
                IsLogged("Thread", warningLevel, "Error removing object from affinity thread, its not attached (?\?)"));
}

// The move

TEST_F(ObjectTest, deliversOnTheNewThreadOnceItHasMoved)
{
    Worker worker;
    Record record;
    auto* const object = new Recorder(record);

    object->moveToThread(worker.thread());
    EXPECT_EQ(object->thread(), worker.thread());
    post(object, 7);

    worker.run([&] { delete object; });
    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_THAT(record.threads(), ElementsAre(worker.thread()));
}

TEST_F(ObjectTest, deliversItsWaitingEventsBeforeItMoves)
{
    Worker worker;
    Record record;
    std::atomic<int> disposals{0};
    std::vector<Thread*> affinities;
    Object* object = nullptr;
    object = new Recorder(record, [&](Event*) { affinities.push_back(object->thread()); });
    post(object, 7, disposals);
    post(object, 8, disposals);

    object->moveToThread(worker.thread());

    EXPECT_THAT(record.types(), ElementsAre(7U, 8U));
    EXPECT_THAT(record.threads(), Each(mainThread()));
    EXPECT_THAT(affinities, ElementsAre(mainThread(), mainThread()));
    EXPECT_EQ(disposals, 2);
    worker.run([&] { delete object; });
}

TEST_F(ObjectTest, disposesOfEachEventBeforeItDeliversTheNextWhenItMoves)
{
    Thread target;
    Record record;
    std::atomic<int> disposals{0};
    std::vector<int> disposedBefore;
    auto* const object = new Recorder(record, [&](Event*) { disposedBefore.push_back(disposals); });
    post(object, 7, disposals);
    post(object, 8, disposals);
    post(object, 9, disposals);

    object->moveToThread(&target);

    EXPECT_THAT(record.types(), ElementsAre(7U, 8U, 9U));
    EXPECT_THAT(disposedBefore, ElementsAre(0, 1, 2));
    EXPECT_EQ(disposals, 3);
    delete object;
}

TEST_F(ObjectTest, deliversBeforeItMovesWhatItsHandlersPostMeanwhile)
{
    Worker worker;
    Record record;
    Object* object = nullptr;
    object = new Recorder(record, [&](Event* event) {
        if (event->_type < 10)
            post(object, event->_type + 1);
    });
    post(object, 7);

    object->moveToThread(worker.thread());

    EXPECT_THAT(record.types(), ElementsAre(7U, 8U, 9U, 10U));
    EXPECT_THAT(record.threads(), Each(mainThread()));
    worker.run([&] { delete object; });
}

TEST_F(ObjectTest, leavesTheEventsOfOthersWaitingWhenItMoves)
{
    Worker worker;
    Record record;
    Record otherRecord;
    auto* const object = new Recorder(record);
    Recorder other(otherRecord);
    post(&other, 10);
    post(object, 7);
    post(&other, 11);

    object->moveToThread(worker.thread());
    EXPECT_THAT(otherRecord.types(), IsEmpty());

    pump();
    EXPECT_THAT(otherRecord.types(), ElementsAre(10U, 11U));
    worker.run([&] { delete object; });
}

TEST_F(ObjectTest, holdsItsMutexWhileItMovesAndFreesItAfterwards)
{
    Worker worker;
    Record record;
    bool wasUnlockedInHandler = true;
    Object* object = nullptr;
    object = new Recorder(record, [&](Event*) { wasUnlockedInHandler = isUnlocked(object); });
    post(object, 7);

    object->moveToThread(worker.thread());

    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_FALSE(wasUnlockedInHandler);
    EXPECT_TRUE(isUnlocked(object));
    worker.run([&] { delete object; });
}

TEST_F(ObjectTest, isListedWithItsNewThreadAloneOnceItHasMoved)
{
    Worker first;
    Worker second;
    Object* object = nullptr;
    first.run([&] {
        object = new Object;
        object->moveToThread(second.thread());
    });

    first.finish();
    EXPECT_THAT(logged(), IsEmpty());  // the old thread hands nothing over

    second.finish();
    EXPECT_THAT(logged(), ElementsAre(IsLogged("Thread", warningLevel, orphanText(1, object))));
    delete object;
    EXPECT_EQ(logged().size(), 1U);  // listed with the main thread now
}

TEST_F(ObjectTest, warnsAtItsMoveWhenItsOldThreadDoesNotListIt)
{
    Thread target;
    Record record;
    auto* const object = new Recorder(record, [](Event*) { Application::Quit(); });
    post(object, 7);
    application().exec();  // the main thread forgets its objects at the end
    ASSERT_EQ(logged().size(), 1U);

    object->moveToThread(&target);

    ASSERT_EQ(logged().size(), 2U);
    EXPECT_THAT(logged()[1],
                IsLogged("Thread", warningLevel, "Error removing object from affinity thread, its not attached (?\?)"));
    EXPECT_EQ(object->thread(), &target);
    delete object;
    EXPECT_EQ(logged().size(), 2U);  // its new thread lists it
}

TEST_F(ObjectTest, staysAsItIsWhenMovedToItsOwnThread)
{
    Record record;
    Recorder object(record);
    post(&object, 7);

    object.moveToThread(mainThread());
    EXPECT_EQ(object.thread(), mainThread());
    EXPECT_THAT(record.types(), IsEmpty());
    EXPECT_TRUE(isUnlocked(&object));

    // Nothing is given away, so any thread may ask for it.
    onForeignThread([&] { object.moveToThread(mainThread()); });

    pump();
    EXPECT_THAT(record.types(), ElementsAre(7U));
}

TEST_F(ObjectTest, endsTheProcessWhenAnotherThreadMovesIt)
{
    EXPECT_FATAL(
        {
            Worker worker;
            Object object;
            worker.run([&] { object.moveToThread(worker.thread()); });
        },
        "_thread->isCurrentThread()", source);
}

TEST_F(ObjectTest, endsTheProcessWhenAnUnregisteredThreadMovesIt)
{
    EXPECT_FATAL(
        {
            Thread target;
            Object object;
            onForeignThread([&] { object.moveToThread(&target); });
        },
        "_thread->isCurrentThread()", source);
}

TEST_F(ObjectTest, looksWhoMovesItBeforeItDeliversItsWaitingEvents)
{
    EXPECT_FATAL_AFTER(
        {
            Thread target;
            Record record;
            Recorder object(record, [](Event*) { std::fputs("event delivered, ", stdout); });
            post(&object, 7);
            onForeignThread([&] {
                std::fputs("moved, ", stdout);
                object.moveToThread(&target);
            });
        },
        "moved, ", "_thread->isCurrentThread()", source);
}

TEST_F(ObjectTest, canBeAdoptedFromAnyThreadWhileItIsBoundToNone)
{
    Worker worker;
    Record record;
    Object* object = nullptr;
    onForeignThread([&] {
        object = new Recorder(record);
        object->moveToThread(worker.thread());
    });
    post(object, 7);
    worker.run([&] { delete object; });
    EXPECT_THAT(record.threads(), ElementsAre(worker.thread()));

    onForeignThread([&] { object = new Recorder(record); });
    object->moveToThread(worker.thread());  // neither its creator nor its new thread
    EXPECT_EQ(object->thread(), worker.thread());
    worker.run([&] { delete object; });
}

TEST_F(ObjectTest, mayBeDeletedByAnEventThatIsDeliveredBeforeItMoves)
{
    Thread target;
    Record record;
    std::atomic<int> disposals{0};
    Object* object = nullptr;
    object = new Recorder(record, [&](Event*) { delete object; });
    post(object, 7, disposals);
    post(object, 8, disposals);

    object->moveToThread(&target);

    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_EQ(record.destructions(), 1);
    EXPECT_EQ(disposals, 2);
}

TEST_F(ObjectTest, isDeletedBeforeItMovesWhenItsDeletionIsUnderWay)
{
    Thread target;
    Record record;
    auto* const object = new Recorder(record);
    post(object, 7);
    object->destroy();

    object->moveToThread(&target);

    EXPECT_THAT(record.types(), ElementsAre(7U, 1U));
    EXPECT_EQ(record.destructions(), 1);
}

TEST_F(ObjectTest, goesWhereItsOwnHandlerMovesItWhileItIsMoved)
{
    Worker first;
    Worker second;
    Record record;
    std::atomic<int> disposals{0};
    Object* object = nullptr;
    object = new Recorder(record, [&](Event* event) {
        if (event->_type == 7)
            object->moveToThread(second.thread());
    });
    post(object, 7, disposals);
    post(object, 8, disposals);

    object->moveToThread(first.thread());

    // From the handler's move on, only the second worker may give the object away.
    EXPECT_EQ(object->thread(), second.thread());
    EXPECT_TRUE(isUnlocked(object));
    EXPECT_EQ(disposals, 2);
    EXPECT_THAT(record.types(), ElementsAre(7U, 8U));
    EXPECT_THAT(record.threads(), Each(mainThread()));  // the handler's move, too, had to deliver first
    second.run([&] { delete object; });
}

TEST_F(ObjectTest, takesWhatItsHandlerPostsAfterItsOwnMoveOnTheNewThread)
{
    Thread first;
    Worker second;
    Record record;
    Object* object = nullptr;
    object = new Recorder(record, [&](Event* event) {
        if (event->_type == 7) {
            object->moveToThread(second.thread());
            post(object, 8);
        }
    });
    post(object, 7);

    object->moveToThread(&first);

    second.run([&] { delete object; });
    EXPECT_THAT(record.types(), ElementsAre(7U, 8U));
    EXPECT_THAT(record.threads(), ElementsAre(mainThread(), second.thread()));
}

TEST_F(ObjectTest, deliversBeforeItMovesWhatAnotherThreadPostsWhenNothingSeemedToWait)
{
    Thread target;
    Record record;
    Object* object = new Recorder(record);
    bool posted = false;
    const Interposed looking(interpose::g_async_queue_unlock, [&](auto real, GAsyncQueue* queue) {
        real(queue);
        if (!std::exchange(posted, true))
            onForeignThread([&] { post(object, 7); });
    });

    object->moveToThread(&target);

    ASSERT_TRUE(posted);
    EXPECT_EQ(object->thread(), &target);
    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_THAT(record.threads(), ElementsAre(mainThread()));
    delete object;
}

TEST_F(ObjectTest, canBeMovedByItsOwnEventHandler)
{
    Worker worker;
    Record record;
    Object* object = nullptr;
    object = new Recorder(record, [&](Event* event) {
        if (event->_type == 7)
            object->moveToThread(worker.thread());
    });
    post(object, 7);
    post(object, 8);

    pump();

    EXPECT_THAT(record.types(), ElementsAre(7U, 8U));
    EXPECT_THAT(record.threads(), Each(mainThread()));  // 8 was waiting, so it came before the move
    EXPECT_EQ(object->thread(), worker.thread());
    worker.run([&] { delete object; });
}

}  // namespace
