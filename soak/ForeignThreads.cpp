// Activity: threads that the library did not start register, live and leave.
#include "ForeignThreads.h"

#include <kxPAL/Application.h>
#include <kxPAL/Object.h>
#include <kxPAL/Thread.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "CountedEvent.h"

namespace {

constexpr unsigned int eventType = 100;

// Counts its events, and goes when it has seen enough, which ends the loop of its thread.
class Counter : public Murn::Object {
public:
    Counter(EventCounts& counts, std::uint64_t enough, bool& isDone, bool stopsLoop)
        : _counts(counts), _enough(enough), _isDone(isDone), _stopsLoop(stopsLoop)
    {
    }

    void event(Murn::Event* event) override
    {
        if (event->_type != eventType) {
            Object::event(event);
            return;
        }
        ++_counts.handled;
        if (++_seen < _enough)
            return;
        _isDone = true;
        if (_stopsLoop)
            thread()->stop();
        delete this;
    }

private:
    EventCounts& _counts;
    const std::uint64_t _enough;
    bool& _isDone;
    const bool _stopsLoop;
    std::uint64_t _seen = 0;
};

// A thread that registers, receives what is posted to it, by running a loop or by looking for it, and leaves.
class Guest {
public:
    Guest(Round& round, EventCounts& counts, std::uint64_t enough, bool runsALoop)
        : _round(round), _counts(counts), _enough(enough), _runsALoop(runsALoop), _thread([this] { live(); })
    {
    }
    ~Guest() { _thread.join(); }

    Murn::Object* object() const { return _counter; }

private:
    void live()
    {
        Murn::Application::RegisterExternalThread();
        _round.ledger().check(Murn::Application::isExternalThreadAlreadyRegistered(), "a guest is registered");
        _counter = new Counter(_counts, _enough, _isDone, _runsALoop);
        if (_runsALoop)
            Murn::Thread::CurrentThread()->exec();
        while (!_isDone)
            Murn::Application::ProcessEvents(true);
        Murn::Application::UnregisterExternalThread();
        _round.ledger().check(Murn::Thread::CurrentThread() == nullptr, "a guest that has left is unknown");
        _round.ledger().add(Figure::threadsForeign);
    }

    Round& _round;
    EventCounts& _counts;
    const std::uint64_t _enough;
    const bool _runsALoop;
    bool _isDone = false;  // the thread's own
    std::atomic<Murn::Object*> _counter{nullptr};
    std::thread _thread;
};

void receiveGuests(Round& round, EventCounts& counts, Dice& dice)
{
    const std::uint64_t events = dice.between(1, 50);
    std::vector<std::unique_ptr<Guest>> guests;
    for (unsigned int count = dice.between(1, 16); count > 0; --count)
        guests.push_back(std::make_unique<Guest>(round, counts, events, dice.oneIn(2)));
    std::vector<Murn::Object*> objects;
    for (const auto& guest : guests) {
        round.await("a guest to register", [&] { return guest->object() != nullptr; });
        objects.push_back(guest->object());  // which goes with its last event
    }
    for (std::uint64_t number = 0; number < events; ++number) {
        for (Murn::Object* const object : objects)
            Murn::Application::PostEvent(object, new CountedEvent(eventType, counts, 0, number));
    }
}

}  // namespace

void ForeignThreads::live(Round& round, Dice& dice)
{
    EventCounts counts;
    for (; !round.isOver(); round.rest())
        receiveGuests(round, counts, dice);
    round.ledger().same("events that guests handled", counts.made, counts.handled);
    round.ledger().same("events to guests that are gone", counts.made, counts.gone);
    round.ledger().add(Figure::eventsPosted, counts.made);
    round.ledger().add(Figure::eventsHandled, counts.handled);
}
