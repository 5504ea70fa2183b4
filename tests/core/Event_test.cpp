// Events: their fields, their virtual operations, copies, and the request to delete an object.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <kxPAL/DeleteLaterEvent.h>
#include <kxPAL/Event.h>

#include <cstddef>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "VirtualTable.h"

namespace {

using Murn::DeleteLaterEvent;
using Murn::Event;
using ::testing::ElementsAre;

// The slots that everybody relies on who calls through the virtual table.
constexpr std::size_t destructorSlot = 0;
constexpr std::size_t deletingDestructorSlot = 1;
constexpr std::size_t destroySlot = 2;

using Calls = std::vector<std::string>;

// Notes its end and the release of its memory.
class NotedEvent : public Event {
public:
    explicit NotedEvent(Calls& calls, unsigned int type = 7) : Event(type, &calls), _calls(&calls)
    {
        released = &calls;
    }
    NotedEvent(const NotedEvent&) = default;
    NotedEvent& operator=(const NotedEvent&) = default;
    ~NotedEvent() override { _calls->push_back("destructor"); }

    static void* operator new(std::size_t size);
    static void* operator new(std::size_t /*size*/, void* storage) { return storage; }
    static void operator delete(void* memory);

protected:
    Calls* _calls;

private:
    static inline Calls* released = nullptr;
};

// Kept whole, because the compiler takes the one without the other for a mismatch.
__attribute__((noinline)) void* NotedEvent::operator new(std::size_t size)
{
    return ::operator new(size);
}

__attribute__((noinline)) void NotedEvent::operator delete(void* memory)
{
    released->push_back("release");
    ::operator delete(memory);
}

class OverridingEvent final : public NotedEvent {
public:
    using NotedEvent::NotedEvent;
    void destroy() override { _calls->push_back("destroy"); }
};

Murn::Object* someObject()
{
    static char object;
    return reinterpret_cast<Murn::Object*>(&object);
}

}  // namespace

TEST(Event, startsWithoutAReceiver)
{
    int data = 0;
    const Event event(4'000'000'000U, &data);
    EXPECT_EQ(nullptr, event._receiver);
    EXPECT_EQ(4'000'000'000U, event._type);
    EXPECT_EQ(&data, event._data);
}

TEST(Event, takesAnyTypeAndNoData)
{
    for (const unsigned int type : {0U, 1U, 2U, 0xffffffffU}) {
        const Event event(type, nullptr);
        EXPECT_EQ(type, event._type);
        EXPECT_EQ(nullptr, event._data);
    }
}

TEST(Event, hasItsFieldsInOrderBehindTheVirtualTable)
{
    const Event event(1, nullptr);
    const auto offset = [&event](const void* field) {
        return static_cast<const char*>(field) - static_cast<const char*>(static_cast<const void*>(&event));
    };
    EXPECT_EQ(8, offset(&event._receiver));
    EXPECT_EQ(16, offset(&event._type));
    EXPECT_EQ(24, offset(&event._data));
    EXPECT_EQ(32U, sizeof(Event));
    EXPECT_TRUE((std::is_same_v<decltype(event._type), unsigned int>));
}

TEST(Event, destroyDeletesThroughTheVirtualDestructor)
{
    Calls calls;
    Event* const event = new NotedEvent(calls);
    event->destroy();
    EXPECT_THAT(calls, ElementsAre("destructor", "release"));
}

TEST(Event, destroyLeavesTheDataAlone)
{
    int data = 5;
    (new Event(7, &data))->destroy();
    EXPECT_EQ(5, data);
}

TEST(Event, destroyDoesNothingForNull)
{
    // At the level of the machine, because in the language there is no call on a null object. Anything but nothing
    // would read the null event and crash.
    const Event event(7, nullptr);
    callAddress(addressInSlot(&event, destroySlot), nullptr);
}

TEST(Event, destroyIsInTheThirdSlot)
{
    Calls calls;
    OverridingEvent event(calls);
    callAddress(addressInSlot(&event, destroySlot), &event);
    EXPECT_THAT(calls, ElementsAre("destroy"));
}

TEST(Event, destructorIsInTheFirstSlot)
{
    Calls calls;
    alignas(NotedEvent) unsigned char storage[sizeof(NotedEvent)];
    Event* const event = new (storage) NotedEvent(calls);
    callAddress(addressInSlot(event, destructorSlot), event);
    EXPECT_THAT(calls, ElementsAre("destructor"));
}

TEST(Event, deletingDestructorIsInTheSecondSlot)
{
    Calls calls;
    Event* const event = new NotedEvent(calls);
    callAddress(addressInSlot(event, deletingDestructorSlot), event);
    EXPECT_THAT(calls, ElementsAre("destructor", "release"));
}

TEST(Event, copyCarriesNothingOver)
{
    int data = 0;
    Event original(7, &data);
    original._receiver = someObject();
    const Event copy(original);
    EXPECT_EQ(nullptr, copy._receiver);
    EXPECT_EQ(0U, copy._type);
    EXPECT_EQ(nullptr, copy._data);

    EXPECT_EQ(someObject(), original._receiver);
    EXPECT_EQ(7U, original._type);
    EXPECT_EQ(&data, original._data);
}

TEST(Event, copyKeepsTheDynamicType)
{
    Calls calls;
    const OverridingEvent original(calls, 7);
    Event* const copy = new OverridingEvent(original);
    EXPECT_EQ(0U, copy->_type);
    copy->destroy();
    EXPECT_THAT(calls, ElementsAre("destroy"));
    delete copy;
}

TEST(Event, assignmentChangesNothing)
{
    int data = 0;
    int otherData = 0;
    Event event(7, &data);
    event._receiver = someObject();
    const Event other(8, &otherData);
    EXPECT_EQ(&event, &(event = other));
    EXPECT_EQ(someObject(), event._receiver);
    EXPECT_EQ(7U, event._type);
    EXPECT_EQ(&data, event._data);
}

TEST(DeleteLaterEvent, hasTheReservedTypeAndNoData)
{
    const DeleteLaterEvent event;
    EXPECT_EQ(1U, event._type);
    EXPECT_EQ(nullptr, event._data);
    EXPECT_EQ(nullptr, event._receiver);
}

TEST(DeleteLaterEvent, addsNoFieldsToAnEvent)
{
    EXPECT_TRUE((std::is_base_of_v<Event, DeleteLaterEvent>));
    EXPECT_EQ(sizeof(Event), sizeof(DeleteLaterEvent));
}

TEST(DeleteLaterEvent, keepsEventsDestroyInTheThirdSlot)
{
    const Event event(1, nullptr);
    const DeleteLaterEvent deleteLater;
    EXPECT_EQ(addressInSlot(&event, destroySlot), addressInSlot(&deleteLater, destroySlot));
    // Not the destructor before it: a compiler may have one function for two that do the same.
    EXPECT_NE(addressInSlot(&event, deletingDestructorSlot), addressInSlot(&deleteLater, deletingDestructorSlot));
}
