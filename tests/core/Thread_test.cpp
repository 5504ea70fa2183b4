// Threads as hosts see them: start and join, the loop and its stop, and the delivery of events.
#include <dlfcn.h>

#include <optional>
#include "FatalTest.h"
#include "InterposeGlib.h"
#include "Runtime.h"
#include "VirtualTable.h"
#include "Wait.h"

namespace {

std::function<void(GMainContext*)> platformHook;

}  // namespace

// Stands in front of the library's hook for platforms.
__attribute__((visibility("default"))) void Thread_attachPlatformSources(GMainContext* context);
void Thread_attachPlatformSources(GMainContext* context)
{
    if (platformHook != nullptr)
        platformHook(context);
}

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using Murn::Application;
using Murn::Event;
using Murn::Object;
using Murn::Thread;

namespace {

constexpr const char* source = "src/core/Thread.cpp";

/// For threads that are to be there when the process ends.
void sleepForEver()
{
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
}

class ThreadTest : public RuntimeTest {};

TEST_F(ThreadTest, hasItsImplementationAndItsBodyWhereHostsExpectThem)
{
    constexpr std::size_t deletingDestructorSlot = 1;
    constexpr std::size_t bodySlot = 2;
    int runs = 0;
    auto* const thread = new BodyThread([&] { ++runs; });

    EXPECT_EQ(sizeof(Thread), 16U);
    EXPECT_NE(fieldAt<void*>(thread, 8), nullptr);
    callAddress(addressInSlot(thread, bodySlot), thread);
    EXPECT_EQ(runs, 1);
    callAddress(addressInSlot(thread, deletingDestructorSlot), thread);
}

TEST_F(ThreadTest, callsThePlatformsHookOncePerThreadAndBehindItsEventSource)
{
    interpose::CallLog calls;
    GMainContext* attachedTo = nullptr;
    GMainContext* hookedTo = nullptr;
    const Interposed attaching(interpose::g_source_attach, [&](auto real, GSource* eventSource, GMainContext* context) {
        calls.note("event source");
        attachedTo = context;
        return real(eventSource, context);
    });
    platformHook = [&](GMainContext* context) {
        calls.note("hook");
        hookedTo = context;
    };

    const Thread thread;
    platformHook = nullptr;

    EXPECT_THAT(calls.calls(), ElementsAre("event source", "hook"));
    EXPECT_NE(hookedTo, nullptr);
    EXPECT_EQ(hookedTo, attachedTo);
}

TEST_F(ThreadTest, exportsAPlatformsHookThatAttachesNothing)
{
    using Hook = void(GMainContext*);
    auto* const hook = reinterpret_cast<Hook*>(::dlsym(RTLD_NEXT, "_Z28Thread_attachPlatformSourcesP13_GMainContext"));
    ASSERT_NE(hook, nullptr);
    interpose::CallLog attached;
    const Interposed attaching(interpose::g_source_attach, attached.noting("a source"));
    GMainContext* const context = g_main_context_new();

    hook(context);

    EXPECT_THAT(attached.calls(), IsEmpty());
    g_main_context_unref(context);
}

// Start and join

TEST_F(ThreadTest, runsItsBodyOnANewSystemThread)
{
    std::thread::id id;
    BodyThread thread([&] { id = std::this_thread::get_id(); });

    startAndJoin(thread);

    EXPECT_NE(id, std::thread::id());
    EXPECT_NE(id, std::this_thread::get_id());
}

TEST_F(ThreadTest, knowsItselfInItsBody)
{
    BodyThread thread([&] {
        EXPECT_EQ(Thread::CurrentThread(), &thread);
        EXPECT_EQ(Application::CurrentThread(), &thread);
        EXPECT_TRUE(thread.isCurrentThread());
        EXPECT_TRUE(thread.isRunning());
        EXPECT_TRUE(thread.isJoinable());
        EXPECT_FALSE(mainThread()->isCurrentThread());
    });
    EXPECT_FALSE(thread.isCurrentThread());

    startAndJoin(thread);

    EXPECT_FALSE(thread.isCurrentThread());
}

TEST_F(ThreadTest, findsItsHandleInItsBodyHoweverEarlyThatRuns)
{
    const Interposed late(interpose::g_thread_try_new,
                          [](auto real, const gchar* name, GThreadFunc function, gpointer data, GError** error) {
                              GThread* const handle = real(name, function, data, error);
                              // The new thread has all the time to get ahead of its creator.
                              std::this_thread::sleep_for(std::chrono::milliseconds(20));
                              return handle;
                          });
    bool knewItself = false;
    BodyThread thread([&] { knewItself = thread.isRunning() && thread.isCurrentThread(); });

    startAndJoin(thread);

    EXPECT_TRUE(knewItself);
}

TEST_F(ThreadTest, isRegisteredUntilItsBodyReturns)
{
    Thread* afterwards = mainThread();
    BodyThread thread([&] { atThreadEnd([&] { afterwards = Application::CurrentThread(); }); });

    startAndJoin(thread);

    EXPECT_EQ(afterwards, nullptr);
}

TEST_F(ThreadTest, countsAsRunningFromStartToJoin)
{
    BodyThread thread([] {});
    EXPECT_FALSE(thread.isRunning());

    thread.start();
    EXPECT_TRUE(thread.isRunning());

    thread.join();
    EXPECT_FALSE(thread.isRunning());
}

TEST_F(ThreadTest, isNotJoinableBeforeItIsStarted)
{
    BodyThread thread([] {});
    thread.setJoinable(true);
    EXPECT_FALSE(thread.isJoinable());

    thread.start();
    EXPECT_TRUE(thread.isJoinable());

    thread.join();
    EXPECT_TRUE(thread.isJoinable());  // it was started as joinable, and that is what is asked
}

TEST_F(ThreadTest, takesTheLastChoiceOfJoinableBeforeTheStart)
{
    Thread thread;
    thread.setJoinable(true);
    thread.setJoinable(false);

    EXPECT_FATAL(startAndJoin(thread), "_thread != nullptr", source);
}

TEST_F(ThreadTest, canBeStartedAgainAfterJoin)
{
    int runs = 0;
    BodyThread thread([&] {
        ++runs;
        EXPECT_TRUE(thread.isCurrentThread());
    });

    startAndJoin(thread);
    startAndJoin(thread);

    EXPECT_EQ(runs, 2);
}

TEST_F(ThreadTest, waitsInJoinForTheEndOfTheBody)
{
    std::atomic<bool> ended{false};
    BodyThread thread([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ended = true;
    });

    startAndJoin(thread);

    EXPECT_TRUE(ended);
}

TEST_F(ThreadTest, logsThatTheSystemRefusesAThreadAndCountsAsNotStarted)
{
    BodyThread thread([] {});
    {
        const Interposed refusing(interpose::g_thread_try_new,
                                  [](auto, const gchar*, GThreadFunc, gpointer, GError** error) -> GThread* {
                                      g_set_error_literal(error, G_THREAD_ERROR, G_THREAD_ERROR_AGAIN, "no room");
                                      return nullptr;
                                  });
        thread.start();
    }

    EXPECT_THAT(logged(), ElementsAre(IsLogged("Thread", errorLevel,
                                               "Thread [" + addressText(fieldAt<void*>(&thread, 8)) +
                                                   "] could not be started: no room")));
    EXPECT_FALSE(thread.isRunning());
    EXPECT_FALSE(thread.isJoinable());

    startAndJoin(thread);
}

TEST_F(ThreadTest, endsTheProcessWhenStartedTwice)
{
    EXPECT_FATAL(
        {
            BodyThread thread(sleepForEver);
            thread.start();
            thread.start();
        },
        "_thread == nullptr", source);
}

TEST_F(ThreadTest, endsTheProcessWhenMadeJoinableAfterTheStart)
{
    EXPECT_FATAL(
        {
            BodyThread thread(sleepForEver);
            thread.start();
            thread.setJoinable(false);
        },
        "_thread == nullptr", source);
}

TEST_F(ThreadTest, endsTheProcessWhenTheMainThreadIsMadeJoinable)
{
    EXPECT_FATAL(mainThread()->setJoinable(true), "_thread == nullptr", source);
}

TEST_F(ThreadTest, endsTheProcessWhenJoinedBeforeTheStart)
{
    EXPECT_FATAL(
        {
            BodyThread thread([] {});
            thread.join();
        },
        "_thread != nullptr", source);
}

TEST_F(ThreadTest, endsTheProcessWhenJoinedTwice)
{
    EXPECT_FATAL(
        {
            BodyThread thread([] {});
            startAndJoin(thread);
            thread.join();
        },
        "_thread != nullptr", source);
}

TEST_F(ThreadTest, looksInJoinForTheHandleBeforeItLooksWhetherItIsJoinable)
{
    Thread thread;  // neither started nor joinable

    EXPECT_FATAL(thread.join(), "_thread != nullptr", source);
}

TEST_F(ThreadTest, endsTheProcessWhenJoinedWithAHandleButNotJoinable)
{
    EXPECT_FATAL(mainThread()->join(), "_joinable == true", source);
    EXPECT_FATAL(
        {
            onForeignThread([] {
                Application::RegisterExternalThread();
                Thread* const external = Thread::CurrentThread();
                onForeignThread([&] { external->join(); });
            });
        },
        "_joinable == true", source);
}

TEST_F(ThreadTest, endsTheProcessWhenDeletedWithoutJoin)
{
    EXPECT_FATAL(
        {
            std::promise<void> inBody;
            auto* const thread = new BodyThread([&] {
                inBody.set_value();
                sleepForEver();
            });
            thread->start();
            inBody.get_future().wait();
            delete thread;
        },
        "!_joinable || _thread == nullptr", source);
}

TEST_F(ThreadTest, looksWhetherItWasJoinedBeforeItDeliversItsLastEvents)
{
    EXPECT_FATAL_AFTER(
        {
            std::promise<void> inBody;
            auto* const thread = new BodyThread([&] {
                inBody.set_value();
                sleepForEver();
            });
            Record record;
            auto* const object = new Recorder(record, [](Event*) { std::fputs("event delivered, ", stdout); });
            object->moveToThread(thread);
            post(object, 7);
            thread->start();
            inBody.get_future().wait();
            std::fputs("deleted, ", stdout);
            delete thread;
        },
        "deleted, ", "!_joinable || _thread == nullptr", source);
}

// Threads that are not joinable

/// A thread that is not joinable, and knows when its system threads have ended.
class DetachedThread : public BodyThread {
public:
    explicit DetachedThread(std::function<void()> body)
        : BodyThread(
              [this, body = std::move(body)] {
                  atThreadEnd([this] { ++_ends; });
                  body();
              },
              false)
    {
    }

