// The thread pool: units of work in order, each run and deleted once on a worker, and the workers' loops in between.
#include <kxPAL/ThreadPool.h>

#include <array>
#include <latch>
#include <set>
#include <type_traits>

#include "FatalTest.h"
#include "InterposeGlib.h"
#include "Runtime.h"
#include "Units.h"
#include "VirtualTable.h"
#include "Wait.h"

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using Murn::Event;
using Murn::Object;
using Murn::Runnable;
using Murn::Thread;
using Murn::ThreadPool;

namespace {

constexpr const char* source = "src/core/ThreadPool.cpp";
constexpr const char* leftWorkCheck = "g_async_queue_length(_queue) == 0";

class ThreadPoolTest : public RuntimeTest {
protected:
    /// Hands in a function as a unit of work.
    static void run(ThreadPool& pool, std::function<void()> function)
    {
        pool.run(new FunctionUnit(std::move(function)));
    }

    /// Hands in a unit that notes its run and its end under a name.
    void runNoted(ThreadPool& pool, const std::string& name)
    {
        pool.run(
            new FunctionUnit([this, name] { _log.note("run " + name); }, [this, name] { _log.note("end " + name); }));
    }

    /// Keeps a worker busy until the latch, which outlives the pool, opens. Comes back when the worker has begun.
    /// @return the worker
    static Thread* occupy(ThreadPool& pool, std::latch& release)
    {
        const auto begun = std::make_shared<std::promise<Thread*>>();
        run(pool, [begun, &release] {
            begun->set_value(Thread::CurrentThread());
            release.wait();
        });
        return begun->get_future().get();
    }

