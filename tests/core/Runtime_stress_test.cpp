// Hand-overs between threads, many times over: what must hold whenever two threads meet.
#include <kxPAL/LogHandler.h>

#include <algorithm>
#include <cstring>

#include "Runtime.h"
#include "Stress.h"
#include "ThreadGroup.h"
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
    NumberedEvent(int producer, unsigned int number) : Event(7, nullptr), _producer(producer), _number(number) {}

    const int _producer;
    const unsigned int _number;
};

/// What several producers sent to one object. The events of each are numbered from 0.
class Arrivals {
public:
    explicit Arrivals(int producers) : _next(static_cast<std::size_t>(producers)) {}

    void take(const NumberedEvent& event, bool onOwnThread)
    {
        if (event._number != _next[static_cast<std::size_t>(event._producer)]++)
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

/// Threads that the runtime does not know, each posting numbered events to one object for as long as the test wants.
/// They post in bursts, the next when all events have arrived, which is the moment that a move waits for.
class Producers {
public:
    Producers(int count, Object* target, const Arrivals& arrivals)
        : _threads(count, [this, target, &arrivals](int producer) { produce(producer, target, arrivals); })
    {
    }

    ~Producers() { finish(); }

    Producers(const Producers&) = delete;
    Producers& operator=(const Producers&) = delete;

    /// Comes back when the last event is posted.
    void finish()
    {
        _finished = true;
        _threads.join();
    }

    unsigned int posted() const { return _posted; }

private:
    void produce(int producer, Object* target, const Arrivals& arrivals)
    {
        constexpr unsigned int burst = 5;
        for (unsigned int number = 0; !_finished; ++number) {
            Application::PostEvent(target, new NumberedEvent(producer, number));
            ++_posted;
            while (!_finished && number % burst == 0 && arrivals.count() < _posted)
                std::this_thread::yield();
        }
    }

    std::atomic<bool> _finished{false};
    std::atomic<unsigned int> _posted{0};
    ThreadGroup _threads;  // last, since the threads use what is above
};

class RuntimeStressTest : public RuntimeTest {};

TEST_F(RuntimeStressTest, everyStartedThreadFindsItselfFromTheBeginning)
{
    int lost = 0;
    BodyThread thread([&] {
        if (!thread.isCurrentThread() || !thread.isRunning() || Thread::CurrentThread() != &thread)
            ++lost;
    });

    for (int round = 0; round < stressRounds(3000); ++round)
        startAndJoin(thread);

    EXPECT_EQ(lost, 0);
}

TEST_F(RuntimeStressTest, everyStopThatFindsALoopEndsIt)
{
    LostStops lostStops;
    BodyThread thread([&] { thread.exec(); });

    for (int round = 0; round < stressRounds(1000); ++round) {
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
    const int loops = stressRounds(2000);
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
    constexpr int producerCount = 3;
    Worker first;
    Worker second;
    Arrivals arrivals(producerCount);
    Object* receiver = nullptr;
    first.run([&] { receiver = new Receiver(arrivals); });

    Producers producers(producerCount, receiver, arrivals);
    const int rounds = stressRounds(200);
    const auto events = static_cast<unsigned int>(stressRounds(5000));
    for (int round = 0; round < rounds || producers.posted() < events; ++round) {
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
    constexpr int producerCount = 2;
    for (int round = 0; round < stressRounds(200); ++round) {
        Arrivals arrivals(producerCount);
        Object* receiver = nullptr;
        auto worker = std::make_unique<Worker>();
        worker->run([&] { receiver = new Receiver(arrivals); });
        Producers producers(producerCount, receiver, arrivals);
        ASSERT_TRUE(waitUntil([&] { return producers.posted() > 10; }));

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
    for (int round = 0; round < stressRounds(500); ++round) {
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
    constexpr int holders = 3;
    constexpr unsigned int eventsEach = 5;
    Worker worker;
    for (int round = 0; round < stressRounds(300); ++round) {
        Record record;
        Object* object = nullptr;
        worker.run([&] { object = new Recorder(record); });
        for (int holder = 0; holder < holders; ++holder)
            object->ref();

        ThreadGroup threads(holders, [&](int) {
            for (unsigned int number = 0; number < eventsEach; ++number)
                post(object, 7);
            object->deref();
        });
        threads.join();
        worker.run([] {});

        ASSERT_EQ(record.destructions(), 1);
        std::vector<unsigned int> expected(holders * eventsEach, 7);
        expected.push_back(1);
        ASSERT_EQ(record.types(), expected);
    }
}

TEST_F(RuntimeStressTest, everyExternalThreadGetsItsAnswerOnItself)
{
    constexpr int threadCount = 64;
    const int rounds = stressRounds(10);
    struct Question : Event {
        explicit Question(Object* from) : Event(7, nullptr), _from(from) {}
        Object* _from;
    };
    Record answeredRecord;
    Recorder answering(answeredRecord, [](Event* event) { post(static_cast<Question*>(event)->_from, 8); });

    std::atomic<int> ended{0};
    ThreadGroup threads(threadCount, [&](int) {
        for (int round = 0; round < rounds; ++round) {
            onThisThreadAsExternal([&] {
                Record record;
                Recorder asking(record);
                Application::PostEvent(&answering, new Question(&asking));
                while (record.types().empty())
                    Application::ProcessEvents(true);
                EXPECT_THAT(record.threads(), Each(Thread::CurrentThread()));
            });
        }
        ++ended;
        mainThread()->wakeUp();
    });
    while (ended < threadCount)
        Application::ProcessEvents(true);

    threads.join();
    EXPECT_EQ(answeredRecord.types().size(), static_cast<std::size_t>(threadCount * rounds));
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
