// An object that many post to while it wanders.
#include "Wanderer.h"

#include <kxPAL/Application.h>

Wanderer::Wanderer(Round& round, EventCounts& counts, Loops& loops, std::atomic<std::int64_t>& living)
    : _round(round), _counts(counts), _loops(loops), _living(living)
{
    ++_living;
    _round.ledger().add(Figure::objects);
}

Wanderer::~Wanderer()
{
    for (unsigned int poster = 0; poster < posters; ++poster)
        _round.ledger().same("events that an object handled", _posted[poster], _handled[poster]);
    --_living;
}

void Wanderer::event(Murn::Event* event)
{
    if (event->_type < Plain) {
        Object::event(event);  // the request to delete this object
        return;
    }
    const auto* const counted = static_cast<const CountedEvent*>(event);
    const unsigned int type = event->_type;
    const std::uint64_t number = counted->number;
    ++_counts.handled;
    if (!thread()->isCurrentThread() || number != _handled[counted->poster]++)
        _round.ledger().complain("an event came out of order or on another thread than its object's: number %lu",
                                 static_cast<unsigned long>(number));
    if (type == Move)
        moveOn(number);
    else if (type == Die)
        die();
}

// Events that wait are delivered within the move, and may move the object themselves.
void Wanderer::moveOn(std::uint64_t number)
{
    _round.ledger().add(Figure::objectMoves);
    moveToThread(_loops[number % _loops.size()]->thread());
}

// Nobody else posts any more.
void Wanderer::die()
{
    constexpr int tooLate = 3;
    for (int count = 0; count < tooLate; ++count)
        Murn::Application::PostEvent(this, new CountedEvent(Plain, _counts, 0, 0));
    _counts.toDiscard += tooLate;
    delete this;
}