    bool hasEnded(int times) const { return _ends == times; }

private:
    std::atomic<int> _ends{0};
};

TEST_F(ThreadTest, neverKnowsItselfWhenNotJoinable)
{
    bool isCurrent = true;
    bool isRunning = true;
    bool isJoinable = true;
    Thread* current = nullptr;
    DetachedThread thread([&] {
        isCurrent = thread.isCurrentThread();
        isRunning = thread.isRunning();
        isJoinable = thread.isJoinable();
        current = Thread::CurrentThread();
    });

    thread.start();
    EXPECT_FALSE(thread.isRunning());
    EXPECT_FALSE(thread.isJoinable());

    ASSERT_TRUE(waitUntil([&] { return thread.hasEnded(1); }));
    EXPECT_FALSE(isCurrent);
    EXPECT_FALSE(isRunning);
    EXPECT_FALSE(isJoinable);
    EXPECT_EQ(current, &thread);  // the registry knows it all the same
}

TEST_F(ThreadTest, mayBeStartedTwiceWhenNotJoinable)
{
    std::atomic<int> inBody{0};
    DetachedThread thread([&] {
        ++inBody;
        EXPECT_TRUE(waitUntil([&] { return inBody == 2; }));  // both at the same time
    });

    thread.start();
    thread.start();

    EXPECT_TRUE(waitUntil([&] { return thread.hasEnded(2); }));
}

TEST_F(ThreadTest, noticesNoChoiceAfterAStartThatWasNotJoinable)
{
    std::promise<void> chosen;
    DetachedThread thread([&] { chosen.get_future().wait(); });
    thread.start();

    thread.setJoinable(true);
    EXPECT_FALSE(thread.isJoinable());
    chosen.set_value();

    EXPECT_TRUE(waitUntil([&] { return thread.hasEnded(1); }));
}

TEST_F(ThreadTest, remembersItsJoinableStartForGood)
{
    DetachedThread thread([] {});
    thread.setJoinable(true);
    startAndJoin(thread);

    thread.setJoinable(false);
    EXPECT_FALSE(thread.isJoinable());
    thread.start();
    thread.setJoinable(true);
    EXPECT_TRUE(thread.isJoinable());
    EXPECT_FALSE(thread.isRunning());

    EXPECT_TRUE(waitUntil([&] { return thread.hasEnded(2); }));
}

TEST_F(ThreadTest, runsAndStopsItsLoopWhenNotJoinable)
{
    std::promise<void> looping;
    DetachedThread thread([&] {
        FunctionTimer timer([&] {
            timer.stop();
            looping.set_value();
        });
        timer.start(0, nullptr);
        thread.exec();
    });

    thread.start();
    looping.get_future().wait();
    thread.stop();

    EXPECT_TRUE(waitUntil([&] { return thread.hasEnded(1); }));
}

TEST_F(ThreadTest, endsTheProcessWhenAThreadThatIsNotJoinableLeavesObjects)
{
    EXPECT_FATAL(
        {
            Record record;
            DetachedThread thread([&] {
                Object* const orphan = new Recorder(record, [&](Event*) { thread.stop(); });
                post(orphan, 7);
                thread.exec();
            });
            thread.start();
            sleepForEver();
        },
        "_thread->isCurrentThread()", "src/core/Object.cpp");
}

// The loop and its stop

TEST_F(ThreadTest, runsItsLoopUntilItIsStoppedByDefault)
{
    Thread thread;
    thread.setJoinable(true);
    Record record;
    Object* object = nullptr;
    object = new Recorder(record, [&](Event* event) {
        if (event->_type == 8) {
            delete object;
            thread.stop();
        }
    });
    object->moveToThread(&thread);

    thread.start();
    post(object, 7);
    post(object, 8);
    thread.join();

    EXPECT_THAT(record.types(), ElementsAre(7U, 8U));
    EXPECT_THAT(record.threads(), Each(&thread));
}

TEST_F(ThreadTest, canRunItsLoopAgain)
{
    Record record;
    BodyThread thread([&] {
        for (int round = 0; round < 3; ++round) {
            Object* object = nullptr;
            object = new Recorder(record, [&](Event*) {
                thread.stop();
                delete object;
            });
            post(object, 7);
            thread.exec();
        }
    });

    startAndJoin(thread);

    EXPECT_THAT(record.types(), ElementsAre(7U, 7U, 7U));
}

TEST_F(ThreadTest, onlyWarnsWhenStoppedWithoutALoop)
{
    Thread thread;

    thread.stop();

    EXPECT_THAT(logged(), ElementsAre(IsLogged("PAL", warningLevel, noLoopText(&thread))));
}

TEST_F(ThreadTest, forgetsAStopThatCameBeforeItsLoop)
{
    std::promise<void> stoppedEarly;
    std::promise<void> looping;
    Record record;
    BodyThread thread([&] {
        stoppedEarly.get_future().wait();
        Recorder object(record, [&](Event*) { looping.set_value(); });
        post(&object, 7);
        thread.exec();
    });
    thread.start();

    thread.stop();
    EXPECT_THAT(logged(), ElementsAre(IsLogged("PAL", warningLevel, noLoopText(&thread))));
    stoppedEarly.set_value();
    looping.get_future().wait();

    thread.stop();
    thread.join();
    EXPECT_THAT(record.types(), ElementsAre(7U));
}

TEST_F(ThreadTest, isStoppedByAStopThatComesBeforeGlibRunsTheLoop)
{
    BodyThread thread([&] { thread.exec(); });
    const Interposed late(interpose::g_main_loop_run, [&](auto real, GMainLoop* loop) {
        onForeignThread([&] { thread.stop(); });
        real(loop);
    });

    startAndJoin(thread);

    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ThreadTest, runsItsNextLoopAfterAStopThatCameBeforeGlibRanTheFirst)
{
    std::optional<Interposed<void(GMainLoop*)>> late;
    std::promise<void> looping;
    Record record;
    BodyThread thread([&] {
        late.emplace(interpose::g_main_loop_run, [&](auto real, GMainLoop* loop) {
            thread.stop();
            real(loop);
        });
        thread.exec();
        late.reset();

        Object* object = nullptr;
        object = new Recorder(record, [&](Event*) {
            delete object;
            looping.set_value();
        });
        post(object, 7);
        thread.exec();
    });

    thread.start();
    looping.get_future().wait();
    thread.stop();
    thread.join();

    EXPECT_THAT(record.types(), ElementsAre(7U));
}

TEST_F(ThreadTest, staysSilentWhenStoppedAgainBeforeItsLoopHasEnded)
{
    Record record;
    BodyThread thread([&] {
        Object* object = nullptr;
        object = new Recorder(record, [&](Event*) {
            thread.stop();
            thread.stop();
            delete object;
        });
        post(object, 7);
        thread.exec();
    });

    startAndJoin(thread);

    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ThreadTest, doesNothingWhenStoppedWhileItHandsItsObjectsOver)
{
    Record record;
    interpose::CallLog quits;
    std::vector<std::string> quitsBefore;
    const Interposed noted(interpose::g_main_loop_quit, quits.noting("quit"));
    Object* orphan = nullptr;
    BodyThread thread([&] {
        orphan = new Recorder(record, [&](Event*) {
            quitsBefore = quits.calls();
            thread.stop();
        });
        post(orphan, 7);
        // Ends the loop before it delivers anything, so that the event is delivered in the hand-over.
        const Interposed early(interpose::g_main_loop_run, [&](auto real, GMainLoop* loop) {
            thread.stop();
            real(loop);
        });
        thread.exec();
    });

    startAndJoin(thread);

    ASSERT_THAT(record.types(), ElementsAre(7U));
    EXPECT_EQ(quits.calls(), quitsBefore);
    // The orphan's warning, and none about a missing loop.
    EXPECT_THAT(logged(), ElementsAre(IsLogged("Thread", warningLevel, orphanText(1, orphan))));
    delete orphan;
}

TEST_F(ThreadTest, leavesALoopAloneThatItsThreadIsReleasing)
{
    BodyThread thread([&] { thread.exec(); });
    interpose::CallLog quits;
    int quitsBefore = -1;
    const Interposed noted(interpose::g_main_loop_quit, quits.noting("quit"));
    const Interposed releasing(interpose::g_main_loop_unref, [&](auto real, GMainLoop* loop) {
        quitsBefore = static_cast<int>(quits.calls().size());
        onForeignThread([&] { thread.stop(); });
        real(loop);
    });
    const Interposed early(interpose::g_main_loop_run, [&](auto real, GMainLoop* loop) {
        thread.stop();
        real(loop);
    });

    startAndJoin(thread);

    EXPECT_EQ(static_cast<int>(quits.calls().size()), quitsBefore);
    EXPECT_THAT(logged(), ElementsAre(IsLogged("PAL", warningLevel, noLoopText(&thread))));
}

// Iterations and delivery

TEST_F(ThreadTest, tellsWhetherAnIterationDeliveredSomething)
{
    Record record;
    Recorder object(record);
    EXPECT_FALSE(mainThread()->processEvents(false));

    post(&object, 7);
    EXPECT_TRUE(mainThread()->processEvents(false));
    EXPECT_FALSE(mainThread()->processEvents(false));

    post(&object, 8);
    EXPECT_TRUE(mainThread()->processEvents(true));
    EXPECT_THAT(record.types(), ElementsAre(7U, 8U));
}

TEST_F(ThreadTest, waitsInABlockingIterationForAnEvent)
{
    Record record;
    std::promise<Object*> ready;
    std::thread other(onThisThreadAsExternal, [&] {
        Recorder object(record);
        ready.set_value(&object);
        while (record.types().empty())
            Thread::CurrentThread()->processEvents(true);
    });

    post(ready.get_future().get(), 7);

    other.join();
    EXPECT_THAT(record.types(), ElementsAre(7U));
}

TEST_F(ThreadTest, leavesABlockingIterationWhenWokenUp)
{
    std::promise<Thread*> ready;
    bool delivered = true;
    std::thread other(onThisThreadAsExternal, [&] {
        ready.set_value(Thread::CurrentThread());
        delivered = Thread::CurrentThread()->processEvents(true);
    });

    ready.get_future().get()->wakeUp();

    other.join();
    EXPECT_FALSE(delivered);
}

TEST_F(ThreadTest, keepsEventsThatArePostedBeforeItsLoopRuns)
{
    Thread thread;
    thread.setJoinable(true);
    Record record;
    Object* object = nullptr;
    object = new Recorder(record, [&](Event* event) {
        if (event->_type == 9) {
            thread.stop();
            delete object;
        }
    });
    object->moveToThread(&thread);
    post(object, 7);
    post(object, 8);
    post(object, 9);
    EXPECT_EQ(thread.countEventsForObject(object), 3U);

    startAndJoin(thread);

    EXPECT_THAT(record.types(), ElementsAre(7U, 8U, 9U));
    EXPECT_THAT(record.threads(), Each(&thread));
}

TEST_F(ThreadTest, wakesItsLoopForEveryPostedEvent)
{
    Record record;
    Recorder object(record);
    interpose::CallLog wakeUps;
    const Interposed noted(interpose::g_main_context_wakeup, wakeUps.noting("wake-up"));

    post(&object, 7);
    EXPECT_THAT(wakeUps.calls(), SizeIs(1));

    auto* const event = new Event(8, nullptr);
    event->_receiver = &object;
    mainThread()->postEvent(event);
    EXPECT_THAT(wakeUps.calls(), SizeIs(2));

    pump();
    EXPECT_THAT(record.types(), ElementsAre(7U, 8U));
}

TEST_F(ThreadTest, queuesAnEventBeforeItWakesTheLoop)
{
    Record record;
    Recorder object(record);
    std::vector<unsigned int> waiting;
    const Interposed noted(interpose::g_main_context_wakeup, [&](auto* real, GMainContext* context) {
        waiting.push_back(mainThread()->countEventsForObject(&object));
        real(context);
    });

    post(&object, 7);

    EXPECT_THAT(waiting, ElementsAre(1U));
    pump();
}

TEST_F(ThreadTest, deliversPromptlyToALoopThatWaits)
{
    Worker worker;
    Record record;
    Object* object = nullptr;
    worker.run([&] { object = new Recorder(record); });

    for (unsigned int round = 1; round <= 50; ++round) {
        post(object, 6 + round);
        ASSERT_TRUE(waitUntil([&] { return record.types().size() == round; }));
    }

    EXPECT_THAT(record.threads(), Each(worker.thread()));
    worker.run([&] { delete object; });
}

TEST_F(ThreadTest, deliversToOneObjectNothingThatIsForTheNextInItsPlace)
{
    Record first;
    Record second;
    alignas(Recorder) unsigned char place[sizeof(Recorder)];
    Recorder* object = nullptr;
    object = new (place) Recorder(first, [&](Event*) {
        object->~Recorder();
        object = new (place) Recorder(second);
        post(object, 8);
    });
    post(object, 7);

    mainThread()->processEventsForObject(object);

    EXPECT_THAT(first.types(), ElementsAre(7U));
    EXPECT_THAT(second.types(), IsEmpty());
    pump();
    EXPECT_THAT(second.types(), ElementsAre(8U));
    object->~Recorder();
}

TEST_F(ThreadTest, deliversOneObjectsEventsOnRequestAndKeepsTheRest)
{
    Record record;
    Record otherRecord;
    std::atomic<int> disposals{0};
    Recorder other(otherRecord);
    Object* object = nullptr;
    object = new Recorder(record, [&](Event* event) {
        if (event->_type == 7)
            post(object, 9, disposals);
    });
    post(&other, 10);
    post(object, 7, disposals);
    post(&other, 11);
    post(object, 8, disposals);
    EXPECT_EQ(mainThread()->countEventsForObject(object), 2U);
    EXPECT_EQ(mainThread()->countEventsForObject(&other), 2U);

    mainThread()->processEventsForObject(object);

    EXPECT_THAT(record.types(), ElementsAre(7U, 8U, 9U));
    EXPECT_EQ(disposals, 3);
    EXPECT_EQ(mainThread()->countEventsForObject(object), 0U);
    EXPECT_THAT(otherRecord.types(), IsEmpty());
    mainThread()->processEventsForObject(object);  // nothing waits
    pump();
    EXPECT_THAT(otherRecord.types(), ElementsAre(10U, 11U));
    delete object;
}

TEST_F(ThreadTest, takesOneObjectsEventsOutAllAtOnce)
{
    constexpr int count = 100;
    Record record;
    Record otherRecord;
    Recorder other(otherRecord);
    std::vector<unsigned int> waiting;
    Object* object = nullptr;
    object = new Recorder(record, [&](Event*) { waiting.push_back(mainThread()->countEventsForObject(object)); });
    for (int number = 0; number < count; ++number) {
        post(&other, 7);
        post(object, 8);
    }
    int passes = 0;

    {
        const Interposed counted(interpose::g_async_queue_lock, [&](auto* real, GAsyncQueue* queue) {
            ++passes;
            real(queue);
        });
        mainThread()->processEventsForObject(object);
    }

    EXPECT_THAT(record.types(), SizeIs(count));
    EXPECT_THAT(waiting, Each(0U));
    // One by each handler above, one for all events, and one that finds no more.
    EXPECT_EQ(passes, count + 2);
    delete object;
    pump();
    EXPECT_THAT(otherRecord.types(), SizeIs(count));
}

TEST_F(ThreadTest, disposesOfEachOfOneObjectsEventsBeforeItDeliversTheNext)
{
    Record record;
    std::atomic<int> disposals{0};
    std::vector<int> disposedBefore;
    Recorder object(record, [&](Event*) { disposedBefore.push_back(disposals); });
    post(&object, 7, disposals);
    post(&object, 8, disposals);
    post(&object, 9, disposals);

    mainThread()->processEventsForObject(&object);

    EXPECT_THAT(record.types(), ElementsAre(7U, 8U, 9U));
    EXPECT_THAT(disposedBefore, ElementsAre(0, 1, 2));
    EXPECT_EQ(disposals, 3);
}

TEST_F(ThreadTest, deliversOneObjectsEventsOnTheThreadThatAsks)
{
    Record record;
    Recorder object(record);
    post(&object, 7);

    onForeignThread([&] { mainThread()->processEventsForObject(&object); });

    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_THAT(record.threads(), ElementsAre(nullptr));
}

TEST_F(ThreadTest, deliversTheEventsOfTwoObjectsOnTwoThreadsThatAskAtOnce)
{
    Record earlierRecord;
    Record laterRecord;
    std::promise<void> laterBegins;
    std::promise<void> earlierHasEnded;
    Recorder later(laterRecord, [&](Event* event) {
        if (event->_type != 8)
            return;
        laterBegins.set_value();
        earlierHasEnded.get_future().wait();
    });
    std::thread asking;
    Recorder earlier(earlierRecord, [&](Event*) {
        asking = std::thread([&] { mainThread()->processEventsForObject(&later); });
        laterBegins.get_future().wait();
    });
    post(&later, 8);
    post(&earlier, 7);
    post(&later, 9);

    mainThread()->processEventsForObject(&earlier);
    earlierHasEnded.set_value();
    asking.join();

    EXPECT_THAT(earlierRecord.types(), ElementsAre(7U));
    EXPECT_THAT(laterRecord.types(), ElementsAre(8U, 9U));
}

TEST_F(ThreadTest, deliversTheRequestToDeleteAmongOneObjectsEvents)
{
    Record record;
    std::atomic<int> disposals{0};
    auto* const object = new Recorder(record);
    post(object, 7, disposals);
    object->destroy();
    post(object, 8, disposals);

    mainThread()->processEventsForObject(object);

    EXPECT_THAT(record.types(), ElementsAre(7U, 1U));
    EXPECT_EQ(record.destructions(), 1);
    EXPECT_EQ(disposals, 2);
}

// Handlers that pump the loop

TEST_F(ThreadTest, keepsFurtherEventsWaitingWhileAHandlerPumps)
{
    Record record;
    std::vector<unsigned int> before;
    Recorder object(record, [&](Event* event) {
        if (event->_type == 7) {
            Application::ProcessEvents(false);
            before = record.types();
        }
    });
    post(&object, 7);
    post(&object, 8);

    pump();

    EXPECT_THAT(before, ElementsAre(7U));
    EXPECT_THAT(record.types(), ElementsAre(7U, 8U));
}

TEST_F(ThreadTest, mayLoseATimerWhileAHandlerPumps)
{
    Record record;
    FunctionTimer* doomed = nullptr;
    bool fired = false;
    doomed = new FunctionTimer([&] {
        fired = true;
        delete doomed;
    });
    doomed->start(0, nullptr);
    Recorder object(record, [&](Event*) {
        while (!fired)
            Application::ProcessEvents(true);
    });
    post(&object, 7);

    pump();

    EXPECT_TRUE(fired);
}

TEST_F(ThreadTest, mayLoseTheVeryTimerWhoseCallbackPumps)
{
    Record record;
    FunctionTimer* timer = nullptr;
    Recorder object(record, [&](Event*) { delete std::exchange(timer, nullptr); });
    bool returned = false;
    timer = new FunctionTimer([&] {
        post(&object, 7);
        while (timer != nullptr)
            Application::ProcessEvents(true);
        returned = true;
    });
    timer->start(0, nullptr);

    while (!returned)
        Application::ProcessEvents(true);

    pump();
    EXPECT_THAT(record.types(), ElementsAre(7U));
}

TEST_F(ThreadTest, mayRestartTheVeryTimerWhoseCallbackPumps)
{
    Record record;
    int firings = 0;
    FunctionTimer* timer = nullptr;
    Recorder object(record, [&](Event*) { timer->start(1, nullptr); });
    FunctionTimer pumping([&] {
        ++firings;
        if (firings == 1) {
            post(&object, 7);
            while (record.types().empty())
                Application::ProcessEvents(true);
        }
    });
    timer = &pumping;
    pumping.start(0, nullptr);

    while (firings < 4)
        Application::ProcessEvents(true);

    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_TRUE(pumping.isRunning());
}

TEST_F(ThreadTest, endsItsLoopWhenStoppedWhileAHandlerPumps)
{
    Record record;
    int firings = 0;
    BodyThread thread([&] {
        FunctionTimer stopper([&] {
            ++firings;
            thread.stop();
            stopper.stop();
        });
        stopper.start(0, nullptr);
        Object* object = nullptr;
        object = new Recorder(record, [&](Event*) {
            while (firings == 0)
                Application::ProcessEvents(true);
            delete object;
        });
        post(object, 7);
        thread.exec();
    });

    startAndJoin(thread);

    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_EQ(firings, 1);
}

}  // namespace
