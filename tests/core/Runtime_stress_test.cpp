// Hand-overs between threads, many times over: what must hold whenever two threads meet.
#include <kxPAL/LogHandler.h>

#include <algorithm>
#include <cstring>

#include "Runtime.h"
#include "Wait.h"

using ::testing::Each;

using Murn::Application;
using Murn::Event;
using Murn::Logger;
using Murn::Object;
using Murn::Thread;

namespace {

/// Keeps warnings out of the log, for tests that bring about thousands.
class Silence {
public:
    Silence() { Logger::SetMinimumLogLevel(Logger::LevelCritical); }
    ~Silence() { Logger::SetMinimumLogLevel(Logger::LevelDebug); }

    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;
};

/// Counts the stops that came without a loop.
class LostStops final : public Murn::LogHandler {
public:
    LostStops() : LogHandler("PAL", Logger::LevelWarning) { Logger::InstallHandler(this); }
    ~LostStops() { Logger::UninstallHandler(this); }

    LostStops(const LostStops&) = delete;
    LostStops& operator=(const LostStops&) = delete;

    void HandleLog(const char*, Logger::LogLevel, const char* message) override
    {
        if (std::strstr(message, "which is not running an event loop !") != nullptr)
            ++_count;
    }

    int count() const { return _count; }

private:
    std::atomic<int> _count{0};
};

class NumberedEvent : public Event {
public:
    NumberedEvent(unsigned int producer, unsigned int number) : Event(7, nullptr), _producer(producer), _number(number)
    {
    }

    const unsigned int _producer;
    const unsigned int _number;
};

/// What several producers sent to one object. The events of each are numbered from 0.
class Arrivals {
public:
    explicit Arrivals(std::size_t producers) : _next(producers) {}

    void take(const NumberedEvent& event, bool onOwnThread)
    {
        if (event._number != _next[event._producer]++)
            ++_outOfOrder;
        if (!onOwnThread)
            ++_onOtherThreads;
        ++_count;
    }

    unsigned int count() const { return _count; }
    unsigned int outOfOrder() const { return _outOfOrder; }
    unsigned int onOtherThreads() const { return _onOtherThreads; }

private:
    std::vector<unsigned int> _next;  // of the receiver's thread, whichever that is
    std::atomic<unsigned int> _count{0};
    std::atomic<unsigned int> _outOfOrder{0};
    std::atomic<unsigned int> _onOtherThreads{0};
};

class Receiver : public Object {
public:
    explicit Receiver(Arrivals& arrivals) : _arrivals(arrivals) {}

    void event(Event* event) override
    {
        if (event->_type == 1)
            Object::event(event);
        else
            _arrivals.take(*static_cast<NumberedEvent*>(event), thread() == Thread::CurrentThread());
    }

private:
    Arrivals& _arrivals;
};

/// Threads that the runtime does not know, each posting numbered events to one object for as long as the test wants,
/// and never so many ahead of the receiver that its queue grows without end.
class Producers {
public:
    Producers(unsigned int count, Object* target, const Arrivals& arrivals)
    {
        for (unsigned int producer = 0; producer < count; ++producer)
            _threads.emplace_back([this, producer, target, &arrivals] { produce(producer, target, arrivals); });
    }

    ~Producers() { finish(); }

    Producers(const Producers&) = delete;
    Producers& operator=(const Producers&) = delete;

    unsigned int posted() const { return _posted; }

    /// Comes back when the last event is posted.
    void finish()
    {
        _finished = true;
        for (std::thread& thread : _threads)
            thread.join();
        _threads.clear();
    }

private:
    void produce(unsigned int producer, Object* target, const Arrivals& arrivals)
    {
        constexpr unsigned int mostOnTheirWay = 100;
        for (unsigned int number = 0; !_finished; ++number) {
            Application::PostEvent(target, new NumberedEvent(producer, number));
            ++_posted;
            while (!_finished && _posted > arrivals.count() + mostOnTheirWay)
                std::this_thread::yield();
        }
    }

