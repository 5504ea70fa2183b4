// The queue of posted events: order, delivery, and taking one object's events out.
#include <kxPAL/EventQueue.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <thread>
#include <type_traits>

#include "FatalTest.h"
#include "InterposeGlib.h"
#include "QueueFixture.h"
#include "ThreadGroup.h"

namespace {

using Murn::Event;
using Murn::EventQueue;
using Murn::Object;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* source = "src/core/EventQueue.cpp";

using EventQueueTest = QueueFixture<EventQueue>;

// An event of a stream of events, for the tests with several threads.
class NumberedEvent : public Event {
public:
    NumberedEvent(int producer, int number, Object& receiver) : Event(7, nullptr), _producer(producer), _number(number)
    {
        _receiver = &receiver;
    }

    const int _producer;
    const int _number;
};

// Keeps the numbers of each producer's events in the order in which they come.
class NumberCollector : public Object {
public:
    explicit NumberCollector(std::size_t producers) : _numbers(producers) {}

    void event(Event* event) override
    {
        const auto* const numbered = static_cast<NumberedEvent*>(event);
        _numbers[static_cast<std::size_t>(numbered->_producer)].push_back(numbered->_number);
    }

    const std::vector<std::vector<int>>& numbers() const { return _numbers; }

private:
    std::vector<std::vector<int>> _numbers;
};

}  // namespace

TEST_F(EventQueueTest, startsEmpty)
{
    EXPECT_FALSE(_queue.hasPendingEvents());
    EXPECT_THAT(delivered(), IsEmpty());
    EXPECT_EQ(0U, _queue.countEventsForObject(&_a));
}

TEST_F(EventQueueTest, hasPendingEventsUntilTheyAreDelivered)
{
    enqueue("1", _a);
    EXPECT_TRUE(_queue.hasPendingEvents());
    EXPECT_THAT(delivered(), ElementsAre("1"));
    EXPECT_FALSE(_queue.hasPendingEvents());
}

TEST_F(EventQueueTest, deliversFirstInFirstOut)
{
    enqueue("1", _a);
    enqueue("2", _b);
    enqueue("3", _a);
    enqueue("4", _c);
    EXPECT_THAT(delivered(), ElementsAre("1", "2", "3", "4"));
}

TEST_F(EventQueueTest, deliversToTheReceiverAlone)
{
    Notes others;
    NotingObject other(others);
    enqueue("mine", _a);
    enqueue("other's", other);
    EXPECT_THAT(delivered(), ElementsAre("mine"));
    EXPECT_THAT(others, ElementsAre("event other's"));
}

TEST_F(EventQueueTest, disposesOfEachEventRightAfterItsDelivery)
{
    enqueue("1", _a);
    enqueue("2", _b);
    _queue.processEvents();
    EXPECT_THAT(_notes, ElementsAre("event 1", "destroy 1", "event 2", "destroy 2"));
}

TEST_F(EventQueueTest, deliversWhatHandlersPostInTheSameCall)
{
    _a._handler = [this](const std::string& name) {
        if (name.size() < 4)
            enqueue(name + "+", name.size() == 2 ? _b : _a);
    };
    _b._handler = [this](const std::string& name) { enqueue(name + "+", _c); };
    enqueue("1", _a);
    enqueue("2", _c);
    EXPECT_THAT(delivered(), ElementsAre("1", "2", "1+", "1++", "1+++"));
    EXPECT_FALSE(_queue.hasPendingEvents());
}

TEST_F(EventQueueTest, deliversWithinAHandlerWithoutRepeating)
{
    _a._handler = [this](const std::string&) { _queue.processEvents(); };
    enqueue("1", _a);
    enqueue("2", _b);
    _queue.processEvents();
    EXPECT_THAT(_notes, ElementsAre("event 1", "event 2", "destroy 2", "destroy 1"));
}

TEST_F(EventQueueTest, countsNeitherTheEventUnderDeliveryNorDeliveredOnes)
{
    std::vector<unsigned int> counts;
    _a._handler = [&](const std::string&) { counts.push_back(_queue.countEventsForObject(&_a)); };
    for (const char* const name : {"1", "2", "3"})
        enqueue(name, _a);
    _queue.processEvents();
    EXPECT_THAT(counts, ElementsAre(2, 1, 0));
}