    interpose::CallLog _log;
};

// Classes

TEST_F(ThreadPoolTest, holdsOnePointer)
{
    ThreadPool pool(1);

    EXPECT_EQ(sizeof(ThreadPool), sizeof(void*));
    EXPECT_NE(fieldAt<void*>(&pool, 0), nullptr);
    EXPECT_FALSE(std::is_polymorphic_v<ThreadPool>);
}

TEST_F(ThreadPoolTest, hasRunnablesWithTheirVirtualOperationsInTheSlotsThatHostsExpect)
{
    constexpr std::size_t deletingDestructorSlot = 1;
    constexpr std::size_t runSlot = 2;
    auto* const unit = new FunctionUnit([this] { _log.note("run"); }, [this] { _log.note("end"); });

    EXPECT_TRUE(std::is_abstract_v<Runnable>);
    EXPECT_EQ(sizeof(Runnable), sizeof(void*));
    callAddress(addressInSlot(unit, runSlot), unit);
    callAddress(addressInSlot(unit, deletingDestructorSlot), unit);
    EXPECT_THAT(_log.calls(), ElementsAre("run", "end"));
}

// Units of work

TEST_F(ThreadPoolTest, runsUnitsInTheOrderOfTheHandOversWhenItHasOneWorker)
{
    constexpr int count = 1000;
    std::vector<int> order;
    std::vector<int> expected;
    {
        ThreadPool pool(1);
        for (int number = 0; number < count; ++number) {
            run(pool, [&order, number] { order.push_back(number); });
            expected.push_back(number);
        }
    }

    EXPECT_EQ(order, expected);
}

TEST_F(ThreadPoolTest, deletesEachUnitRightAfterItRan)
{
    {
        ThreadPool pool(1);
        runNoted(pool, "1");
        runNoted(pool, "2");
        runNoted(pool, "3");
    }

    EXPECT_THAT(_log.calls(), ElementsAre("run 1", "end 1", "run 2", "end 2", "run 3", "end 3"));
}

TEST_F(ThreadPoolTest, runsAndDeletesEachUnitOnceAndOnOneWorker)
{
    constexpr std::size_t count = 1000;
    struct Life {
        std::atomic<int> runs{0};
        std::atomic<int> ends{0};
        Thread* runThread = nullptr;
        Thread* endThread = nullptr;
    };
    std::array<Life, count> lives;
    {
        ThreadPool pool(4);
        for (Life& life : lives) {
            pool.run(new FunctionUnit(
                [&life] {
                    ++life.runs;
                    life.runThread = Thread::CurrentThread();
                },
                [&life] {
                    ++life.ends;
                    life.endThread = Thread::CurrentThread();
                }));
        }
    }

    for (const Life& life : lives) {
        ASSERT_EQ(life.runs, 1);
        ASSERT_EQ(life.ends, 1);
        ASSERT_NE(life.runThread, nullptr);
        ASSERT_NE(life.runThread, mainThread());
        ASSERT_EQ(life.endThread, life.runThread);
    }
}

TEST_F(ThreadPoolTest, hasOrdinaryThreadsAsWorkers)
{
    ThreadPool pool(1);

    run(pool, [] {
        const Thread* const worker = Thread::CurrentThread();
        EXPECT_TRUE(worker->isCurrentThread());
        EXPECT_TRUE(worker->isRunning());
        EXPECT_TRUE(worker->isJoinable());
    });
}

TEST_F(ThreadPoolTest, takesAUnitWithoutWaitingForAWorker)
{
    std::latch release(1);
    bool handedIn = false;
    ThreadPool pool(1);
    occupy(pool, release);

    run(pool, [&] { EXPECT_TRUE(handedIn); });  // would hang if it had to wait

    handedIn = true;
    release.count_down();
}

TEST_F(ThreadPoolTest, goesOnWithTheFreeWorkersWhileOneIsBusy)
{
    constexpr int count = 100;
    std::latch release(1);
    std::latch done(count);
    ThreadPool pool(2);
    Thread* const busy = occupy(pool, release);

    for (int number = 0; number < count; ++number) {
        run(pool, [&] {
            EXPECT_NE(Thread::CurrentThread(), busy);
            done.count_down();
        });
    }

    done.wait();
    release.count_down();
}

TEST_F(ThreadPoolTest, runsAsManyUnitsAtOnceAsItHasWorkers)
{
    constexpr int count = 64;
    std::mutex mutex;
    std::set<Thread*> workers;
    {
        std::latch all(count);
        ThreadPool pool(count);
        for (int number = 0; number < count; ++number) {
            run(pool, [&] {
                {
                    const std::lock_guard<std::mutex> lock(mutex);
                    workers.insert(Thread::CurrentThread());
                }
                all.arrive_and_wait();
            });
        }
    }

    EXPECT_THAT(workers, SizeIs(count));
}

TEST_F(ThreadPoolTest, takesFurtherUnitsFromUnits)
{
    constexpr int count = 1000;
    int runs = 0;
    std::promise<void> done;
    ThreadPool pool(1);
    std::function<void()> next = [&] {
        if (++runs == count)
            done.set_value();
        else
            run(pool, next);
    };

    run(pool, next);

    done.get_future().wait();
    EXPECT_EQ(runs, count);
}

TEST_F(ThreadPoolTest, endsTheProcessWhenAUnitIsNull)
{
    ThreadPool pool(1);

    EXPECT_FATAL(pool.run(nullptr), "runnable", source);
}

TEST_F(ThreadPoolTest, doesNotCatchWhatAUnitThrows)
{
    EXPECT_EXIT(
        {
            ThreadPool pool(1);
            run(pool, [] { throw std::string("thrown by a unit"); });
        },
        ::testing::KilledBySignal(SIGABRT), "terminate called");
}

// The workers' loops

TEST_F(ThreadPoolTest, deliversTheEventsOfAWorkersObjectsBetweenUnits)
{
    Record record;
    {
        std::latch release(1);
        ThreadPool pool(1);
        Thread* const worker = occupy(pool, release);
        auto* const object = new Recorder(record, [&](Event*) {
            EXPECT_EQ(Thread::CurrentThread(), worker);
            _log.note("event");
        });
        object->moveToThread(worker);
        post(object, 7);
        post(object, 8);
        object->destroy();
        runNoted(pool, "next");
        EXPECT_THAT(record.types(), IsEmpty());

        release.count_down();
    }

    EXPECT_THAT(_log.calls(), ElementsAre("event", "event", "run next", "end next"));
    EXPECT_THAT(record.types(), ElementsAre(7U, 8U, 1U));
    EXPECT_EQ(record.destructions(), 1);
}

TEST_F(ThreadPoolTest, deliversWhatAUnitPostsToItsOwnThreadWhenTheUnitIsGone)
{
    Record record;
    {
        ThreadPool pool(1);
        pool.run(new FunctionUnit(
            [&] {
                auto* const object = new Recorder(record, [&](Event*) { _log.note("event"); });
                post(object, 7);
                object->destroy();
            },
            [&] { _log.note("end of the unit"); }));
        runNoted(pool, "next");
    }

    EXPECT_THAT(_log.calls(), ElementsAre("end of the unit", "event", "run next", "end next"));
    EXPECT_EQ(record.destructions(), 1);
}

TEST_F(ThreadPoolTest, servesTheTimersOfAWorkerBetweenUnits)
{
    {
        ThreadPool pool(1);
        run(pool, [this] {
            auto* const timer = new std::unique_ptr<FunctionTimer>;
            *timer = std::make_unique<FunctionTimer>([this, timer] {
                _log.note("timer");
                delete timer;
            });
            (*timer)->start(0, nullptr);
        });
        runNoted(pool, "next");
    }

    EXPECT_THAT(_log.calls(), ElementsAre("timer", "run next", "end next"));
}

TEST_F(ThreadPoolTest, turnsAWorkersLoopOnceAfterEachUnitWithoutWaiting)
{
    const Interposed noted(interpose::g_main_context_iteration,
                           [&](auto real, GMainContext* context, gboolean mayBlock) {
                               _log.note(mayBlock == TRUE ? "waiting turn" : "turn");
                               return real(context, mayBlock);
                           });
    std::vector<std::string> calls;
    {
        ThreadPool pool(1);
        runNoted(pool, "1");
        runNoted(pool, "2");
        run(pool, [&] { calls = _log.calls(); });
    }

    EXPECT_THAT(calls, ElementsAre("run 1", "end 1", "turn", "run 2", "end 2", "turn"));
}

TEST_F(ThreadPoolTest, handsTheObjectsThatAUnitLeavesToTheMainThread)
{
    Record record;
    Thread* worker = nullptr;
    std::vector<Object*> left;
    std::vector<Thread*> homes;
    {
        ThreadPool pool(1);
        run(pool, [&] {
            worker = Thread::CurrentThread();
            left = {new Recorder(record), new Recorder(record)};
            post(left[0], 7);
        });
        run(pool, [&] { homes = {left[0]->thread(), left[1]->thread()}; });
    }

    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_THAT(record.threads(), ElementsAre(worker));
    EXPECT_THAT(homes, ElementsAre(mainThread(), mainThread()));
    EXPECT_THAT(logged(), ElementsAre(IsLogged("Thread", warningLevel, orphanText(2, left[0])),
                                      IsLogged("Thread", warningLevel, orphanText(2, left[1]))));
    post(left[1], 8);
    pump();
    EXPECT_THAT(record.threads(), ElementsAre(worker, mainThread()));
    for (const Object* const object : left)
        delete object;
}

TEST_F(ThreadPoolTest, servesNothingWhileItIsIdleAndTheRestWhenItEnds)
{
    std::atomic<int> waits{0};
    const Interposed noted(interpose::g_async_queue_pop, [&](auto real, GAsyncQueue* queue) {
        ++waits;
        return real(queue);
    });
    Record record;
    Object* object = new Recorder(record);
    Thread* worker = nullptr;
    {
        ThreadPool pool(1);
        run(pool, [&] { worker = Thread::CurrentThread(); });
        ASSERT_TRUE(waitUntil([&] { return waits == 2; }));

        object->moveToThread(worker);
        post(object, 7);
        EXPECT_THAT(record.types(), IsEmpty());
    }

    EXPECT_THAT(record.types(), ElementsAre(7U));
    EXPECT_THAT(record.threads(), ElementsAre(worker));
    EXPECT_EQ(object->thread(), mainThread());
    EXPECT_THAT(logged(), ElementsAre(IsLogged("Thread", warningLevel, orphanText(1, object))));
    delete object;
}

TEST_F(ThreadPoolTest, answersFromItsUnitsToTheMainThread)
{
    constexpr std::size_t count = 100;
    Record record;
    Recorder answered(record);
    ThreadPool pool(4);

    for (std::size_t number = 0; number < count; ++number)
        run(pool, [&] { post(&answered, 7); });
    while (record.types().size() < count)
        mainThread()->processEvents(true);

    EXPECT_THAT(record.threads(), Each(mainThread()));
}

// The end

TEST_F(ThreadPoolTest, runsAllQueuedWorkBeforeItIsGone)
{
    constexpr int count = 1000;
    for (const int workers : {1, 4}) {
        std::atomic<int> runs{0};
        std::atomic<int> ends{0};
        {
            std::latch release(1);
            ThreadPool pool(workers);
            occupy(pool, release);
            for (int number = 0; number < count; ++number)
                pool.run(new FunctionUnit([&] { ++runs; }, [&] { ++ends; }));
            release.count_down();
        }
        EXPECT_EQ(runs, count);
        EXPECT_EQ(ends, count);
    }
}

TEST_F(ThreadPoolTest, endsWithoutWork)
{
    for (const int workers : {0, 1, 64})
        const ThreadPool pool(workers);
}

TEST_F(ThreadPoolTest, runsNothingWithoutWorkers)
{
    EXPECT_EXIT(
        {
            ThreadPool pool(0);
            run(pool, [] { std::printf("It ran.\n"); });
            std::_Exit(0);
        },
        ::testing::ExitedWithCode(0), "^$");
}

TEST_F(ThreadPoolTest, endsTheProcessWhenThereIsWorkAndNobodyToDoIt)
{
    EXPECT_FATAL(
        {
            ThreadPool pool(0);
            run(pool, [] {});
        },
        leftWorkCheck, source);
}

TEST_F(ThreadPoolTest, endsTheProcessWhenAUnitComesBehindTheEnd)
{
    EXPECT_FATAL(
        {
            auto* const pool = new ThreadPool(2);
            std::atomic<int> pushes{0};
            run(*pool, [&] {
                while (pushes < 2)  // one for each worker
                    std::this_thread::yield();
                run(*pool, [] {});
            });
            const Interposed counted(interpose::g_async_queue_push, [&](auto real, GAsyncQueue* queue, gpointer item) {
                real(queue, item);
                ++pushes;
            });
            delete pool;
        },
        leftWorkCheck, source);
}

// Threads that the system refuses

TEST_F(ThreadPoolTest, worksWithTheWorkersThatTheSystemGrants)
{
    int starts = 0;
    std::atomic<int> runs{0};
    {
        const Interposed refusing(
            interpose::g_thread_try_new,
            [&](auto real, const gchar* name, GThreadFunc function, gpointer data, GError** error) -> GThread* {
                if (++starts == 2)
                    return real(name, function, data, error);
                g_set_error_literal(error, G_THREAD_ERROR, G_THREAD_ERROR_AGAIN, "refused");
                return nullptr;
            });
        ThreadPool pool(3);
        for (int number = 0; number < 100; ++number)
            run(pool, [&] { ++runs; });
    }

    EXPECT_EQ(starts, 3);
    EXPECT_EQ(runs, 100);
    EXPECT_THAT(logged(), SizeIs(2));
    for (const LogMessage& message : logged())
        EXPECT_THAT(message.text, EndsWith("could not be started: refused"));
}

}  // namespace
