// What becomes of a thread's objects and events when its loop ends, and when it is deleted.
#include "FatalTest.h"
#include "InterposeGlib.h"
#include "Runtime.h"
#include "Wait.h"

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using Murn::Application;
using Murn::Event;
using Murn::Object;
using Murn::Thread;

namespace {

class ThreadEndTest : public RuntimeTest {};

// Objects that outlive the loop

TEST_F(ThreadEndTest, handsItsObjectsToTheMainThreadWhenItsLoopEnds)
{
    Worker worker;
    Record record;
    std::vector<Object*> objects;
    worker.run([&] {
        for (int index = 0; index < 3; ++index)
            objects.push_back(new Recorder(record));
    });

    worker.finish();

    EXPECT_THAT(logged(), ElementsAre(IsLogged("Thread", warningLevel, orphanText(3, objects[0])),
                                      IsLogged("Thread", warningLevel, orphanText(3, objects[1])),
                                      IsLogged("Thread", warningLevel, orphanText(3, objects[2]))));
    for (Object* const object : objects) {
        EXPECT_EQ(object->thread(), mainThread());
        post(object, 7);
    }
    pump();
    EXPECT_THAT(record.threads(), ElementsAre(mainThread(), mainThread(), mainThread()));
    for (const Object* const object : objects)
        delete object;
    EXPECT_EQ(logged().size(), 3U);  // the main thread lists them
}

TEST_F(ThreadEndTest, listsItsObjectsInTheOrderInWhichTheyCame)
{
    Worker worker;
    Object* second = nullptr;
    Object first;
    Object third;
    worker.run([&] { second = new Object; });
    first.moveToThread(worker.thread());  // created first, came second
    third.moveToThread(worker.thread());

    worker.finish();

    EXPECT_THAT(logged(), ElementsAre(IsLogged("Thread", warningLevel, orphanText(3, second)),
                                      IsLogged("Thread", warningLevel, orphanText(3, &first)),
                                      IsLogged("Thread", warningLevel, orphanText(3, &third))));
    delete second;
}

TEST_F(ThreadEndTest, deliversWhatWaitsBeforeItHandsAnObjectOver)
{
    Record record;
    std::atomic<int> disposals{0};
    Thread* external = nullptr;
    Thread* bound = nullptr;
    Object* orphan = nullptr;
    onExternalThread([&] {
        external = Thread::CurrentThread();
        orphan = new Recorder(record, [&](Event*) { bound = orphan->thread(); });
        post(orphan, 7, disposals);
        post(orphan, 8, disposals);
    });

    EXPECT_THAT(record.types(), ElementsAre(7U, 8U));
    EXPECT_THAT(record.threads(), Each(external));
    EXPECT_EQ(bound, external);
    EXPECT_EQ(disposals, 2);
    EXPECT_EQ(orphan->thread(), mainThread());
    EXPECT_THAT(logged(), SizeIs(1));
    delete orphan;
}

TEST_F(ThreadEndTest, deletesAnOrphanWhoseDeletionIsUnderWay)
{
    Record record;
    Record otherRecord;
    std::atomic<int> disposals{0};
    Object* doomed = nullptr;
    Object* other = nullptr;
    onExternalThread([&] {
        doomed = new Recorder(record);
        other = new Recorder(otherRecord);
        post(doomed, 7, disposals);
        doomed->destroy();
        post(doomed, 8, disposals);
        post(other, 9);
    });

    EXPECT_THAT(record.types(), ElementsAre(7U, 1U));
    EXPECT_EQ(record.destructions(), 1);
    EXPECT_EQ(disposals, 2);
    EXPECT_THAT(otherRecord.types(), ElementsAre(9U));
    EXPECT_THAT(logged(), ElementsAre(IsLogged("Thread", warningLevel, orphanText(2, doomed)),
                                      IsLogged("Thread", warningLevel, orphanText(2, other))));
    EXPECT_EQ(other->thread(), mainThread());
    delete other;
}

TEST_F(ThreadEndTest, copesWithAnOrphanThatDeletesAnotherDuringTheHandOver)
{
    Record record;
    Record otherRecord;
    Object* orphan = nullptr;
    Object* doomed = nullptr;
    onExternalThread([&] {
        orphan = new Recorder(record, [&](Event*) { delete doomed; });
        doomed = new Recorder(otherRecord);
        post(doomed, 8);
        post(orphan, 7);
    });

    EXPECT_EQ(otherRecord.destructions(), 1);
    EXPECT_THAT(otherRecord.types(), IsEmpty());
    EXPECT_EQ(orphan->thread(), mainThread());
    EXPECT_THAT(logged(), SizeIs(2));
    delete orphan;
}

TEST_F(ThreadEndTest, leavesAloneWhatAnOrphanMovedElsewhereDuringTheHandOver)
{
    Worker worker;
    Record record;
    Object* orphan = nullptr;
    Object* moved = nullptr;
    Object* other = nullptr;
    onExternalThread([&] {
        orphan = new Recorder(record, [&](Event*) { moved->moveToThread(worker.thread()); });
        moved = new Object;
        other = new Object;
        post(orphan, 7);
    });

    EXPECT_EQ(moved->thread(), worker.thread());
    EXPECT_EQ(orphan->thread(), mainThread());
    EXPECT_EQ(other->thread(), mainThread());
    EXPECT_THAT(logged(), SizeIs(3));
    worker.run([&] { delete moved; });
    delete orphan;
    delete other;
}

TEST_F(ThreadEndTest, copesWithAnOrphanThatDeletesItselfDuringTheHandOver)
{
    Record record;
    Record otherRecord;
    Object* doomed = nullptr;
    Object* other = nullptr;
    onExternalThread([&] {
        doomed = new Recorder(record, [&](Event*) { delete doomed; });
        other = new Recorder(otherRecord);
        post(doomed, 7);
        post(doomed, 8);
    });

    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_EQ(record.destructions(), 1);
    EXPECT_EQ(other->thread(), mainThread());
    EXPECT_THAT(logged(), SizeIs(2));
    delete other;
}

TEST_F(ThreadEndTest, warnsOfAllItsObjectsBeforeItHandsTheFirstOver)
{
    Record record;
    std::size_t warnings = 0;
    Object* first = nullptr;
    Object* second = nullptr;
    onExternalThread([&] {
        first = new Recorder(record, [&](Event*) { warnings = logged().size(); });
        second = new Object;
        post(first, 7);
    });

    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_EQ(warnings, 2U);
    EXPECT_THAT(logged(), SizeIs(2));
    delete first;
    delete second;
}

TEST_F(ThreadEndTest, handsOverWhatAnOrphanCreatesDuringTheHandOver)
{
    Record record;
    Object* orphan = nullptr;
    Object* late = nullptr;
    onExternalThread([&] {
        orphan = new Recorder(record, [&](Event*) { late = new Object; });
        post(orphan, 7);
    });

    ASSERT_NE(late, nullptr);
    EXPECT_EQ(late->thread(), mainThread());
    EXPECT_THAT(logged(), ElementsAre(IsLogged("Thread", warningLevel, orphanText(1, orphan)),
                                      IsLogged("Thread", warningLevel, orphanText(1, late))));
    delete late;
    delete orphan;
    EXPECT_EQ(logged().size(), 2U);
}

TEST_F(ThreadEndTest, respectsTheMovesThatOrphansMakeDuringTheHandOver)
{
    Worker worker;
    Record record;
    Object* mover = nullptr;
    Object* moved = nullptr;
    onExternalThread([&] {
        mover = new Recorder(record, [&](Event*) {
            moved->moveToThread(worker.thread());
            mover->moveToThread(worker.thread());
        });
        moved = new Object;
        post(mover, 7);
    });

    EXPECT_EQ(moved->thread(), worker.thread());
    EXPECT_EQ(mover->thread(), worker.thread());
    EXPECT_THAT(logged(), SizeIs(2));
    worker.run([&] {
        delete moved;
        delete mover;
    });
    EXPECT_EQ(logged().size(), 2U);
}

TEST_F(ThreadEndTest, deliversWhatOrphansPostToEachOtherDuringTheHandOver)
{
    Record record;
    Record otherRecord;
    Thread* external = nullptr;
    Object* first = nullptr;
    Object* second = nullptr;
    onExternalThread([&] {
        external = Thread::CurrentThread();
        first = new Recorder(record, [&](Event* event) {
            if (event->_type == 7)
                post(second, 8);
        });
        second = new Recorder(otherRecord, [&](Event*) { post(first, 9); });
        post(first, 7);
    });

    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_THAT(otherRecord.types(), ElementsAre(8U));
    EXPECT_THAT(otherRecord.threads(), ElementsAre(external));

    pump();  // the first one was the main thread's when the last event was posted
    EXPECT_THAT(record.types(), ElementsAre(7U, 9U));
    EXPECT_THAT(logged(), SizeIs(2));
    delete first;
    delete second;
}

// The end

TEST_F(ThreadEndTest, deliversWhatStillWaitsWhenItIsDeleted)
{
    auto thread = std::make_unique<Thread>();
    Record record;
    Record otherRecord;
    std::atomic<int> disposals{0};
    auto* const object = new Recorder(record);
    auto* const other = new Recorder(otherRecord);
    object->moveToThread(thread.get());
    other->moveToThread(thread.get());
    post(object, 7, disposals);
    object->destroy();
    post(other, 9, disposals);
    post(object, 8, disposals);  // behind the deletion: nobody is left to hear of it
    other->destroy();
    post(other, 10, disposals);

    thread.reset();

    EXPECT_THAT(record.types(), ElementsAre(7U, 1U));
    EXPECT_THAT(otherRecord.types(), ElementsAre(9U, 1U));
    EXPECT_THAT(record.threads(), Each(mainThread()));
    EXPECT_EQ(record.destructions(), 1);
    EXPECT_EQ(otherRecord.destructions(), 1);
    EXPECT_EQ(disposals, 4);
}

TEST_F(ThreadEndTest, deliversWhatStillWaitsWhenItIsDeletedAfterJoin)
{
    Record record;
    Object* object = nullptr;
    auto thread = std::make_unique<BodyThread>([&] { object = new Recorder(record); });
    startAndJoin(*thread);
    post(object, 7);
    object->destroy();

    thread.reset();

    EXPECT_THAT(record.types(), ElementsAre(7U, 1U));
    EXPECT_EQ(record.destructions(), 1);
}

TEST_F(ThreadEndTest, deliversWhatTheHandlersOfItsLastEventsPostAndDispatch)
{
    auto thread = std::make_unique<Thread>();
    Record record;
    Record otherRecord;
    std::atomic<int> disposals{0};
    Object* other = nullptr;
    Object* object = nullptr;
    object = new Recorder(record, [&](Event* event) {
        if (event->_type != 7)
            return;
        post(other, 8, disposals);
        Application::DispatchEvent(other, new CountedEvent(9, disposals));
        other->destroy();
        post(object, 10, disposals);
        object->destroy();
        post(object, 11, disposals);
    });
    other = new Recorder(otherRecord);
    object->moveToThread(thread.get());
    other->moveToThread(thread.get());
    post(object, 7, disposals);

    thread.reset();

    EXPECT_THAT(record.types(), ElementsAre(7U, 10U, 1U));
    EXPECT_THAT(otherRecord.types(), ElementsAre(8U, 9U, 1U));
    EXPECT_EQ(disposals, 5);
    EXPECT_EQ(record.destructions() + otherRecord.destructions(), 2);
}

TEST_F(ThreadEndTest, endsTheProcessWhenATimerThatIsDuePostsInItsLastIteration)
{
    auto thread = std::make_unique<Thread>();
    Object object;
    object.moveToThread(thread.get());
    FunctionTimer timer([&] { post(&object, 7); });
    timer.start(0, thread.get());

    EXPECT_FATAL(thread.reset(), "false", "src/core/EventQueue.cpp");
    // Here the timer stops and the object goes before the thread does.
}

TEST_F(ThreadEndTest, mayEndAndGoBeforeThePosterOfItsLastEventIsThrough)
{
    auto* const thread = new Thread;
    thread->setJoinable(true);
    GMainContext* const context = fieldAt<GMainContext*>(fieldAt<void*>(thread, 8), 32);
    Record record;
    Object* object = nullptr;
    object = new Recorder(record, [&](Event*) {
        thread->stop();
        delete object;
    });
    object->moveToThread(thread);
    thread->start();
    std::promise<void> queued;
    std::promise<void> gone;
    std::atomic<bool> isPosting{true};
    std::thread::id posterId;
    std::vector<GMainContext*> woken;
    const Interposed slow(interpose::g_async_queue_push, [&](auto* real, GAsyncQueue* queue, gpointer item) {
        real(queue, item);
        if (!isPosting.exchange(false))
            return;
        posterId = std::this_thread::get_id();
        queued.set_value();
        gone.get_future().wait();
    });
    const Interposed noted(interpose::g_main_context_wakeup, [&](auto* real, GMainContext* which) {
        if (std::this_thread::get_id() == posterId)
            woken.push_back(which);
        real(which);
    });

    std::thread poster([&] { post(object, 7); });
    queued.get_future().wait();
    thread->wakeUp();
    thread->join();
    delete thread;
    gone.set_value();
    poster.join();

    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_THAT(woken, ElementsAre(context));
}

TEST_F(ThreadEndTest, isJoinedWithoutAWordWhenTheApplicationIsGone)
{
    std::atomic<bool> isUnregistered{false};
    BodyThread thread([&] { atThreadEnd([&] { isUnregistered = true; }); });
    thread.start();
    ASSERT_TRUE(waitUntil([&] { return isUnregistered.load(); }));
    endApplication();

    thread.join();  // and TearDown() finds nothing in the log

    EXPECT_FALSE(thread.isRunning());
}

TEST_F(ThreadEndTest, answersTheHandlersOfItsLastEvents)
{
    auto* const thread = new Thread;
    Record record;
    bool isCurrent = true;
    bool isRunning = true;
    unsigned int waiting = 1;
    Object* object = nullptr;
    object = new Recorder(record, [&](Event*) {
        isCurrent = object->thread()->isCurrentThread();
        isRunning = object->thread()->isRunning();
        waiting = object->thread()->countEventsForObject(object);
        object->thread()->processEventsForObject(object);
        object->thread()->wakeUp();
        object->thread()->stop();
    });
    object->moveToThread(thread);
    const std::string noLoop = noLoopText(thread);
    post(object, 7);
    post(object, 8);
    object->destroy();

    delete thread;

    EXPECT_FALSE(isCurrent);
    EXPECT_FALSE(isRunning);
    EXPECT_EQ(waiting, 0U);  // the last iteration alone delivers
    EXPECT_THAT(record.types(), ElementsAre(7U, 8U, 1U));
    EXPECT_THAT(logged(), ElementsAre(IsLogged("PAL", warningLevel, noLoop), IsLogged("PAL", warningLevel, noLoop)));
}

TEST_F(ThreadEndTest, takesEventsFromAThreadThatEndsDuringItsOwnEnd)
{
    auto outer = std::make_unique<Thread>();
    auto inner = std::make_unique<Thread>();
    Record outerRecord;
    Record innerRecord;
    auto* const ofOuter = new Recorder(outerRecord, [&](Event* event) {
        if (event->_type == 7)
            inner.reset();
    });
    auto* const ofInner = new Recorder(innerRecord, [&](Event*) {
        post(ofOuter, 9);
        ofOuter->destroy();
    });
    ofOuter->moveToThread(outer.get());
    ofInner->moveToThread(inner.get());
    post(ofOuter, 7);
    post(ofInner, 8);
    ofInner->destroy();

    outer.reset();

    EXPECT_THAT(innerRecord.types(), ElementsAre(8U, 1U));
    EXPECT_THAT(outerRecord.types(), ElementsAre(7U, 9U, 1U));
    EXPECT_EQ(innerRecord.destructions() + outerRecord.destructions(), 2);
}

TEST_F(ThreadEndTest, endsBeforeAnotherThatBeganToEndLater)
{
    auto earlier = std::make_unique<Thread>();
    auto* const later = new Thread;
    Record earlierRecord;
    Record laterRecord;
    std::promise<void> laterEnds;
    std::promise<void> earlierIsGone;
    std::thread deleting;
    auto* const ofEarlier = new Recorder(earlierRecord, [&](Event*) {
        deleting = std::thread([&] { delete later; });
        laterEnds.get_future().wait();
    });
    Object* ofLater = nullptr;
    ofLater = new Recorder(laterRecord, [&](Event* event) {
        if (event->_type != 8)
            return;
        laterEnds.set_value();
        earlierIsGone.get_future().wait();
        post(ofLater, 9);  // its thread still takes events
        ofLater->destroy();
    });
    ofEarlier->moveToThread(earlier.get());
    ofLater->moveToThread(later);
    post(ofEarlier, 7);
    ofEarlier->destroy();
    post(ofLater, 8);

    earlier.reset();
    earlierIsGone.set_value();
    deleting.join();

    EXPECT_THAT(earlierRecord.types(), ElementsAre(7U, 1U));
    EXPECT_THAT(laterRecord.types(), ElementsAre(8U, 9U, 1U));
    EXPECT_EQ(earlierRecord.destructions() + laterRecord.destructions(), 2);
}

TEST_F(ThreadEndTest, hasItsImplementationNoMoreWhenItsLastEventsAreDelivered)
{
    auto* const thread = new Thread;
    Record record;
    void* implementation = thread;
    auto* const object = new Recorder(record, [&](Event*) { implementation = fieldAt<void*>(thread, 8); });
    object->moveToThread(thread);
    post(object, 7);
    object->destroy();

    delete thread;

    EXPECT_THAT(record.types(), ElementsAre(7U, 1U));
    EXPECT_EQ(implementation, nullptr);
}

TEST_F(ThreadEndTest, letsTheHandlersOfItsLastEventsDeleteOtherObjects)
{
    auto thread = std::make_unique<Thread>();
    Record record;
    Record otherRecord;
    std::atomic<int> disposals{0};
    Object* other = nullptr;
    Object* object = nullptr;
    object = new Recorder(record, [&](Event*) {
        delete other;
        delete object;
    });
    other = new Recorder(otherRecord);
    object->moveToThread(thread.get());
    other->moveToThread(thread.get());
    post(object, 7, disposals);
    post(other, 8, disposals);
    post(object, 9, disposals);

    thread.reset();

    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_THAT(otherRecord.types(), IsEmpty());
    EXPECT_EQ(record.destructions() + otherRecord.destructions(), 2);
    EXPECT_EQ(disposals, 3);
}

TEST_F(ThreadEndTest, releasesItsContextAndThenItsQueueWhenDeleted)
{
    interpose::CallLog releases;
    auto thread = std::make_unique<Thread>();
    const Interposed context(interpose::g_main_context_unref, releases.noting("context"));
    const Interposed queue(interpose::g_async_queue_unref, releases.noting("queue"));

    thread.reset();

    EXPECT_THAT(releases.calls(), ElementsAre("context", "queue"));
}

}  // namespace
