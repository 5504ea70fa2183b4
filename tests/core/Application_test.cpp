// The application: its singleton and arguments, the registry of threads, the three ways to hand over an event, and the
// collector of threads.
#include <glib.h>

#include <cstdlib>
#include <set>

#include "FatalTest.h"
#include "Interpose.h"
#include "Runtime.h"
#include "ThreadGroup.h"
#include "VirtualTable.h"
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

constexpr const char* source = "src/core/Application.cpp";

/// A test that makes its applications itself, and logs nothing but what it looks at.
class NoApplicationTest : public RuntimeTest {
protected:
    NoApplicationTest() { endApplication(); }
};

class ApplicationTest : public RuntimeTest {};

// The singleton and its arguments

TEST_F(NoApplicationTest, startsAgainAfterItsEnd)
{
    for (int round = 0; round < 3; ++round) {
        const Application application(0, nullptr);
        EXPECT_NE(Application::CurrentThread(), nullptr);
        EXPECT_EQ(Application::CurrentThread(), Application::MainApplicationThread());
    }
    EXPECT_EQ(Application::CurrentThread(), nullptr);
}

TEST_F(NoApplicationTest, hasItsDestructorInTheFirstSlotsAndItsRecordBehind)
{
    constexpr std::size_t deletingDestructorSlot = 1;
    auto* const application = new Application(0, nullptr);
    EXPECT_EQ(sizeof(Application), 16U);
    EXPECT_NE(fieldAt<void*>(application, 8), nullptr);

    callAddress(addressInSlot(application, deletingDestructorSlot), application);

    EXPECT_EQ(Application::CurrentThread(), nullptr);
}

TEST_F(NoApplicationTest, keepsACopyOfTheArgumentsInTheirOrder)
{
    std::string program = "/usr/bin/host";
    std::string option = "--port";
    std::string value = "with blanks and \xc3\xa4";
    std::string empty;
    std::vector<char*> arguments{program.data(), option.data(), value.data(), empty.data(), nullptr};

    const Application application(4, arguments.data());
    const std::vector<std::string> expected{program, option, value, empty};
    program[0] = '#';

    EXPECT_EQ(Application::Arguments(), expected);
    Application::Arguments().clear();  // a copy
    onForeignThread([&] { EXPECT_EQ(Application::Arguments(), expected); });
}

TEST_F(NoApplicationTest, takesNoMoreArgumentsThanItsCount)
{
    std::string program = "host";
    std::string option = "--port";
    std::vector<char*> arguments{program.data(), option.data(), nullptr};

    const Application application(1, arguments.data());

    EXPECT_THAT(Application::Arguments(), ElementsAre("host"));
}

TEST_F(NoApplicationTest, hasNoArgumentsForACountOfZeroOrLess)
{
    std::string program = "host";
    std::vector<char*> arguments{program.data(), nullptr};
    {
        const Application application(0, arguments.data());
        EXPECT_THAT(Application::Arguments(), IsEmpty());
    }
    {
        const Application application(-1, arguments.data());
        EXPECT_THAT(Application::Arguments(), IsEmpty());
    }
}

TEST_F(NoApplicationTest, endsTheProcessWhenAskedForArguments)
{
    EXPECT_FATAL(Application::Arguments(), "application != nullptr", source);
}

TEST_F(NoApplicationTest, warnsWhenAskedForTheMainThread)
{
    EXPECT_EQ(Application::MainApplicationThread(), nullptr);

    EXPECT_THAT(logged(), ElementsAre(IsLogged("PAL", warningLevel, "The Application was not instantiated !")));
}

TEST_F(NoApplicationTest, knowsNoCurrentThreadAndProcessesNoEvents)
{
    EXPECT_EQ(Application::CurrentThread(), nullptr);
    EXPECT_FALSE(Application::isExternalThreadAlreadyRegistered());
    EXPECT_THAT(logged(), IsEmpty());

    Application::ProcessEvents(true);

    EXPECT_THAT(logged(),
                ElementsAre(IsLogged("PAL", warningLevel, "Trying to process events from an unregistered thread !")));
}