TEST_F(EventQueueTest, handlerMayTakeOutWhatComesNext)
{
    _a._handler = [this](const std::string& name) {
        if (name == "1") {
            EXPECT_THAT(takenOut(_a), ElementsAre("3"));
        }
    };
    enqueue("1", _a);
    enqueue("2", _b);
    enqueue("3", _a);
    EXPECT_THAT(delivered(), ElementsAre("1", "2"));
}

TEST_F(EventQueueTest, takesOutOneObjectsEventsAndKeepsTheRest)
{
    enqueue("1", _a);
    enqueue("2", _b);
    enqueue("3", _a);
    enqueue("4", _c);
    EXPECT_THAT(takenOut(_a), ElementsAre("1", "3"));
    EXPECT_EQ(0U, _queue.countEventsForObject(&_a));
    EXPECT_THAT(delivered(), ElementsAre("2", "4"));
}

TEST_F(EventQueueTest, takesEventsOutWithoutDisposingOfThem)
{
    enqueue("1", _a);
    EXPECT_THAT(takenOut(_a), ElementsAre("1"));
    EXPECT_THAT(_notes, IsEmpty());
}

TEST_F(EventQueueTest, takesOutAnEmptyListForAnObjectWithoutEvents)
{
    enqueue("1", _b);
    const std::unique_ptr<std::vector<Event*>> events(_queue.getEventsForObject(&_a));
    ASSERT_NE(nullptr, events);
    EXPECT_THAT(*events, IsEmpty());
    EXPECT_THAT(delivered(), ElementsAre("1"));
}

TEST_F(EventQueueTest, givesEachCallerAListOfItsOwn)
{
    const std::unique_ptr<std::vector<Event*>> first(_queue.getEventsForObject(&_a));
    const std::unique_ptr<std::vector<Event*>> second(_queue.getEventsForObject(&_a));
    EXPECT_NE(first, second);
}

TEST_F(EventQueueTest, countsOneObjectsEventsAndLeavesAllInPlace)
{
    enqueue("1", _a);
    enqueue("2", _b);
    enqueue("3", _a);
    enqueue("4", _c);
    EXPECT_EQ(2U, _queue.countEventsForObject(&_a));
    EXPECT_EQ(1U, _queue.countEventsForObject(&_b));
    EXPECT_EQ(1U, _queue.countEventsForObject(&_c));
    EXPECT_THAT(delivered(), ElementsAre("1", "2", "3", "4"));
}

TEST_F(EventQueueTest, scansHoldTheQueuesLockFromFirstToLast)
{
    interpose::CallLog log;
    const Interposed lock(interpose::g_async_queue_lock, log.noting("lock"));
    const Interposed pop(interpose::g_async_queue_try_pop_unlocked, log.noting("pop"));
    const Interposed push(interpose::g_async_queue_push_unlocked, log.noting("push"));
    const Interposed unlock(interpose::g_async_queue_unlock, log.noting("unlock"));
    enqueue("1", _a);
    enqueue("2", _b);

    EXPECT_EQ(1U, _queue.countEventsForObject(&_a));
    EXPECT_THAT(log.calls(), ElementsAre("lock", "pop", "pop", "pop", "push", "push", "unlock"));

    interpose::CallLog takingOut;
    {
        const Interposed lockAgain(interpose::g_async_queue_lock, takingOut.noting("lock"));
        const Interposed popAgain(interpose::g_async_queue_try_pop_unlocked, takingOut.noting("pop"));
        const Interposed pushAgain(interpose::g_async_queue_push_unlocked, takingOut.noting("push"));
        const Interposed unlockAgain(interpose::g_async_queue_unlock, takingOut.noting("unlock"));
        EXPECT_THAT(takenOut(_a), ElementsAre("1"));
    }
    EXPECT_THAT(takingOut.calls(), ElementsAre("lock", "pop", "pop", "pop", "push", "unlock"));
    EXPECT_THAT(delivered(), ElementsAre("2"));
}

