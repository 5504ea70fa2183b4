// What is behind a thread: its record, its event source, and the list of its objects.
#include <algorithm>

#include "InterposeGlib.h"
#include "Runtime.h"
#include "Wait.h"
#include "core/ThreadImpl.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using Murn::Event;
using Murn::EventQueue;
using Murn::Object;
using Murn::Thread;
using Murn::ThreadImpl;

namespace {

/// The record's fields in their order; what the tests read and, for states that nothing else brings about, write.
struct Fields {
    void* virtualTable;
    EventQueue* events;
    bool joinable;
    bool startedJoinable;
    bool running;
    bool loopRunning;
    GThread* thread;
    GMainContext* context;
    GMainLoop* loop;
    Thread* owner;
    Object** objects;
    Object** objectsEnd;
    Object** objectsCapacity;
    GRecMutex* objectsMutex;
    GRecMutex* stateMutex;
};

Fields fieldsOf(const Thread& thread)
{
    return fieldAt<Fields>(ThreadImpl::Of(&thread), 0);
}

std::vector<Object*> objectsOf(const Thread& thread)
{
    const Fields fields = fieldsOf(thread);
    return {fields.objects, fields.objectsEnd};
}

template <typename Value>
void setField(const Thread& thread, std::size_t offset, Value value)
{
    std::memcpy(reinterpret_cast<char*>(ThreadImpl::Of(&thread)) + offset, &value, sizeof value);
}

/// How often the function locks the mutex on the calling thread.
template <typename Function>
int locksOf(GRecMutex* wanted, Function function)
{
    int locks = 0;
    const Interposed lock(interpose::g_rec_mutex_lock, [&, thread = g_thread_self()](auto* real, GRecMutex* mutex) {
        if (mutex == wanted && g_thread_self() == thread)
            ++locks;
        real(mutex);
    });
    function();
    return locks;
}

class ThreadImplTest : public RuntimeTest {};

// The record

TEST_F(ThreadImplTest, startsWithItsQueueItsContextAndNothingElse)
{
    Thread thread;

    const Fields fields = fieldsOf(thread);

    EXPECT_EQ(fieldAt<ThreadImpl*>(&thread, 8), ThreadImpl::Of(&thread));
    EXPECT_NE(fields.events, nullptr);
    EXPECT_EQ(fields.events, ThreadImpl::Of(&thread)->events());
    EXPECT_FALSE(fields.joinable);
    EXPECT_FALSE(fields.startedJoinable);
    EXPECT_FALSE(fields.running);
    EXPECT_FALSE(fields.loopRunning);
    EXPECT_EQ(fields.thread, nullptr);
    EXPECT_NE(fields.context, nullptr);
    EXPECT_EQ(fields.context, ThreadImpl::Of(&thread)->context());
    EXPECT_EQ(fields.loop, nullptr);
    EXPECT_EQ(fields.owner, &thread);
    EXPECT_THAT(objectsOf(thread), IsEmpty());
    EXPECT_NE(fields.objectsMutex, nullptr);
}

TEST_F(ThreadImplTest, hasAContextOfItsOwnThatIsNeverGlibsDefaultOne)
{
    const Thread thread;

    EXPECT_NE(fieldsOf(thread).context, g_main_context_default());
    EXPECT_NE(fieldsOf(*mainThread()).context, g_main_context_default());
    EXPECT_NE(fieldsOf(thread).context, fieldsOf(*mainThread()).context);
}

TEST_F(ThreadImplTest, keepsTrackOfItsStart)
{
    Fields inBody{};
    GThread* self = nullptr;
    BodyThread thread([&] {
        inBody = fieldsOf(thread);
        self = g_thread_self();
    });
    EXPECT_TRUE(fieldsOf(thread).joinable);
    EXPECT_FALSE(fieldsOf(thread).startedJoinable);

    thread.start();
    EXPECT_TRUE(fieldsOf(thread).startedJoinable);
    thread.join();

    EXPECT_TRUE(inBody.running);
    EXPECT_FALSE(inBody.loopRunning);
    EXPECT_EQ(inBody.loop, nullptr);
    EXPECT_EQ(inBody.thread, self);
    EXPECT_FALSE(fieldsOf(thread).running);
    EXPECT_EQ(fieldsOf(thread).thread, nullptr);
    EXPECT_TRUE(fieldsOf(thread).startedJoinable);  // never reset
}

TEST_F(ThreadImplTest, keepsTrackOfItsLoop)
{
    Record record;
    Fields inLoop{};
    Fields stopped{};
    Fields afterLoop{};
    GMainContext* loopsContext = nullptr;
    BodyThread thread([&] {
        Object* object = nullptr;
        object = new Recorder(record, [&](Event*) {
            inLoop = fieldsOf(thread);
            loopsContext = g_main_loop_get_context(inLoop.loop);
            thread.stop();
            stopped = fieldsOf(thread);
            delete object;
        });
        post(object, 7);
        thread.exec();
        afterLoop = fieldsOf(thread);
    });

    thread.start();
    thread.join();

    EXPECT_TRUE(inLoop.running);
    EXPECT_TRUE(inLoop.loopRunning);
    EXPECT_EQ(loopsContext, inLoop.context);
    EXPECT_FALSE(stopped.loopRunning);
    EXPECT_EQ(stopped.loop, inLoop.loop);
    EXPECT_FALSE(afterLoop.running);  // though the body still runs
    EXPECT_FALSE(afterLoop.loopRunning);
    EXPECT_EQ(afterLoop.loop, nullptr);
}

TEST_F(ThreadImplTest, hasNoLoopAnyMoreWhenSomebodyElseQuitIt)
{
    Fields afterLoop{};
    BodyThread thread([&] {
        Object* object = nullptr;
        Record record;
        object = new Recorder(record, [&](Event*) {
            g_main_loop_quit(fieldsOf(thread).loop);
            delete object;
        });
        post(object, 7);
        thread.exec();
        afterLoop = fieldsOf(thread);
    });

    startAndJoin(thread);

    EXPECT_FALSE(afterLoop.loopRunning);
}

TEST_F(ThreadImplTest, keepsItsLoopUntilItsObjectsAreHandedOverAndRunsNoMoreByThen)
{
    Record record;
    Fields inHandOver{};
    Object* orphan = nullptr;
    BodyThread thread([&] {
        orphan = new Recorder(record, [&](Event*) { inHandOver = fieldsOf(thread); });
        post(orphan, 7);
        // Ends before it delivers anything, so that the event is delivered in the hand-over.
        const Interposed atOnce(interpose::g_main_loop_run, [](auto*, GMainLoop*) {});
        thread.exec();
    });

    startAndJoin(thread);

    ASSERT_THAT(record.types(), ElementsAre(7U));
    EXPECT_FALSE(inHandOver.running);
    EXPECT_FALSE(inHandOver.loopRunning);
    EXPECT_NE(inHandOver.loop, nullptr);
    EXPECT_THAT(logged(), SizeIs(1));
    delete orphan;
}

TEST_F(ThreadImplTest, locksItsStateForEachStepOfItsLoop)
{
    int inExec = 0;
    BodyThread thread([&] {
        GRecMutex* const state = fieldsOf(thread).stateMutex;
        EXPECT_EQ(locksOf(state, [&] { ThreadImpl::Of(&thread)->retire(); }), 1);
        inExec = locksOf(state, [&] { thread.exec(); });  // comes back at once
        EXPECT_EQ(locksOf(state, [&] { thread.stop(); }), 1);
    });

    startAndJoin(thread);

    EXPECT_EQ(inExec, 3);              // the beginning, the first look at whether it was stopped, the end
    EXPECT_THAT(logged(), SizeIs(1));  // of a stop without a loop
}

TEST_F(ThreadImplTest, locksItsListForEachStepOfItsObjects)
{
    ThreadImpl* const impl = ThreadImpl::Of(mainThread());
    GRecMutex* const list = fieldsOf(*mainThread()).objectsMutex;
    Object object;

    EXPECT_EQ(locksOf(list, [&] { impl->registerObject(&object); }), 1);
    EXPECT_EQ(locksOf(list, [&] { EXPECT_TRUE(impl->unlistObject(&object)); }), 1);
}

TEST_F(ThreadImplTest, locksItsListForEachLookAtItsOrphans)
{
    int withoutOrphans = 0;
    int withAnOrphan = 0;
    Object* orphan = nullptr;
    onExternalThread([&] {
        ThreadImpl* const impl = ThreadImpl::Of(Thread::CurrentThread());
        GRecMutex* const list = fieldsOf(*Thread::CurrentThread()).objectsMutex;
        withoutOrphans = locksOf(list, [&] { EXPECT_TRUE(impl->checkOrpheanObjects()); });
        orphan = new Object;
        withAnOrphan = locksOf(list, [&] { EXPECT_FALSE(impl->checkOrpheanObjects()); });
    });

    EXPECT_EQ(withoutOrphans, 1);
    EXPECT_EQ(withAnOrphan, 8);  // two lists, a look for the one on it, and its move
    EXPECT_THAT(logged(), SizeIs(1));
    delete orphan;
}

TEST_F(ThreadImplTest, locksItsListToForgetItsOrphans)
{
    GRecMutex* const list = fieldsOf(*mainThread()).objectsMutex;
    auto* const orphan = new Object;

    EXPECT_EQ(locksOf(list, [&] { EXPECT_FALSE(ThreadImpl::Of(mainThread())->checkOrpheanObjects()); }), 2);

    delete orphan;
    EXPECT_THAT(logged(), SizeIs(2));  // of an orphan, and of its removal from a list on which it is not
}

TEST_F(ThreadImplTest, locksItsListForEachStepOfADelivery)
{
    ThreadImpl* const impl = ThreadImpl::Of(mainThread());
    GRecMutex* const list = fieldsOf(*mainThread()).objectsMutex;
    Object object;

    // The beginning, a look for events that finds none, the end.
    EXPECT_EQ(locksOf(list, [&] { impl->processEventsForObject(&object); }), 3);
    EXPECT_EQ(locksOf(list, [&] { EXPECT_FALSE(impl->hasEventsForObject(&object)); }), 1);
}

TEST_F(ThreadImplTest, freesTheReasonForWhichItCouldNotStart)
{
    GError* const reason = g_error_new_literal(G_THREAD_ERROR, G_THREAD_ERROR_AGAIN, "no more threads");
    std::vector<GError*> freed;
    const Interposed failing(interpose::g_thread_try_new,
                             [&](auto*, const gchar*, GThreadFunc, gpointer, GError** error) -> GThread* {
                                 *error = reason;
                                 return nullptr;
                             });
    const Interposed freeing(interpose::g_error_free, [&](auto* real, GError* error) {
        freed.push_back(error);
        real(error);
    });
    Thread thread;

    thread.start();

    EXPECT_THAT(freed, ElementsAre(reason));
    EXPECT_THAT(logged(), SizeIs(1));
}

TEST_F(ThreadImplTest, isFoundWhileOthersEndToo)
{
    auto* const outer = new Thread;
    auto* const middle = new Thread;
    auto* const inner = new Thread;
    ThreadImpl* const outerImpl = ThreadImpl::Of(outer);
    ThreadImpl* const middleImpl = ThreadImpl::Of(middle);
    ThreadImpl* const innerImpl = ThreadImpl::Of(inner);
    std::vector<ThreadImpl*> found;
    Record record;
    Object* ofInner = nullptr;
    Object* ofMiddle = nullptr;
    Object* ofOuter = nullptr;
    ofInner = new Recorder(record, [&](Event*) {
        found = {ThreadImpl::Of(outer), ThreadImpl::Of(middle), ThreadImpl::Of(inner)};
        EXPECT_TRUE(innerImpl->unregisterObject(ofInner));  // whatever is listed
        delete ofInner;
    });
    ofMiddle = new Recorder(record, [&](Event*) {
        delete inner;
        delete ofMiddle;
    });
    ofOuter = new Recorder(record, [&](Event*) {
        delete middle;
        delete ofOuter;
    });
    ofOuter->moveToThread(outer);
    ofMiddle->moveToThread(middle);
    ofInner->moveToThread(inner);
    post(ofOuter, 7);
    post(ofMiddle, 8);
    post(ofInner, 9);

    delete outer;

    EXPECT_THAT(found, ElementsAre(outerImpl, middleImpl, innerImpl));
}

TEST_F(ThreadImplTest, hasTheHandleOfTheSystemThreadThatRegisteredIt)
{
    EXPECT_EQ(fieldsOf(*mainThread()).thread, g_thread_self());

    onForeignThread([] {
        Murn::Application::RegisterExternalThread();
        EXPECT_EQ(fieldsOf(*Thread::CurrentThread()).thread, g_thread_self());
        Murn::Application::UnregisterExternalThread();
    });
}

TEST_F(ThreadImplTest, asksTheRegistryForTheCurrentThread)
{
    EXPECT_EQ(ThreadImpl::CurrentThread(), mainThread());
    onForeignThread([] { EXPECT_EQ(ThreadImpl::CurrentThread(), nullptr); });
}

// States that hosts do not reach

TEST_F(ThreadImplTest, onlyWarnsWhenTheMainThreadIsJoined)
{
    constexpr std::size_t joinableOffset = 16;
    setField(*mainThread(), joinableOffset, true);

    mainThread()->join();

    EXPECT_THAT(logged(),
                ElementsAre(IsLogged("PAL", warningLevel, "Warning : trying to join the mainApplicationThread\n")));
    EXPECT_EQ(fieldsOf(*mainThread()).thread, g_thread_self());
    setField(*mainThread(), joinableOffset, false);
}

TEST_F(ThreadImplTest, waitsForAThreadWhoseHandleItDidNotMake)
{
    constexpr std::size_t joinableOffset = 16;
    constexpr std::size_t threadOffset = 24;
    const Thread thread;
    std::atomic<bool> ended{false};
    const auto body = [](gpointer flag) -> gpointer {
        *static_cast<std::atomic<bool>*>(flag) = true;
        return nullptr;
    };
    setField(thread, joinableOffset, true);
    setField(thread, threadOffset, g_thread_new("other", body, &ended));

    ThreadImpl::Of(&thread)->join();

    EXPECT_TRUE(ended);
    EXPECT_EQ(fieldsOf(thread).thread, nullptr);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ThreadImplTest, onlyWarnsWhenWokenUpWithoutAContext)
{
    constexpr std::size_t contextOffset = 32;
    Record record;
    Recorder object(record);
    GMainContext* const context = fieldsOf(*mainThread()).context;
    interpose::CallLog wakeUps;
    const Interposed noted(interpose::g_main_context_wakeup, wakeUps.noting("wake-up"));
    setField(*mainThread(), contextOffset, static_cast<GMainContext*>(nullptr));

    mainThread()->wakeUp();
    EXPECT_THAT(logged(),
                ElementsAre(IsLogged("Thread", warningLevel, "wakeup : no _THREADCONTEXT to exit from ...\n")));
    post(&object, 7);
    EXPECT_THAT(wakeUps.calls(), IsEmpty());
    EXPECT_EQ(logged().size(), 1U);

    setField(*mainThread(), contextOffset, context);
    pump();
    EXPECT_THAT(record.types(), ElementsAre(7U));
}

// The event source

/// Notes the source that a new thread attaches, and keeps it.
class SourceNote {
public:
    SourceNote()
        : _creating(interpose::g_source_new,
                    [this](auto real, GSourceFuncs* functions, guint size) {
                        _size = size;
                        return real(functions, size);
                    }),
          _attaching(interpose::g_source_attach, [this](auto real, GSource* source, GMainContext* context) {
              ++_attached;
              _source = source;
              _context = context;
              return real(source, context);
          })
    {
    }

