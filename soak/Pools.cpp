// Activity: pools of several sizes come, work and go.
#include "Pools.h"

#include <kxPAL/Object.h>
#include <kxPAL/Runnable.h>
#include <kxPAL/ThreadPool.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

namespace {

struct Counts {
    std::atomic<std::uint64_t> made{0};
    std::atomic<std::uint64_t> run{0};
    std::atomic<std::uint64_t> gone{0};
    std::atomic<std::uint64_t> twice{0};
    std::atomic<std::int64_t> objects{0};
};

// An object that a unit leaves to its worker's loop.
class Result : public Murn::Object {
public:
    explicit Result(std::atomic<std::int64_t>& living) : _living(living) { ++_living; }
    ~Result() override { --_living; }

private:
    std::atomic<std::int64_t>& _living;
};

// Works a little, may leave an object to be destroyed, and hands in further units.
class Unit : public Murn::Runnable {
public:
    Unit(Murn::ThreadPool& pool, Counts& counts, std::uint64_t seed, unsigned int children)
        : _pool(pool), _counts(counts), _seed(seed), _children(children)
    {
        ++_counts.made;
    }
    ~Unit() override { ++_counts.gone; }

    void run() override
    {
        if (_hasRun)
            ++_counts.twice;
        _hasRun = true;
        Dice dice(_seed);
        (void)dice.bytes(dice.below(2000));
        if (dice.oneIn(4))
            (new Result(_counts.objects))->destroy();
        for (unsigned int child = 0; child < _children; ++child)
            _pool.run(new Unit(_pool, _counts, dice.seed(), 0));
        ++_counts.run;  // last: once all have run, nobody hands in any more
    }

private:
    Murn::ThreadPool& _pool;
    Counts& _counts;
    const std::uint64_t _seed;
    const unsigned int _children;
    bool _hasRun = false;
};

void handIn(Murn::ThreadPool& pool, Counts& counts, Dice dice, unsigned int units, unsigned int children)
{
    for (; units > 0; --units)
        pool.run(new Unit(pool, counts, dice.seed(), children));
}

// Returns how many workers there were.
unsigned int workOnce(Round& round, Dice& dice)
{
    Counts counts;
    const unsigned int workers = dice.between(1, 8);
    const unsigned int units = dice.between(0, 60);
    const unsigned int children = dice.below(4);
    const unsigned int handing = dice.between(1, 4);
    {
        Murn::ThreadPool pool(static_cast<int>(workers));
        std::vector<std::thread> threads;
        for (unsigned int index = 0; index < handing; ++index)
            threads.emplace_back(handIn, std::ref(pool), std::ref(counts), Dice(dice.seed()), units, children);
        for (std::thread& thread : threads)
            thread.join();
        if (children > 0)  // units that a unit hands in while the pool is being destroyed would be lost
            round.await("units to hand in others", [&] { return counts.run == handing * units * (1 + children); });
    }
    round.ledger().same("pool units that ran", handing * units * (1 + children), counts.run);
    round.ledger().same("pool units that are gone", counts.made, counts.gone);
    round.ledger().same("pool units that ran twice", 0, counts.twice);
    round.ledger().same("objects that units left", 0, static_cast<std::uint64_t>(counts.objects));
    round.ledger().add(Figure::poolUnits, counts.run);
    return workers;
}

}  // namespace

void Pools::live(Round& round, Dice& dice)
{
    for (; !round.isOver(); round.rest()) {
        round.ledger().add(Figure::threads, workOnce(round, dice));
        round.ledger().add(Figure::pools);
    }
}