TEST_F(NoApplicationTest, endsTheProcessWhenAThreadRegisters)
{
    Thread thread;

    EXPECT_FATAL(Application::RegisterThread(&thread), "application != nullptr", source);
    EXPECT_FATAL(Application::UnregisterThread(&thread), "application != nullptr", source);
    EXPECT_FATAL(Application::RegisterExternalThread(), "application != nullptr", source);
}

TEST_F(NoApplicationTest, endsTheProcessWhenAThreadIsStarted)
{
    BodyThread thread([] { std::_Exit(0); });  // which is never reached

    EXPECT_FATAL(startAndJoin(thread), "application != nullptr", source);
}

TEST_F(ApplicationTest, endsTheProcessWhenASecondOneIsMade)
{
    EXPECT_FATAL(Application(0, nullptr), "isTheOnlyApplication", source);
}

TEST_F(ApplicationTest, endsTheProcessWhenItIsDestroyedOnAnotherThread)
{
    EXPECT_FATAL(onForeignThread([&] { endApplication(); }), "CurrentThread() == thread", source);
}

// The main thread

TEST_F(ApplicationTest, makesItsCreatorTheMainThread)
{
    ASSERT_NE(mainThread(), nullptr);
    EXPECT_EQ(Application::CurrentThread(), mainThread());
    EXPECT_EQ(Thread::CurrentThread(), mainThread());
    EXPECT_TRUE(mainThread()->isCurrentThread());
    EXPECT_TRUE(mainThread()->isRunning());
    EXPECT_FALSE(mainThread()->isJoinable());
    onForeignThread([] {
        EXPECT_FALSE(mainThread()->isCurrentThread());
        EXPECT_EQ(Application::CurrentThread(), nullptr);
    });
}

TEST_F(ApplicationTest, runsTheMainLoopUntilItIsToldToQuit)
{
    Record record;
    auto* const object = new Recorder(record, [&](Event* event) {
        if (event->_type == 8)
            Application::Quit();
    });
    post(object, 7);
    post(object, 8);
    object->destroy();

    application().exec();

    EXPECT_THAT(record.types(), ElementsAre(7U, 8U, 1U));
    EXPECT_THAT(record.threads(), Each(mainThread()));
}

TEST_F(ApplicationTest, canBeToldToQuitByAnyThread)
{
    Record record;
    std::thread other;
    FunctionTimer timer([&] {
        timer.stop();
        other = std::thread([] { Application::Quit(); });
    });
    timer.start(0, nullptr);

    application().exec();

    other.join();
}

TEST_F(ApplicationTest, onlyWarnsWhenToldToQuitWithoutALoop)
{
    const std::string text = noLoopText(mainThread());

    Application::Quit();

    EXPECT_THAT(logged(), ElementsAre(IsLogged("PAL", warningLevel, text)));
}

TEST_F(ApplicationTest, warnsOfTheMainThreadsObjectsAtTheEndOfItsLoopAndForgetsThem)
{
    Record record;
    auto* const first = new Recorder(record, [](Event*) { Application::Quit(); });
    auto* const second = new Recorder(record);
    post(first, 7);

    application().exec();
    EXPECT_THAT(logged(), ElementsAre(IsLogged("Thread", warningLevel, orphanText(2, first)),
                                      IsLogged("Thread", warningLevel, orphanText(2, second))));
    EXPECT_EQ(first->thread(), mainThread());
    EXPECT_EQ(second->thread(), mainThread());

    post(first, 8);  // they are served all the same, and nobody is warned of them again
    application().exec();
    EXPECT_THAT(record.types(), ElementsAre(7U, 8U));
    EXPECT_THAT(logged(), SizeIs(2));

    delete first;
    delete second;
    const char* const notAttached = "Error removing object from affinity thread, its not attached (?\?)";
    EXPECT_THAT(logged(), SizeIs(4));
    EXPECT_THAT(logged().at(2), IsLogged("Thread", warningLevel, notAttached));
    EXPECT_THAT(logged().at(3), IsLogged("Thread", warningLevel, notAttached));
}

