// Activity: timers fire, are stopped, restarted and deleted.
#include "Timers.h"

#include <kxPAL/Application.h>
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>
#include <kxPAL/Thread.h>
#include <kxPAL/Timer.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include "LoopThread.h"

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// GLib's timers count in whole milliseconds.
constexpr milliseconds early(2);
constexpr milliseconds late(30000);  // a loaded machine under sanitizers is late, a lost timer is lost for good

// Fires a number of times, of which it does something else each time, and deletes itself.
class Ticker : public Murn::Timer {
public:
    Ticker(Round& round, std::atomic<int>& living, std::uint64_t seed)
        : _round(round), _living(living), _dice(seed), _left(_dice.between(1, 12))
    {
        ++_living;
    }
    ~Ticker() override { --_living; }

    void begin()
    {
        _intervalMs = _dice.oneIn(10) ? 0 : _dice.between(1, 60);
        _begin = Clock::now();
        _lastFire = _begin;
        _fires = 0;
        start(_intervalMs, nullptr);
    }

    void timeout() override
    {
        const Clock::time_point now = Clock::now();
        ++_fires;
        // A time that comes late may be followed by one that is not, so only the sum of them has a lower limit.
        const bool isEarly = now - _begin + early < _fires * milliseconds(_intervalMs);
        const bool isLate = now - _lastFire > milliseconds(_intervalMs) + late;
        if (!isRunning() || isEarly || isLate)
            _round.ledger().complain("a timer of %u ms fired %s, for time %d, %lld us after its start", _intervalMs,
                                     isEarly ? "early" : "late", _fires,
                                     static_cast<long long>((now - _begin) / std::chrono::microseconds(1)));
        _lastFire = now;
        _round.ledger().add(Figure::timerFires);
        if (--_left == 0)
            delete this;
        else if (_dice.oneIn(3))
            restart();
    }

private:
    void restart()
    {
        if (_dice.oneIn(2))
            stop();
        begin();
    }

    Round& _round;
    std::atomic<int>& _living;
    Dice _dice;
    unsigned int _left;
    unsigned int _intervalMs = 0;
    int _fires = 0;  // since the start
    Clock::time_point _begin;
    Clock::time_point _lastFire;
};

// A timer that must not fire: it is stopped before its time.
class Silent : public Murn::Timer {
public:
    explicit Silent(Round& round) : _round(round) {}
    void timeout() override { _round.ledger().complain("a timer fired that was stopped"); }

private:
    Round& _round;
};

// Starts timers on its loop when it is told to.
class Starter : public Murn::Object {
public:
    enum : unsigned int { Begin = 100 };

    Starter(Round& round, std::atomic<int>& living, std::uint64_t seed) : _round(round), _living(living), _dice(seed)
    {
        ++_living;
    }
    ~Starter() override { --_living; }

    void event(Murn::Event* event) override
    {
        if (event->_type != Begin) {
            Object::event(event);
            return;
        }
        for (unsigned int count = _dice.between(1, 20); count > 0; --count)
            (new Ticker(_round, _living, _dice.seed()))->begin();
        Silent silent(_round);
        silent.start(_dice.below(5), nullptr);
        silent.start(_dice.below(5), nullptr);
        if (_dice.oneIn(2))
            silent.stop();  // otherwise it stops with its end
    }

private:
    Round& _round;
    std::atomic<int>& _living;
    Dice _dice;
};

// A timer of a thread that is still to start, which it ends then.
class First : public Murn::Timer {
public:
    void timeout() override
    {
        stop();
        ++fires;
        Murn::Thread::CurrentThread()->stop();
    }

    int fires = 0;
};

void beginBeforeTheThread(Round& round, Dice& dice)
{
    Murn::Thread thread;
    thread.setJoinable(true);
    First first;
    first.start(dice.below(5), &thread);
    thread.start();
    thread.join();
    round.ledger().same("expiries of a timer that stops itself", 1, static_cast<std::uint64_t>(first.fires));
    round.ledger().add(Figure::timerFires);
}

}  // namespace

void Timers::live(Round& round, Dice& dice)
{
    std::atomic<int> living{0};
    while (!round.isOver()) {
        LoopThread loop;
        auto* const starter = new Starter(round, living, dice.seed());
        starter->moveToThread(loop.thread());
        for (unsigned int turns = dice.between(1, 20); turns > 0; --turns) {
            Murn::Application::PostEvent(starter, new Murn::Event(Starter::Begin, nullptr));
            round.rest();
        }
        starter->destroy();
        loop.thread()->wakeUp();  // for nothing
        round.await("the timers to fire", [&] { return living == 0; });
        beginBeforeTheThread(round, dice);
        round.ledger().add(Figure::threads, 2);
    }
}
