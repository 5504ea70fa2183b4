// Activity: threads wait for each other.
#include "Locks.h"

#include <kxPAL/Cond.h>
#include <kxPAL/Mutex.h>
#include <kxPAL/MutexLocker.h>

#include <cstdint>
#include <deque>
#include <thread>
#include <vector>

namespace {

constexpr std::uint64_t theEnd = 0;

// A queue of numbers between threads.
class Letterbox {
public:
    void put(std::uint64_t number, bool tellsAll)
    {
        _cond.lock();
        _numbers.push_back(number);
        if (tellsAll)
            _cond.broadcast();
        else
            _cond.signal();
        _cond.unlock();
    }

    std::uint64_t take(bool looksAtTheClock)
    {
        constexpr int aMomentMs = 3;
        _cond.lock();
        while (_numbers.empty()) {
            if (looksAtTheClock)
                _cond.timedWait(aMomentMs);
            else
                _cond.wait();
        }
        const std::uint64_t number = _numbers.front();
        _numbers.pop_front();
        _cond.unlock();
        return number;
    }

private:
    Murn::Cond _cond;
    std::deque<std::uint64_t> _numbers;  // guarded by _cond
};

// A sum under a lock that its owner takes twice over.
class Sum {
public:
    void add(std::uint64_t number)
    {
        const Murn::MutexLocker outer(&_mutex);
        const Murn::MutexLocker inner(&_mutex);
        _value += number;
    }
    std::uint64_t value() const { return _value; }

private:
    Murn::Mutex _mutex;
    std::uint64_t _value = 0;  // guarded by _mutex
};

// Returns how many numbers went from hand to hand.
std::uint64_t passOn(Round& round, Dice& dice)
{
    Letterbox box;
    Sum put;
    Sum taken;
    const unsigned int givers = dice.between(1, 4);
    const unsigned int takers = dice.between(1, 4);
    const std::uint64_t each = dice.between(1, 500);
    std::vector<std::thread> threads;
    for (unsigned int taker = 0; taker < takers; ++taker) {
        threads.emplace_back([&, looksAtTheClock = dice.oneIn(2)] {
            while (const std::uint64_t number = box.take(looksAtTheClock))
                taken.add(number);
        });
    }
    std::vector<std::thread> giving;
    for (unsigned int giver = 0; giver < givers; ++giver) {
        giving.emplace_back([&, tellsAll = dice.oneIn(2)] {
            for (std::uint64_t number = 1; number <= each; ++number) {
                box.put(number, tellsAll);
                put.add(number);
            }
        });
    }
    for (std::thread& thread : giving)
        thread.join();
    for (unsigned int taker = 0; taker < takers; ++taker)
        box.put(theEnd, true);
    for (std::thread& thread : threads)
        thread.join();
    round.ledger().same("the sum of what was put", givers * each * (each + 1) / 2, put.value());
    round.ledger().same("the sum of what was taken", put.value(), taken.value());
    return givers * each;
}

}  // namespace

void Locks::live(Round& round, Dice& dice)
{
    for (; !round.isOver(); round.rest())
        round.ledger().add(Figure::handOvers, passOn(round, dice));
}