// The registry

TEST_F(ApplicationTest, doesNotKnowASystemThreadThatIsNotRegistered)
{
    onForeignThread([] {
        EXPECT_EQ(Application::CurrentThread(), nullptr);
        EXPECT_FALSE(Application::isExternalThreadAlreadyRegistered());
    });
}

TEST_F(ApplicationTest, tellsOfAnyRegisteredThreadThatItIsRegistered)
{
    EXPECT_TRUE(Application::isExternalThreadAlreadyRegistered());
    onExternalThread([] { EXPECT_TRUE(Application::isExternalThreadAlreadyRegistered()); });
    BodyThread thread([] { EXPECT_TRUE(Application::isExternalThreadAlreadyRegistered()); });
    startAndJoin(thread);
}

TEST_F(ApplicationTest, bindsASystemThreadWithoutTouchingTheThreadsHandle)
{
    Thread thread;
    onForeignThread([&] {
        Application::RegisterThread(&thread);
        EXPECT_EQ(Application::CurrentThread(), &thread);
        EXPECT_FALSE(thread.isRunning());
        EXPECT_FALSE(thread.isCurrentThread());

        Application::UnregisterThread(&thread);
        EXPECT_EQ(Application::CurrentThread(), nullptr);
    });
}

TEST_F(ApplicationTest, endsTheProcessWhenAThreadWithoutAHandleSendsMovesOrLeavesObjects)
{
    const auto bound = [](const std::function<void(Thread&, Object*)>& function) {
        onForeignThread([&] {
            Thread thread;
            Application::RegisterThread(&thread);
            function(thread, new Object);
        });
    };

    EXPECT_FATAL(bound([](Thread&, Object* object) {
                     Event event(7, nullptr);
                     Application::SendEvent(object, event);
                 }),
                 "target->thread() ? target->thread()->isCurrentThread() : true", source);
    EXPECT_FATAL(bound([](Thread&, Object* object) { object->moveToThread(mainThread()); }),
                 "_thread->isCurrentThread()", "src/core/Object.cpp");
    EXPECT_FATAL(bound([](Thread& thread, Object*) {
                     FunctionTimer timer([&] { thread.stop(); });
                     timer.start(0, nullptr);
                     thread.exec();
                 }),
                 "_thread->isCurrentThread()", "src/core/Object.cpp");
}

TEST_F(ApplicationTest, endsTheProcessWhenAThreadRegistersTwice)
{
    Thread thread;

    EXPECT_FATAL(Application::RegisterThread(&thread), "CurrentThread() == nullptr", source);
    EXPECT_FATAL(Application::RegisterExternalThread(), "CurrentThread() == nullptr", source);
}

TEST_F(ApplicationTest, endsTheProcessWhenAnotherThreadIsUnregistered)
{
    Thread thread;

    EXPECT_FATAL(Application::UnregisterThread(&thread), "CurrentThread() == thread", source);
    EXPECT_FATAL(onForeignThread([] { Application::UnregisterThread(mainThread()); }), "CurrentThread() == thread",
                 source);
}

TEST_F(ApplicationTest, endsTheProcessWhenAnUnregisteredThreadUnregistersAsExternal)
{
    EXPECT_FATAL(onForeignThread([] { Application::UnregisterExternalThread(); }), "thread != nullptr", source);
}

TEST_F(ApplicationTest, givesAnExternalThreadAThreadOfItsOwn)
{
    Record record;
    onForeignThread([&] {
        Application::RegisterExternalThread();
        Thread* const thread = Application::CurrentThread();
        ASSERT_NE(thread, nullptr);
        EXPECT_NE(thread, mainThread());
        EXPECT_TRUE(thread->isCurrentThread());
        EXPECT_TRUE(thread->isRunning());
        EXPECT_FALSE(thread->isJoinable());
        {
            Recorder object(record);
            EXPECT_EQ(object.thread(), thread);
            onForeignThread([&] { post(&object, 7); });
            Application::ProcessEvents(true);
            EXPECT_THAT(record.threads(), ElementsAre(thread));
        }
        Application::UnregisterExternalThread();
        EXPECT_EQ(Application::CurrentThread(), nullptr);
    });
    EXPECT_THAT(record.types(), ElementsAre(7U));
}

