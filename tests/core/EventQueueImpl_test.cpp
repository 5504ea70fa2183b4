// The wake-up marker behind the event queue: an item that equals the address of the queue itself.
#include "core/EventQueueImpl.h"

#include <type_traits>

#include "QueueFixture.h"

namespace {

using Murn::EventQueueImpl;
using ::testing::ElementsAre;

class EventQueueImplTest : public QueueFixture<EventQueueImpl> {
protected:
    // Nothing of the runtime queues a marker, so that the test has to.
    void enqueueMarker() { _queue.enqueueEvent(reinterpret_cast<Murn::Event*>(&_queue)); }
};

}  // namespace

TEST_F(EventQueueImplTest, markerCountsAsPending)
{
    enqueueMarker();
    EXPECT_TRUE(_queue.hasPendingEvents());
    _queue.processEvents();
}

TEST_F(EventQueueImplTest, markersAreNeverDelivered)
{
    enqueueMarker();
    enqueue("1", _a);
    enqueueMarker();
    enqueueMarker();
    enqueue("2", _b);
    enqueueMarker();
    EXPECT_THAT(delivered(), ElementsAre("1", "2"));
    EXPECT_FALSE(_queue.hasPendingEvents());
}

TEST_F(EventQueueImplTest, takingEventsOutDropsMarkers)
{
    enqueueMarker();
    enqueue("1", _a);
    enqueueMarker();
    enqueue("2", _a);
    enqueueMarker();
    EXPECT_THAT(takenOut(_a), ElementsAre("1", "2"));
    EXPECT_FALSE(_queue.hasPendingEvents());
}

TEST_F(EventQueueImplTest, takingEventsOutKeepsTheOthersWithoutMarkers)
{
    enqueue("1", _b);
    enqueueMarker();
    enqueue("2", _a);
    enqueue("3", _b);
    EXPECT_THAT(takenOut(_a), ElementsAre("2"));
    EXPECT_THAT(takenOut(_b), ElementsAre("1", "3"));
    EXPECT_FALSE(_queue.hasPendingEvents());
}

TEST_F(EventQueueImplTest, countingDropsMarkers)
{
    enqueueMarker();
    enqueue("1", _a);
    enqueueMarker();
    enqueue("2", _b);
    EXPECT_EQ(1U, _queue.countEventsForObject(&_a));
    EXPECT_THAT(takenOut(_a), ElementsAre("1"));
    EXPECT_THAT(takenOut(_b), ElementsAre("2"));
    EXPECT_FALSE(_queue.hasPendingEvents());

    enqueueMarker();
    EXPECT_EQ(0U, _queue.countEventsForObject(&_a));
    EXPECT_FALSE(_queue.hasPendingEvents());
}

TEST(EventQueueImpl, isOnePointerBehindAVirtualDestructor)
{
    EXPECT_TRUE(std::has_virtual_destructor_v<EventQueueImpl>);
    EXPECT_EQ(2 * sizeof(void*), sizeof(EventQueueImpl));
}
