// Ends and beginnings that meet what other threads do: objects, threads, registrations and timers.
#include <kxPAL/Murn_c.h>

#include <algorithm>

#include "Runtime.h"
#include "Stress.h"
#include "ThreadGroup.h"
#include "Wait.h"

using ::testing::Each;

using Murn::Application;
using Murn::Event;
using Murn::Object;
using Murn::Thread;

namespace {

class HandoverStressTest : public RuntimeTest {};

/// Holds a worker in a handler until it is let go, so that others fill its queue meanwhile.
class HeldWorker {
public:
    explicit HeldWorker(Worker& worker)
        : _holder([this, &worker] {
              worker.run([this] {
                  _held = true;
                  while (!_released)
                      std::this_thread::yield();
              });
          })
    {
        while (!_held)
            std::this_thread::yield();
    }
    ~HeldWorker()
    {
        _released = true;
        _holder.join();
    }

    HeldWorker(const HeldWorker&) = delete;
    HeldWorker& operator=(const HeldWorker&) = delete;

private:
    std::atomic<bool> _held{false};
    std::atomic<bool> _released{false};
    std::thread _holder;  // last, since the thread uses what is above
};

TEST_F(HandoverStressTest, everyEventGoesWithAnObjectThatIsAskedToDeleteItselfAmongThem)
{
    constexpr int posters = 3;
    constexpr int eventsEach = 20;
    Worker worker;
    for (int round = 0; round < stressRounds(200); ++round) {
        Record record;
        std::atomic<int> disposals{0};
        Object* object = nullptr;
        worker.run([&] { object = new Recorder(record); });
        {
            // The object cannot go before the last event is posted.
            const HeldWorker held(worker);
            StartingLine line(posters + 1);
            ThreadGroup threads(posters + 1, [&](int thread) {
                line.wait();
                for (int number = 0; thread < posters && number < eventsEach; ++number)
                    post(object, 7, disposals);
                if (thread == posters)
                    object->destroy();
            });
            threads.join();
        }
        worker.run([] {});

        ASSERT_EQ(record.destructions(), 1);
        ASSERT_EQ(disposals, posters * eventsEach) << "those behind the request go too";
        const std::vector<unsigned int> types = record.types();
        ASSERT_EQ(std::count(types.begin(), types.end(), 1U), 1);
        ASSERT_EQ(types.back(), 1U) << "nothing reaches the object behind the request";
        ASSERT_THAT(record.threads(), Each(worker.thread()));
    }
}

/// A thread that ends its loop by itself and counts what becomes of it.
class ShortLived : public Thread {
public:
    explicit ShortLived(std::atomic<int>& deletions) : _deletions(deletions) { setJoinable(true); }
    ~ShortLived() override { ++_deletions; }

    void run() override
    {
        class Ender : public Object {
        public:
            void event(Event* event) override
            {
                if (event->_type == 1) {
                    Object::event(event);
                    return;
                }
                Thread* const own = thread();
                delete this;
                own->stop();
            }
        };
        post(new Ender, 7);
        exec();
    }

private:
    std::atomic<int>& _deletions;
};

TEST_F(HandoverStressTest, threadsThatEndByThemselvesAreCollectedOnceWhateverTheMoment)
{
    constexpr int collectors = 3;
    const int rounds = stressRounds(150);
    std::atomic<int> deletions{0};

    ThreadGroup threads(collectors, [&](int collector) {
        for (int round = 0; round < rounds; ++round) {
            auto* const thread = new ShortLived(deletions);
            thread->start();
            for (int turn = 0; turn < (round + collector) % 4; ++turn)
                std::this_thread::yield();
            Application::AddToThreadGarbageCollector(thread);
        }
    });
    threads.join();
    endApplication();

    EXPECT_EQ(deletions, collectors * rounds);
    logged();  // of stops behind the end, and of loops that ended before they began
}

TEST_F(HandoverStressTest, sixtyFourForeignThreadsThatRegisterAtOnceAreEachThemselves)
{
    constexpr int threadCount = 64;
    for (int round = 0; round < stressRounds(10); ++round) {
        std::vector<Thread*> seen(threadCount);
        std::atomic<int> mistakes{0};
        StartingLine line(threadCount);
        StartingLine end(threadCount);
        ThreadGroup threads(threadCount, [&](int number) {
            line.wait();
            Application::RegisterExternalThread();
            Thread* const self = Application::CurrentThread();
            Record record;
            {
                Recorder object(record);
                if (self == nullptr || !self->isCurrentThread() || object.thread() != self)
                    ++mistakes;
            }
            seen[static_cast<std::size_t>(number)] = self;
            end.wait();  // all are registered at the same time
            if (Application::CurrentThread() != self)
                ++mistakes;
            Application::UnregisterExternalThread();
            if (Application::CurrentThread() != nullptr)
                ++mistakes;
        });
        threads.join();

        ASSERT_EQ(mistakes, 0);
        std::sort(seen.begin(), seen.end());
        ASSERT_EQ(std::adjacent_find(seen.begin(), seen.end()), seen.end()) << "two threads are one";
    }
}

TEST_F(HandoverStressTest, aTimerStartedOnARunningLoopMayStopOnItsFirstTimeout)
{
    Worker worker;
    for (int round = 0; round < stressRounds(1000); ++round) {
        std::atomic<int> timeouts{0};
        FunctionTimer* timer = nullptr;
        FunctionTimer stopping([&] {
            timer->stop();
            ++timeouts;
        });
        timer = &stopping;

        stopping.start(0, worker.thread());
        while (timeouts == 0)
            std::this_thread::yield();
        worker.run([] {});

        ASSERT_EQ(timeouts, 1);
        ASSERT_FALSE(stopping.isRunning());
    }
}

}  // namespace

// The same through the C interface, where threads may ask again.
TEST(CInterfaceStress, sixtyFourThreadsThatRegisterAtOnceAreEachThemselves)
{
    constexpr int threadCount = 64;
    Murn_C_application_init(0, nullptr);
    std::atomic<int> mistakes{0};
    StartingLine line(threadCount);
    ThreadGroup threads(threadCount, [&](int) {
        line.wait();
        Murn_C_thread_register();
        Thread* const self = Application::CurrentThread();
        Murn_C_thread_register();
        if (self == nullptr || Application::CurrentThread() != self || !self->isCurrentThread())
            ++mistakes;
        Application::UnregisterExternalThread();
    });
    threads.join();
    Murn_C_application_shutdown();

    EXPECT_EQ(mistakes, 0);
}
