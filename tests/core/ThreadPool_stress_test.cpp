// Thread pools under many hands: what must hold however the threads meet.
#include <kxPAL/ThreadPool.h>

#include "Runtime.h"
#include "ThreadGroup.h"
#include "Units.h"

using ::testing::Each;

using Murn::Runnable;
using Murn::ThreadPool;

namespace {

constexpr int producerCount = 8;
constexpr int unitsEach = 12'500;

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
    constexpr std::size_t count = std::size_t{producerCount} * unitsEach;
    Tally tally(count);
    {
        ThreadPool pool(4);
        ThreadGroup producers(producerCount, [&](int producer) {
            const std::size_t first = static_cast<std::size_t>(producer) * unitsEach;
            for (std::size_t unit = first; unit < first + unitsEach; ++unit)
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
    for (int round = 0; round < 200; ++round) {
        ThreadPool pool(1 + round % 8);
        for (int unit = 0; unit < round % 20; ++unit, ++units)
            pool.run(new FunctionUnit([] {}, [&] { ++ends; }));
    }

    EXPECT_EQ(ends, units);
}

TEST_F(ThreadPoolStressTest, eventsReachTheObjectsThatUnitsMakeOnTheirOwnThread)
{
    constexpr int count = 5'000;
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

}  // namespace