TEST_F(ApplicationTest, letsAnExternalThreadRunItsLoop)
{
    Record record;
    std::promise<Object*> ready;
    std::thread other(onThisThreadAsExternal, [&] {
        Thread* const thread = Thread::CurrentThread();
        Object* object = nullptr;
        object = new Recorder(record, [&, thread](Event*) {
            thread->stop();
            delete object;
        });
        ready.set_value(object);
        thread->exec();
    });

    post(ready.get_future().get(), 7);

    other.join();
    EXPECT_THAT(record.types(), ElementsAre(7U));
}

TEST_F(ApplicationTest, handsTheObjectsOfAnExternalThreadToTheMainThreadWhenItUnregisters)
{
    Object* orphan = nullptr;
    onExternalThread([&] { orphan = new Object; });

    EXPECT_EQ(orphan->thread(), mainThread());
    EXPECT_THAT(logged(), ElementsAre(IsLogged("Thread", warningLevel, orphanText(1, orphan))));
    delete orphan;
}

TEST_F(ApplicationTest, unregistersAnExternalThreadBeforeItsLastEventsAreDelivered)
{
    Record record;
    std::atomic<int> disposals{0};
    Recorder object(record);  // another thread's, so that the hand-over leaves its events alone

    onExternalThread([&] {
        auto* const event = new CountedEvent(7, disposals);
        event->_receiver = &object;
        Thread::CurrentThread()->postEvent(event);
    });

    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_THAT(record.threads(), ElementsAre(nullptr));
    EXPECT_EQ(disposals, 1);
}

TEST_F(ApplicationTest, mayBeJoinedByTheSameSystemThreadAgain)
{
    onForeignThread([] {
        for (int round = 0; round < 3; ++round) {
            Application::RegisterExternalThread();
            EXPECT_TRUE(Application::CurrentThread()->isCurrentThread());
            Application::UnregisterExternalThread();
        }
    });
}

TEST_F(ApplicationTest, registersManyExternalThreadsAtOnce)
{
    constexpr int count = 64;
    std::vector<Thread*> registered(count);
    std::atomic<int> ready{0};

    ThreadGroup threads(count, [&](int number) {
        onThisThreadAsExternal([&] {
            registered[static_cast<std::size_t>(number)] = Application::CurrentThread();
            ++ready;
            EXPECT_TRUE(waitUntil([&] { return ready == count; }));  // all at the same time
            EXPECT_TRUE(Application::CurrentThread()->isCurrentThread());
        });
    });
    threads.join();

    EXPECT_EQ(std::set<Thread*>(registered.begin(), registered.end()).size(), std::size_t{count});
}

TEST_F(ApplicationTest, processesTheCurrentThreadsEvents)
{
    Record record;
    Recorder object(record);
    post(&object, 7);

    Application::ProcessEvents(false);
    EXPECT_THAT(record.types(), ElementsAre(7U));

    Application::ProcessEvents(false);  // nothing waits, and nothing is waited for
}

/// The time-outs of the polls that were asked for.
std::vector<gint> pollTimeouts;

gint pollAtOnce(GPollFD* descriptors, guint count, gint timeoutMs)
{
    pollTimeouts.push_back(timeoutMs);
    return g_poll(descriptors, count, 0);
}

TEST_F(ApplicationTest, waitsWithoutLimitForTheCurrentThreadsEventsOnlyWhenItMay)
{
    auto* const context = fieldAt<GMainContext*>(fieldAt<void*>(mainThread(), 8), 32);
    g_main_context_set_poll_func(context, pollAtOnce);
    pollTimeouts.clear();

    Application::ProcessEvents(true);
    EXPECT_THAT(pollTimeouts, ElementsAre(-1));

    Application::ProcessEvents(false);
    EXPECT_THAT(pollTimeouts, ElementsAre(-1, 0));
    g_main_context_set_poll_func(context, nullptr);
}