    std::atomic<bool> _finished{false};
    std::atomic<unsigned int> _posted{0};
    std::vector<std::thread> _threads;
};

class RuntimeStressTest : public RuntimeTest {};

TEST_F(RuntimeStressTest, everyStartedThreadFindsItselfFromTheBeginning)
{
    int lost = 0;
    BodyThread thread([&] {
        if (!thread.isCurrentThread() || !thread.isRunning() || Thread::CurrentThread() != &thread)
            ++lost;
    });

    for (int round = 0; round < 3000; ++round)
        startAndJoin(thread);

    EXPECT_EQ(lost, 0);
}

TEST_F(RuntimeStressTest, everyStopThatFindsALoopEndsIt)
{
    LostStops lostStops;
    BodyThread thread([&] { thread.exec(); });

    for (int round = 0; round < 1000; ++round) {
        thread.start();
        int before = 0;
        do {
            std::this_thread::yield();
            before = lostStops.count();
            thread.stop();
        } while (lostStops.count() != before);
        thread.join();  // one stop was taken, and it has to do
    }
}

TEST_F(RuntimeStressTest, stopsMayComeAtAnyMomentOfTheLoopsLife)
{
    const Silence silence;
    constexpr int loops = 2000;
    std::atomic<bool> ended{false};
    BodyThread thread([&] {
        for (int loop = 0; loop < loops; ++loop)
            thread.exec();
        ended = true;
    });
    thread.start();

    std::thread other([&] {
        while (!ended)
            thread.stop();
    });
    while (!ended)
        thread.stop();

    other.join();
    thread.join();
}

TEST_F(RuntimeStressTest, everyEventArrivesOnceInOrderAndOnTheThreadToWhichItsReceiverHasMoved)
{
    constexpr unsigned int producerCount = 3;
    Worker first;
    Worker second;
    Arrivals arrivals(producerCount);
    Object* receiver = nullptr;
    first.run([&] { receiver = new Receiver(arrivals); });

    Producers producers(producerCount, receiver, arrivals);
    for (int round = 0; round < 1000; ++round) {
        first.run([&] { receiver->moveToThread(second.thread()); });
        second.run([&] { receiver->moveToThread(first.thread()); });
    }
    producers.finish();
    first.run([] {});

    EXPECT_EQ(arrivals.count(), producers.posted());
    EXPECT_EQ(arrivals.outOfOrder(), 0U);
    EXPECT_EQ(arrivals.onOtherThreads(), 0U);
    first.run([&] { delete receiver; });
}

TEST_F(RuntimeStressTest, everyEventArrivesOnceInOrderWhenTheReceiversThreadEnds)
{
    const Silence silence;
    constexpr unsigned int producerCount = 2;
    for (int round = 0; round < 200; ++round) {
        Arrivals arrivals(producerCount);
        Object* receiver = nullptr;
        auto worker = std::make_unique<Worker>();
        worker->run([&] { receiver = new Receiver(arrivals); });
        Producers producers(producerCount, receiver, arrivals);

        worker.reset();  // the receiver is the main thread's now
        ASSERT_EQ(receiver->thread(), mainThread());
        producers.finish();
        pump();

        ASSERT_EQ(arrivals.count(), producers.posted());
        ASSERT_EQ(arrivals.outOfOrder(), 0U);
        ASSERT_EQ(arrivals.onOtherThreads(), 0U);
        delete receiver;
    }
}

TEST_F(RuntimeStressTest, anObjectMayBeDeletedOnItsNewThreadWhileTheOldOneLeavesTheMove)
{
    Worker first;
    Worker second;
    for (int round = 0; round < 500; ++round) {
        Record record;
        Object* object = nullptr;
        first.run([&] { object = new Recorder(record); });
        std::thread mover([&] { first.run([&] { object->moveToThread(second.thread()); }); });

        while (object->thread() != second.thread())
            std::this_thread::yield();
        object->destroy();

        mover.join();
        second.run([] {});
        ASSERT_EQ(record.destructions(), 1);
        ASSERT_THAT(record.threads(), Each(second.thread()));
    }
}

TEST_F(RuntimeStressTest, theLastOfManyReferencesDeletesTheObjectBehindAllItsEvents)
{
    constexpr unsigned int holders = 3;
    constexpr unsigned int eventsEach = 5;
    Worker worker;
    for (int round = 0; round < 300; ++round) {
        Record record;
        Object* object = nullptr;
        worker.run([&] { object = new Recorder(record); });
        for (unsigned int holder = 0; holder < holders; ++holder)
            object->ref();

        std::vector<std::thread> threads;
        for (unsigned int holder = 0; holder < holders; ++holder) {
            threads.emplace_back([&] {
                for (unsigned int number = 0; number < eventsEach; ++number)
                    post(object, 7);
                object->deref();
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        worker.run([] {});

        ASSERT_EQ(record.destructions(), 1);
        std::vector<unsigned int> expected(holders * eventsEach, 7);
        expected.push_back(1);
        ASSERT_EQ(record.types(), expected);
    }
}

TEST_F(RuntimeStressTest, everyExternalThreadGetsItsAnswerOnItself)
{
    constexpr std::size_t threadCount = 64;
    constexpr unsigned int rounds = 10;
    struct Question : Event {
        explicit Question(Object* from) : Event(7, nullptr), _from(from) {}
        Object* _from;
    };
    Record answeredRecord;
    Recorder answering(answeredRecord, [](Event* event) { post(static_cast<Question*>(event)->_from, 8); });

    std::atomic<std::size_t> ended{0};
    std::vector<std::thread> threads;
    for (std::size_t index = 0; index < threadCount; ++index) {
        threads.emplace_back([&] {
            for (unsigned int round = 0; round < rounds; ++round) {
                Application::RegisterExternalThread();
                {
                    Record record;
                    Recorder asking(record);
                    Application::PostEvent(&answering, new Question(&asking));
                    while (record.types().empty())
                        Application::ProcessEvents(true);
                    EXPECT_THAT(record.threads(), Each(Thread::CurrentThread()));
                }
                Application::UnregisterExternalThread();
            }
            ++ended;
            mainThread()->wakeUp();
        });
    }
    while (ended < threadCount)
        Application::ProcessEvents(true);

    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(answeredRecord.types().size(), threadCount * rounds);
}

TEST_F(RuntimeStressTest, threadsThatHandOverThemselvesAtOnceAreAllCollected)
{
    const Silence silence;
    constexpr int count = 100;
    struct SelfCollected : Thread {
        SelfCollected(std::atomic<int>& handOvers, std::atomic<int>& deletions)
            : _handOvers(handOvers), _deletions(deletions)
        {
            setJoinable(true);
        }
        ~SelfCollected() override { ++_deletions; }

        void run() override
        {
            Application::AddToThreadGarbageCollector(this);
            ++_handOvers;
        }

        std::atomic<int>& _handOvers;
        std::atomic<int>& _deletions;
    };
    std::atomic<int> handOvers{0};
    std::atomic<int> deletions{0};

    for (int index = 0; index < count; ++index)
        (new SelfCollected(handOvers, deletions))->start();
    EXPECT_TRUE(waitUntil([&] { return handOvers == count; }));
    endApplication();

    EXPECT_EQ(deletions, count);
}

}  // namespace