    int _attached = 0;
    guint _size = 0;
    GSource* _source = nullptr;
    GMainContext* _context = nullptr;

private:
    Interposed<GSource*(GSourceFuncs*, guint)> _creating;
    Interposed<guint(GSource*, GMainContext*)> _attaching;
};

TEST_F(ThreadImplTest, attachesOneSourceToItsContextAndLeavesItToIt)
{
    SourceNote note;

    const Thread thread;

    EXPECT_EQ(note._attached, 1);
    EXPECT_EQ(note._context, fieldsOf(thread).context);
    EXPECT_EQ(g_source_get_priority(note._source), G_PRIORITY_DEFAULT);
    EXPECT_EQ(note._source->ref_count, 1U);  // the context's
    EXPECT_EQ(note._size, sizeof(GSource) + sizeof(ThreadImpl*));
    EXPECT_EQ(fieldAt<ThreadImpl*>(note._source, sizeof(GSource)), ThreadImpl::Of(&thread));
    EXPECT_EQ(note._source->source_funcs->finalize, nullptr);
    EXPECT_FALSE(g_source_get_can_recurse(note._source));
}

TEST_F(ThreadImplTest, hasASourceThatIsReadyWhileEventsWait)
{
    SourceNote note;
    Thread thread;
    const GSourceFuncs& functions = *note._source->source_funcs;
    Record record;
    auto* const object = new Recorder(record);
    object->moveToThread(&thread);

    gint timeoutMs = 5;
    EXPECT_EQ(functions.prepare(note._source, &timeoutMs), FALSE);
    EXPECT_EQ(timeoutMs, -1);
    EXPECT_EQ(functions.check(note._source), FALSE);

    post(object, 7);
    timeoutMs = 5;
    EXPECT_EQ(functions.prepare(note._source, &timeoutMs), TRUE);
    EXPECT_EQ(timeoutMs, -1);
    EXPECT_EQ(functions.check(note._source), TRUE);

    post(object, 8);
    object->destroy();
    EXPECT_EQ(functions.dispatch(note._source, nullptr, nullptr), TRUE);  // stays attached
    EXPECT_THAT(record.types(), ElementsAre(7U, 8U, 1U));
    EXPECT_EQ(functions.check(note._source), FALSE);
}

/// What the main thread's poll is to do before it polls; gets the time-out.
std::function<void(gint)> beforePoll;

gint pollWithLimit(GPollFD* descriptors, guint count, gint timeoutMs)
{
    beforePoll(timeoutMs);
    constexpr gint limitMs = 30'000;  // so that a test whose wake-up does not come fails, and does not hang
    return g_poll(descriptors, count, timeoutMs == -1 ? limitMs : timeoutMs);
}

TEST_F(ThreadImplTest, wakesALoopThatWaitsWithoutLimit)
{
    Record record;
    Recorder object(record);
    std::vector<gint> timeouts;
    beforePoll = [&](gint timeoutMs) {
        timeouts.push_back(timeoutMs);
        post(&object, 7);  // GLib is past its look at the sources by now
    };
    g_main_context_set_poll_func(fieldsOf(*mainThread()).context, pollWithLimit);

    EXPECT_TRUE(mainThread()->processEvents(true));

    EXPECT_THAT(timeouts, ElementsAre(-1));
    EXPECT_THAT(record.types(), ElementsAre(7U));
    g_main_context_set_poll_func(fieldsOf(*mainThread()).context, nullptr);
}

TEST_F(ThreadImplTest, endsAWaitThatHasNothingToDeliverWhenWokenUp)
{
    beforePoll = [](gint) { mainThread()->wakeUp(); };
    g_main_context_set_poll_func(fieldsOf(*mainThread()).context, pollWithLimit);
    const auto begin = std::chrono::steady_clock::now();

    EXPECT_FALSE(mainThread()->processEvents(true));

    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
    g_main_context_set_poll_func(fieldsOf(*mainThread()).context, nullptr);
}

// The list of objects

TEST_F(ThreadImplTest, listsAnObjectAsOftenAsItIsRegistered)
{
    const Thread thread;
    ThreadImpl* const impl = ThreadImpl::Of(&thread);
    Object first;
    Object second;

    EXPECT_TRUE(impl->registerObject(&first));
    EXPECT_TRUE(impl->registerObject(&second));
    EXPECT_TRUE(impl->registerObject(&first));
    EXPECT_THAT(objectsOf(thread), ElementsAre(&first, &second, &first));

    EXPECT_TRUE(impl->unregisterObject(&first));  // the first entry
    EXPECT_THAT(objectsOf(thread), ElementsAre(&second, &first));
}

TEST_F(ThreadImplTest, warnsWhenAnObjectIsRemovedThatIsNotListed)
{
    const Thread thread;
    Object listed;
    const Object other;
    ThreadImpl::Of(&thread)->registerObject(&listed);

    EXPECT_FALSE(ThreadImpl::Of(&thread)->unregisterObject(const_cast<Object*>(&other)));

    EXPECT_THAT(logged(), ElementsAre(IsLogged("Thread", warningLevel,
                                               "Error removing object from affinity thread, its not attached (?\?)")));
    EXPECT_THAT(objectsOf(thread), ElementsAre(&listed));
}

TEST_F(ThreadImplTest, listsEachBoundObjectOnce)
{
    Thread thread;
    const Object onMain;
    auto* const moved = new Object;
    EXPECT_THAT(objectsOf(*mainThread()), ElementsAre(&onMain, moved));

    moved->moveToThread(&thread);
    EXPECT_THAT(objectsOf(*mainThread()), ElementsAre(&onMain));
    EXPECT_THAT(objectsOf(thread), ElementsAre(moved));

    delete moved;
    EXPECT_THAT(objectsOf(thread), IsEmpty());
}

TEST_F(ThreadImplTest, forgetsItsOrphansWhereNoApplicationTakesThem)
{
    Thread thread;
    Record record;
    auto* const orphan = new Recorder(record);
    orphan->moveToThread(&thread);
    endApplication();

    EXPECT_FALSE(ThreadImpl::Of(&thread)->checkOrpheanObjects());

    EXPECT_THAT(logged(), ElementsAre(IsLogged("PAL", warningLevel, "The Application was not instantiated !"),
                                      IsLogged("Thread", warningLevel, orphanText(1, orphan))));
    EXPECT_THAT(objectsOf(thread), IsEmpty());
    EXPECT_EQ(orphan->thread(), &thread);
    delete orphan;
    EXPECT_EQ(record.destructions(), 1);
}

TEST_F(ThreadImplTest, tellsWhetherThereWereOrphans)
{
    onForeignThread([] {
        Murn::Application::RegisterExternalThread();
        Thread* const thread = Thread::CurrentThread();
        EXPECT_TRUE(ThreadImpl::Of(thread)->checkOrpheanObjects());

        auto* const orphan = new Object;
        EXPECT_FALSE(ThreadImpl::Of(thread)->checkOrpheanObjects());
        EXPECT_EQ(orphan->thread(), mainThread());
        EXPECT_THAT(objectsOf(*thread), IsEmpty());
        EXPECT_TRUE(ThreadImpl::Of(thread)->checkOrpheanObjects());

        Murn::Application::UnregisterExternalThread();
        delete orphan;
    });
    EXPECT_THAT(logged(), SizeIs(1));
}

}  // namespace