TEST_F(ApplicationTest, onlyWarnsWhenAnUnregisteredThreadProcessesEvents)
{
    onForeignThread([] { Application::ProcessEvents(true); });

    EXPECT_THAT(logged(),
                ElementsAre(IsLogged("PAL", warningLevel, "Trying to process events from an unregistered thread !")));
}

// Post, send, dispatch

TEST_F(ApplicationTest, setsTheReceiverOfAPostedEventAndDeliversItLater)
{
    Record record;
    Object* receiver = nullptr;
    std::atomic<int> disposals{0};
    Recorder object(record, [&](Event* event) { receiver = event->_receiver; });
    auto* const event = new CountedEvent(7, disposals);

    Application::PostEvent(&object, event);
    EXPECT_EQ(event->_receiver, &object);
    EXPECT_THAT(record.types(), IsEmpty());
    EXPECT_EQ(disposals, 0);

    pump();
    EXPECT_EQ(receiver, &object);
    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_EQ(disposals, 1);
}

TEST_F(ApplicationTest, leavesAnEventToItsPosterWhenTheTargetHasNoThread)
{
    Record record;
    std::atomic<int> disposals{0};
    CountedEvent event(7, disposals);
    onForeignThread([&] {
        Recorder target(record);
        Application::PostEvent(&target, &event);
    });

    EXPECT_THAT(logged(), ElementsAre(IsLogged("PAL", errorLevel,
                                               "Impossible to post event to an object without a thread affinity !")));
    EXPECT_EQ(event._receiver, nullptr);
    EXPECT_EQ(disposals, 0);
    EXPECT_THAT(record.types(), IsEmpty());
}

TEST_F(ApplicationTest, sendsAtOnceAndLeavesTheEventAlone)
{
    Record record;
    std::atomic<int> disposals{0};
    Recorder object(record);
    post(&object, 8);
    CountedEvent event(7, disposals);

    Application::SendEvent(&object, event);

    EXPECT_THAT(record.types(), ElementsAre(7U));  // ahead of what waits
    EXPECT_EQ(event._receiver, nullptr);
    EXPECT_EQ(disposals, 0);
    pump();
    EXPECT_THAT(record.types(), ElementsAre(7U, 8U));
}

TEST_F(ApplicationTest, sendsToAnObjectWithoutThreadFromAnyThread)
{
    Record record;
    Object* object = nullptr;
    onForeignThread([&] { object = new Recorder(record); });
    Event event(7, nullptr);

    Application::SendEvent(object, event);
    onForeignThread([&] { Application::SendEvent(object, event); });

    EXPECT_THAT(record.types(), ElementsAre(7U, 7U));
    delete object;
}

TEST_F(ApplicationTest, endsTheProcessWhenSendingToAnObjectOfAnotherThread)
{
    constexpr const char* check = "target->thread() ? target->thread()->isCurrentThread() : true";
    Object object;

    EXPECT_FATAL(onForeignThread([&] {
                     Event event(7, nullptr);
                     Application::SendEvent(&object, event);
                 }),
                 check, source);
    EXPECT_FATAL(
        {
            Worker worker;
            worker.run([&] {
                Event event(7, nullptr);
                Application::SendEvent(&object, event);
            });
        },
        check, source);
}

TEST_F(ApplicationTest, dispatchesToItsOwnThreadAtOnceAndDisposesOfTheEvent)
{
    Record record;
    std::atomic<int> disposals{0};
    Recorder object(record, [&](Event* event) {
        EXPECT_EQ(event->_receiver, nullptr);  // sent, not posted
        EXPECT_EQ(disposals, 0);
    });

    Application::DispatchEvent(&object, new CountedEvent(7, disposals));

    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_EQ(disposals, 1);
}

