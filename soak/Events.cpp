// Activity: objects that come, go and move while many threads post to them.
#include "Events.h"

#include <kxPAL/Application.h>
#include <kxPAL/Murn_c.h>

#include <thread>
#include <vector>

#include "PlainC.h"
#include "Wanderer.h"

namespace {

constexpr std::size_t loopCount = 3;
constexpr std::size_t objectsAtATime = 8;

using Objects = std::vector<Wanderer*>;

// One thread's part: posts to each object a number of times, in one of the ways that there are. It holds a reference on
// each, and the last one to let go of an object has it destroyed.
void post(const Objects& objects, EventCounts& counts, unsigned int poster, Dice dice)
{
    const bool registers = dice.oneIn(2);
    if (registers)
        Murn::Application::RegisterExternalThread();
    std::vector<std::uint64_t> posted(objects.size(), 0);
    for (unsigned int left = dice.between(20, 200); left > 0; --left) {
        const unsigned int which = dice.below(static_cast<unsigned int>(objects.size()));
        const unsigned int type = dice.oneIn(20) ? Wanderer::Move : Wanderer::Plain;
        auto* const event = new CountedEvent(type, counts, poster, posted[which]++);
        if (dice.oneIn(3))
            Murn_Application_Dispatch_Event(objects[which], event);
        else if (dice.oneIn(2))
            Murn::Application::DispatchEvent(objects[which], event);
        else
            Murn::Application::PostEvent(objects[which], event);
    }
    for (std::size_t index = 0; index < objects.size(); ++index) {
        objects[index]->tellPosted(poster, posted[index]);
        objects[index]->deref();
    }
    if (registers)
        Murn::Application::UnregisterExternalThread();
}

// Makes objects, has all threads post to them, and returns when the threads have ended; the objects go when they have
// handled everything.
void postFromAllSides(Round& round, EventCounts& counts, Wanderer::Loops& loops, std::atomic<std::int64_t>& living,
                      Dice& dice)
{
    Objects objects;
    for (std::size_t index = 0; index < objectsAtATime; ++index) {
        objects.push_back(new Wanderer(round, counts, loops, living));
        for (unsigned int poster = 0; poster < Wanderer::posters; ++poster)
            objects.back()->ref();
        objects.back()->moveToThread(loops[index % loops.size()]->thread());
    }
    std::vector<std::thread> threads;
    for (unsigned int poster = 0; poster < Wanderer::posters; ++poster)
        threads.emplace_back(post, std::cref(objects), std::ref(counts), poster, Dice(dice.seed()));
    for (std::thread& thread : threads)
        thread.join();
}

// An object that deletes itself in a handler, with events for it waiting.
void leaveEventsBehind(Round& round, EventCounts& counts, Wanderer::Loops& loops, std::atomic<std::int64_t>& living,
                       Dice& dice)
{
    auto* const object = new Wanderer(round, counts, loops, living);
    const std::uint64_t before = dice.below(5);
    object->tellPosted(0, before + 1);
    object->moveToThread(loops[dice.below(static_cast<unsigned int>(loops.size()))]->thread());
    for (std::uint64_t number = 0; number < before; ++number)
        Murn::Application::PostEvent(object, new CountedEvent(Wanderer::Plain, counts, 0, number));
    Murn::Application::PostEvent(object, new CountedEvent(Wanderer::Die, counts, 0, before));
}

}  // namespace

void Events::live(Round& round, Dice& dice)
{
    EventCounts counts;
    std::atomic<std::int64_t> living{0};
    for (; !round.isOver(); round.rest()) {
        Wanderer::Loops loops;
        while (loops.size() < loopCount)
            loops.push_back(std::make_unique<LoopThread>());
        for (unsigned int turns = dice.between(1, 10); turns > 0; --turns) {
            postFromAllSides(round, counts, loops, living, dice);
            leaveEventsBehind(round, counts, loops, living, dice);
            round.rest();
        }
        round.await("all objects to have handled their events", [&] { return living == 0; });
        round.ledger().check(plain_c_reads_back() != 0, "C reads back what an event was made with");
        round.ledger().add(Figure::threads, loopCount);
    }
    round.ledger().same("events that are gone", counts.made, counts.gone);
    round.ledger().same("events handled or discarded", counts.made, counts.handled + counts.toDiscard);
    round.ledger().add(Figure::eventsPosted, counts.made);
    round.ledger().add(Figure::eventsHandled, counts.handled);
    round.ledger().add(Figure::eventsDiscarded, counts.toDiscard);
}
