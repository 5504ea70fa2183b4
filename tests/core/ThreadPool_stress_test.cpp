// Thread pools under many hands: what must hold however the threads meet.
#include <kxPAL/ThreadPool.h>

#include "Runtime.h"
#include "Stress.h"
#include "ThreadGroup.h"
#include "Units.h"

using ::testing::Each;

using Murn::Runnable;
using Murn::ThreadPool;

namespace {

constexpr int producerCount = 8;
const int unitsEach = stressRounds(12'500);

/// Counts the runs and the ends of the units of all producers.
class Tally {
public:
    explicit Tally(std::size_t units) : _runs(units), _ends(units) {}

    void noteRun(std::size_t unit) { ++_runs[unit]; }
    void noteEnd(std::size_t unit) { ++_ends[unit]; }

    std::vector<int> runs() const { return {_runs.begin(), _runs.end()}; }
    std::vector<int> ends() const { return {_ends.begin(), _ends.end()}; }

private:
    std::vector<std::atomic<int>> _runs;
    std::vector<std::atomic<int>> _ends;
};

class TalliedUnit : public Runnable {
public:
    TalliedUnit(Tally& tally, std::size_t number) : _tally(tally), _number(number) {}
    ~TalliedUnit() override { _tally.noteEnd(_number); }

    void run() override { _tally.noteRun(_number); }

private:
    Tally& _tally;
    const std::size_t _number;
};

class ThreadPoolStressTest : public RuntimeTest {};

TEST_F(ThreadPoolStressTest, everyUnitOfManyThreadsRunsAndGoesOnce)
{
    const std::size_t count = std::size_t{producerCount} * static_cast<std::size_t>(unitsEach);
    Tally tally(count);
    {
        ThreadPool pool(4);
        ThreadGroup producers(producerCount, [&](int producer) {
            const std::size_t first = static_cast<std::size_t>(producer) * static_cast<std::size_t>(unitsEach);
            for (std::size_t unit = first; unit < first + static_cast<std::size_t>(unitsEach); ++unit)
                pool.run(new TalliedUnit(tally, unit));
        });
        producers.join();
    }

    EXPECT_EQ(tally.runs(), std::vector<int>(count, 1));
    EXPECT_EQ(tally.ends(), std::vector<int>(count, 1));
}

TEST_F(ThreadPoolStressTest, theUnitsOfEachThreadStayInOrderWithOneWorker)
{
    std::vector<int> next(producerCount, 0);  // the worker's
    int outOfOrder = 0;
    {
        ThreadPool pool(1);
        ThreadGroup producers(producerCount, [&](int producer) {
            for (int unit = 0; unit < unitsEach; ++unit) {
                pool.run(new FunctionUnit([&, producer, unit] {
                    if (next[static_cast<std::size_t>(producer)]++ != unit)
                        ++outOfOrder;
                }));
            }
        });
        producers.join();
    }

    EXPECT_EQ(outOfOrder, 0);
    EXPECT_THAT(next, Each(unitsEach));
}

TEST_F(ThreadPoolStressTest, unitsThatSpreadTheirWorkLoseNoneOfIt)
{
    constexpr int depth = 12;
    constexpr int expected = (1 << (depth + 1)) - 1;
    std::atomic<int> runs{0};
    std::function<void(int)> spread;
    ThreadPool pool(4);  // ends before what its units use
    spread = [&](int left) {
        for (int half = 0; left > 0 && half < 2; ++half)
            pool.run(new FunctionUnit([&spread, left] { spread(left - 1); }));
        if (++runs == expected)
            mainThread()->wakeUp();
    };

    pool.run(new FunctionUnit([&] { spread(depth); }));
    while (runs < expected)
        mainThread()->processEvents(true);
}

TEST_F(ThreadPoolStressTest, poolsOfAllSizesComeAndGoWithWorkInThem)
{
    std::atomic<int> ends{0};
    int units = 0;
    for (int round = 0; round < stressRounds(200); ++round) {
        ThreadPool pool(1 + round % 8);
        for (int unit = 0; unit < round % 20; ++unit, ++units)
            pool.run(new FunctionUnit([] {}, [&] { ++ends; }));
    }

    EXPECT_EQ(ends, units);
}

TEST_F(ThreadPoolStressTest, eventsReachTheObjectsThatUnitsMakeOnTheirOwnThread)
{
    const int count = stressRounds(5'000);
    std::atomic<int> arrived{0};
    std::atomic<int> strayed{0};
    class Guest : public Murn::Object {
    public:
        Guest(std::atomic<int>& arrived, std::atomic<int>& strayed) : _arrived(arrived), _strayed(strayed) {}

        void event(Murn::Event* event) override
        {
            if (thread() != Murn::Thread::CurrentThread())
                ++_strayed;
            if (event->_type == 1)
                Object::event(event);
            else
                ++_arrived;
        }

    private:
        std::atomic<int>& _arrived;
        std::atomic<int>& _strayed;
    };

    {
        ThreadPool pool(4);
        for (int unit = 0; unit < count; ++unit) {
            pool.run(new FunctionUnit([&] {
                auto* const guest = new Guest(arrived, strayed);
                post(guest, 7);
                guest->destroy();
            }));
        }
    }

    EXPECT_EQ(arrived, count);
    EXPECT_EQ(strayed, 0);
}

// Whoever hands in last ends the pool at once, while the others are still on their way out of run().
TEST_F(ThreadPoolStressTest, poolsEndRightBehindTheLastUnitThatAnyThreadHandsIn)
{
    constexpr int producers = 4;
    constexpr int unitsOfEach = 5;
    for (int round = 0; round < stressRounds(200); ++round) {
        std::atomic<int> runs{0};
        std::atomic<int> ends{0};
        std::atomic<int> atWork{producers};
        auto* const pool = new ThreadPool(1 + round % 3);
        StartingLine line(producers);
        ThreadGroup threads(producers, [&](int) {
            line.wait();
            for (int unit = 0; unit < unitsOfEach; ++unit)
                pool->run(new FunctionUnit([&] { ++runs; }, [&] { ++ends; }));
            if (--atWork == 0)
                delete pool;
        });
        threads.join();

        ASSERT_EQ(runs, producers * unitsOfEach);
        ASSERT_EQ(ends, producers * unitsOfEach);
    }
}

}  // namespace