TEST_F(ApplicationTest, dispatchesToAnObjectWithoutThreadAtOnceFromAnyThread)
{
    Record record;
    std::atomic<int> disposals{0};
    Object* object = nullptr;
    onForeignThread([&] { object = new Recorder(record); });

    Application::DispatchEvent(object, new CountedEvent(7, disposals));

    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_EQ(disposals, 1);
    delete object;
}

TEST_F(ApplicationTest, dispatchesToAnotherThreadThroughItsQueue)
{
    Record record;
    std::atomic<int> disposals{0};
    Object* receiver = nullptr;
    Recorder object(record, [&](Event* event) { receiver = event->_receiver; });

    onForeignThread([&] { Application::DispatchEvent(&object, new CountedEvent(7, disposals)); });
    EXPECT_THAT(record.types(), IsEmpty());
    EXPECT_EQ(disposals, 0);

    pump();
    EXPECT_THAT(record.threads(), ElementsAre(mainThread()));
    EXPECT_EQ(receiver, &object);
    EXPECT_EQ(disposals, 1);
}

TEST_F(ApplicationTest, disposesOfADispatchedEventWhoseHandlerDeletedTheTarget)
{
    Record record;
    std::atomic<int> disposals{0};
    Object* object = nullptr;
    object = new Recorder(record, [&](Event*) { delete object; });

    Application::DispatchEvent(object, new CountedEvent(7, disposals));

    EXPECT_EQ(record.destructions(), 1);
    EXPECT_EQ(disposals, 1);
}

// The collector

/// A joinable thread that notes its name when it is deleted.
class CollectedThread : public BodyThread {
public:
    CollectedThread(std::string name, interpose::CallLog& deletions, std::function<void()> body)
        : BodyThread(std::move(body)), _name(std::move(name)), _deletions(deletions)
    {
    }
    ~CollectedThread() override { _deletions.note(_name); }

private:
    std::string _name;
    interpose::CallLog& _deletions;
};

/// Runs the current thread's loop, and keeps the promise once it runs.
void execAndTell(std::promise<void>& looping)
{
    FunctionTimer timer([&] {
        timer.stop();
        looping.set_value();
    });
    timer.start(0, nullptr);
    Thread::CurrentThread()->exec();
}

/// A started thread in its loop.
Thread* newLoopingThread(const std::string& name, interpose::CallLog& deletions)
{
    auto looping = std::make_shared<std::promise<void>>();
    auto* const thread = new CollectedThread(name, deletions, [looping] { execAndTell(*looping); });
    thread->start();
    looping->get_future().wait();
    return thread;
}