TEST(EventQueue, losesAndReordersNothingWhileScannedFromOtherThreads)
{
    constexpr int producers = 3;
    constexpr int eventsEach = 2000;
    EventQueue queue;
    NumberCollector scanned(producers);  // gets the even numbers
    NumberCollector other(producers);    // gets the odd ones
    std::atomic<int> running{producers};

    ThreadGroup producing(producers, [&](int producer) {
        for (int number = 0; number < eventsEach; ++number) {
            queue.enqueueEvent(new NumberedEvent(producer, number, number % 2 == 0 ? scanned : other));
            if (number % 50 == 0)
                std::this_thread::yield();
        }
        --running;
    });
    std::thread counting([&] {
        while (running > 0) {
            EXPECT_LE(queue.countEventsForObject(&other), static_cast<unsigned int>(producers * eventsEach));
            queue.hasPendingEvents();
            std::this_thread::yield();
        }
    });
    while (running > 0) {
        const std::unique_ptr<std::vector<Event*>> events(queue.getEventsForObject(&scanned));
        for (Event* const event : *events) {
            EXPECT_EQ(&scanned, event->_receiver);
            scanned.event(event);
            event->destroy();
        }
        std::this_thread::yield();
    }
    producing.join();
    counting.join();
    queue.processEvents();

    std::vector<int> even;
    std::vector<int> odd;
    for (int number = 0; number < eventsEach; ++number)
        (number % 2 == 0 ? even : odd).push_back(number);
    for (std::size_t producer = 0; producer < producers; ++producer) {
        EXPECT_EQ(even, scanned.numbers()[producer]) << "producer " << producer;
        EXPECT_EQ(odd, other.numbers()[producer]) << "producer " << producer;
    }
}

TEST(EventQueue, deliversWhileOtherThreadsPost)
{
    constexpr int producers = 3;
    constexpr int eventsEach = 5000;
    EventQueue queue;
    NumberCollector receiver(producers);
    std::atomic<int> running{producers};
    ThreadGroup producing(producers, [&](int producer) {
        for (int number = 0; number < eventsEach; ++number)
            queue.enqueueEvent(new NumberedEvent(producer, number, receiver));
        --running;
    });
    while (running > 0)
        queue.processEvents();
    producing.join();
    queue.processEvents();

    for (const std::vector<int>& numbers : receiver.numbers()) {
        ASSERT_EQ(static_cast<std::size_t>(eventsEach), numbers.size());
        EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    }
}

TEST(EventQueue, endsTheProcessWhenDestroyedWithAnEventLeft)
{
    EXPECT_FATAL(
        {
            Event leftover(7, nullptr);
            EventQueue queue;
            queue.enqueueEvent(&leftover);
        },
        "false", source);
}

TEST(EventQueue, canBeDestroyedEmptyOrDrained)
{
    const auto endQuietly = [] {
        Notes notes;
        NotingObject object(notes);
        {
            const EventQueue empty;
        }
        {
            EventQueue drained;
            drained.enqueueEvent(new NamedEvent(notes, "1", object));
            drained.processEvents();
        }
        {
            EventQueue scanned;
            scanned.enqueueEvent(new NamedEvent(notes, "2", object));
            const std::unique_ptr<std::vector<Event*>> events(scanned.getEventsForObject(&object));
            events->front()->destroy();
        }
        std::fputs("destroyed\n", stderr);
        std::_Exit(0);
    };
    EXPECT_EXIT(endQuietly(), ::testing::ExitedWithCode(0), "^destroyed\n$");
}

TEST(EventQueue, releasesItsQueueAfterForgettingIt)
{
    alignas(EventQueue) unsigned char storage[sizeof(EventQueue)];
    auto* const queue = new (storage) EventQueue;
    int releases = 0;
    const Interposed release(interpose::g_async_queue_unref, [&](auto* real, GAsyncQueue* asyncQueue) {
        void* impl = nullptr;
        std::memcpy(&impl, storage + sizeof(void*), sizeof impl);
        EXPECT_EQ(nullptr, impl);
        ++releases;
        real(asyncQueue);
    });
    queue->~EventQueue();
    EXPECT_EQ(1, releases);
}

TEST(EventQueue, isOnePointerBehindAVirtualDestructor)
{
    EXPECT_TRUE(std::has_virtual_destructor_v<EventQueue>);
    EXPECT_EQ(2 * sizeof(void*), sizeof(EventQueue));
}