TEST_F(ApplicationTest, collectsAThreadAtTheNextHandOver)
{
    interpose::CallLog deletions;
    Thread* const first = newLoopingThread("first", deletions);
    Thread* const second = newLoopingThread("second", deletions);

    Application::AddToThreadGarbageCollector(first);
    EXPECT_THAT(deletions.calls(), IsEmpty());
    EXPECT_TRUE(first->isRunning());

    Application::AddToThreadGarbageCollector(second);
    EXPECT_THAT(deletions.calls(), ElementsAre("first"));
    EXPECT_TRUE(second->isRunning());

    endApplication();
    EXPECT_THAT(deletions.calls(), ElementsAre("first", "second"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ApplicationTest, collectsAThreadThatHandsOverItselfInItsOwnLoop)
{
    interpose::CallLog deletions;
    Record record;
    std::promise<void> handedOver;
    auto* const thread = new CollectedThread("thread", deletions, [&] {
        Object* object = nullptr;
        object = new Recorder(record, [&](Event*) {
            delete object;
            Application::AddToThreadGarbageCollector(Thread::CurrentThread());
            handedOver.set_value();
        });
        post(object, 7);
        Thread::CurrentThread()->exec();
    });
    thread->start();
    handedOver.get_future().wait();
    EXPECT_THAT(deletions.calls(), IsEmpty());

    endApplication();

    EXPECT_THAT(deletions.calls(), ElementsAre("thread"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ApplicationTest, letsAThreadThatHandedOverItselfHandOverAnother)
{
    interpose::CallLog deletions;
    Thread* const other = newLoopingThread("other", deletions);
    std::promise<void> handedOver;
    auto* const thread = new CollectedThread("itself", deletions, [&] {
        Application::AddToThreadGarbageCollector(Thread::CurrentThread());
        Application::AddToThreadGarbageCollector(other);  // does not wait for itself
        handedOver.set_value();
    });
    const std::string noLoop = noLoopText(thread);
    thread->start();
    handedOver.get_future().wait();

    endApplication();

    EXPECT_THAT(deletions.calls(), ElementsAre("itself", "other"));  // in the order of the hand-overs
    EXPECT_THAT(logged(), ElementsAre(IsLogged("PAL", warningLevel, noLoop)));
}

TEST_F(ApplicationTest, collectsAThreadWhoseLoopHasEndedAlready)
{
    interpose::CallLog deletions;
    std::promise<void> ended;
    auto* const thread = new CollectedThread("thread", deletions, [&] { ended.set_value(); });
    const std::string noLoop = noLoopText(thread);
    thread->start();
    ended.get_future().wait();

    Application::AddToThreadGarbageCollector(thread);
    EXPECT_THAT(logged(), IsEmpty());
    endApplication();

    EXPECT_THAT(deletions.calls(), ElementsAre("thread"));
    EXPECT_THAT(logged(), ElementsAre(IsLogged("PAL", warningLevel, noLoop)));
}

TEST_F(ApplicationTest, collectsAThreadWhoseLoopHasYetToBegin)
{
    interpose::CallLog deletions;
    std::promise<void> mayLoop;
    auto* const thread = new CollectedThread("thread", deletions, [&] {
        mayLoop.get_future().wait();
        Thread::CurrentThread()->exec();
    });
    const std::string noLoop = noLoopText(thread);
    thread->start();
    Application::AddToThreadGarbageCollector(thread);
    std::thread gate([&] {
        EXPECT_TRUE(waitUntil([&] { return !logged().empty(); }));  // the stop has come and gone
        mayLoop.set_value();
    });

    endApplication();

    gate.join();
    EXPECT_THAT(deletions.calls(), ElementsAre("thread"));
    EXPECT_THAT(logged(), ElementsAre(IsLogged("PAL", warningLevel, noLoop)));
}

TEST_F(ApplicationTest, locksNothingWhileItWaitsForACollectedThread)
{
    interpose::CallLog deletions;
    Thread* const late = newLoopingThread("late", deletions);
    std::promise<void> looping;
    auto* const thread = new CollectedThread("thread", deletions, [&] {
        execAndTell(looping);
        Application::AddToThreadGarbageCollector(late);  // while the main thread waits in join
    });
    thread->start();
    looping.get_future().wait();
    Application::AddToThreadGarbageCollector(thread);

    endApplication();  // collects until nothing is left

    EXPECT_THAT(deletions.calls(), ElementsAre("thread", "late"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ApplicationTest, endsTheProcessWhenAThreadIsCollectedThatIsNotJoinable)
{
    EXPECT_FATAL(
        {
            auto* const thread = new Thread;
            thread->start();
            Application::AddToThreadGarbageCollector(thread);
            endApplication();
        },
        "_thread != nullptr", "src/core/Thread.cpp");
}

// The end

TEST_F(ApplicationTest, collectsThreadsWhileItsOwnThreadIsStillTheCurrentOne)
{
    interpose::CallLog deletions;
    Record record;
    auto* const thread = new CollectedThread("thread", deletions, [] {});
    auto* const object = new Recorder(record);
    object->moveToThread(thread);
    post(object, 7);  // for its deletion to deliver
    object->destroy();
    const std::string noLoop = noLoopText(thread);
    Thread* const main = mainThread();
    thread->start();
    Application::AddToThreadGarbageCollector(thread);

    endApplication();

    EXPECT_THAT(deletions.calls(), ElementsAre("thread"));
    EXPECT_THAT(record.types(), ElementsAre(7U, 1U));
    EXPECT_THAT(record.threads(), Each(main));
    EXPECT_THAT(logged(), ElementsAre(IsLogged("PAL", warningLevel, noLoop)));
}

TEST_F(ApplicationTest, deliversTheMainThreadsLastEventsWithNoCurrentThread)
{
    Record record;
    Thread* bound = nullptr;
    Object* object = nullptr;
    object = new Recorder(record, [&](Event*) { bound = object->thread(); });
    Thread* const main = mainThread();
    post(object, 7);
    object->destroy();

    endApplication();

    EXPECT_THAT(record.types(), ElementsAre(7U, 1U));
    EXPECT_THAT(record.threads(), Each(nullptr));
    EXPECT_EQ(bound, main);
    EXPECT_EQ(record.destructions(), 1);
}

TEST_F(ApplicationTest, dropsWhatWaitsBehindADeletionAmongItsLastEvents)
{
    Record record;
    Record otherRecord;
    std::atomic<int> disposals{0};
    auto* const object = new Recorder(record);
    auto* const other = new Recorder(otherRecord);
    object->destroy();
    post(object, 7, disposals);
    post(other, 8, disposals);
    other->destroy();
    post(other, 9, disposals);

    endApplication();

    EXPECT_THAT(record.types(), ElementsAre(1U));
    EXPECT_THAT(otherRecord.types(), ElementsAre(8U, 1U));
    EXPECT_EQ(disposals, 3);
}

TEST_F(ApplicationTest, letsItsLastHandlersPostSendDispatchQuitAndDestroy)
{
    Record record;
    Record otherRecord;
    std::atomic<int> disposals{0};
    Object* object = nullptr;
    Object* other = nullptr;
    object = new Recorder(record, [&](Event* event) {
        if (event->_type != 7)
            return;
        post(other, 8, disposals);
        Application::DispatchEvent(other, new CountedEvent(9, disposals));
        Event sent(10, nullptr);
        Application::SendEvent(other, sent);
        Application::Quit();
        const Object unbound;  // created by a handler, it is bound to no thread
        EXPECT_EQ(unbound.thread(), nullptr);
        other->destroy();
        object->destroy();
        post(object, 11, disposals);
    });
    other = new Recorder(otherRecord);
    const std::string noLoop = noLoopText(mainThread());
    post(object, 7, disposals);

    endApplication();

    EXPECT_THAT(record.types(), ElementsAre(7U, 1U));
    EXPECT_THAT(otherRecord.types(), ElementsAre(9U, 10U, 8U, 1U));
    EXPECT_EQ(disposals, 4);
    EXPECT_THAT(logged(), ElementsAre(IsLogged("PAL", warningLevel, noLoop)));
}

TEST_F(ApplicationTest, letsItsLastHandlersMoveObjectsWithAllTheirEvents)
{
    Thread other;
    Record record;
    std::atomic<int> disposals{0};
    Object* object = nullptr;
    object = new Recorder(record, [&](Event* event) {
        if (event->_type == 7)
            object->moveToThread(&other);
    });
    post(object, 7, disposals);
    post(object, 8, disposals);

    endApplication();

    EXPECT_EQ(object->thread(), &other);
    EXPECT_THAT(record.types(), ElementsAre(7U, 8U));
    EXPECT_EQ(disposals, 2);
    delete object;
}

TEST_F(ApplicationTest, leavesThreadsAloneThatItsLastHandlersHandOver)
{
    interpose::CallLog deletions;
    Record record;
    auto thread = std::make_unique<CollectedThread>("thread", deletions, [] {});
    auto* const object = new Recorder(record, [&](Event*) { Application::AddToThreadGarbageCollector(thread.get()); });
    post(object, 7);
    object->destroy();

    endApplication();

    EXPECT_THAT(record.types(), ElementsAre(7U, 1U));
    EXPECT_THAT(deletions.calls(), IsEmpty());
}

}  // namespace
