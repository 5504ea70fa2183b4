// Activity: threads of all kinds come and go.
#include "Threads.h"

#include <kxPAL/Application.h>
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>
#include <kxPAL/Thread.h>

#include <memory>
#include <thread>
#include <vector>

#include "LoopThread.h"
#include "PlainC.h"

namespace {

std::atomic<std::int64_t> uncollected{0};

// A thread with a body, which is joined.
class Body : public Murn::Thread {
public:
    explicit Body(std::atomic<int>& runs) : _runs(runs) { setJoinable(true); }
    void run() override { ++_runs; }

private:
    std::atomic<int>& _runs;
};

// A thread that nobody joins. It deletes itself when its system thread has left the library for good, which is when
// the variables of that thread go.
class Detached : public Murn::Thread {
public:
    explicit Detached(std::atomic<int>& living) : _living(living) { ++_living; }

    void run() override
    {
        static thread_local std::unique_ptr<Detached> self;
        self.reset(this);
    }
    ~Detached() override { --_living; }

private:
    std::atomic<int>& _living;
};

// A thread for the collector, whose loop runs until it is collected, or which hands over itself and ends.
class Collected : public Murn::Thread {
public:
    /// @param ready  counts the threads that can be collected, or have been handed over
    Collected(std::atomic<int>& ready, bool handsOverItself) : _ready(ready), _handsOverItself(handsOverItself)
    {
        ++uncollected;
        setJoinable(true);
    }
    ~Collected() override { --uncollected; }

    void run() override
    {
        if (_handsOverItself)
            Murn::Application::AddToThreadGarbageCollector(this);
        ++_ready;
        if (!_handsOverItself)
            exec();
    }

private:
    std::atomic<int>& _ready;
    const bool _handsOverItself;
};

// An object that is left on a thread whose loop ends, and goes on the main application thread.
class Orphan : public Murn::Object {
public:
    Orphan(Round& round, std::atomic<int>& living) : _round(round), _living(living) { ++_living; }
    ~Orphan() override
    {
        _round.ledger().check(Murn::Thread::CurrentThread() == Murn::Application::MainApplicationThread(),
                              "objects that outlive their thread go to the main one");
        --_living;
    }

private:
    Round& _round;
    std::atomic<int>& _living;
};

void startAndJoin(Round& round, Dice& dice)
{
    std::atomic<int> runs{0};
    const unsigned int count = dice.between(1, 6);
    const unsigned int turns = dice.between(1, 3);
    std::vector<std::unique_ptr<Body>> threads;
    for (unsigned int index = 0; index < count; ++index)
        threads.push_back(std::make_unique<Body>(runs));
    for (unsigned int turn = 0; turn < turns; ++turn) {
        for (const auto& thread : threads)
            thread->start();
        for (const auto& thread : threads)
            thread->join();
    }
    round.ledger().same("runs of joined threads", count * turns, static_cast<std::uint64_t>(runs));
    round.ledger().add(Figure::threads, count * turns);
}

void startAndForget(Round& round, Dice& dice)
{
    std::atomic<int> living{0};
    const unsigned int count = dice.between(1, 6);
    for (unsigned int index = 0; index < count; ++index)
        (new Detached(living))->start();
    round.await("detached threads to end", [&] { return living == 0; });
    round.ledger().add(Figure::threads, count);
}

void leaveToTheCollector(Round& round, int count, bool handOverThemselves)
{
    std::atomic<int> ready{0};
    std::vector<Collected*> threads;
    for (int index = 0; index < count; ++index) {
        threads.push_back(new Collected(ready, handOverThemselves));
        threads.back()->start();
    }
    round.await("threads for the collector to begin", [&] { return ready == count; });
    if (!handOverThemselves) {
        for (Collected* const thread : threads)
            Murn::Application::AddToThreadGarbageCollector(thread);
    }
    round.ledger().add(Figure::threads, static_cast<std::uint64_t>(count));
    round.ledger().add(Figure::threadsCollected, static_cast<std::uint64_t>(count));
}

void leaveObjects(Round& round, Dice& dice)
{
    std::atomic<int> living{0};
    std::vector<Orphan*> orphans;
    {
        LoopThread loop;
        for (unsigned int count = dice.between(1, 4); count > 0; --count) {
            orphans.push_back(new Orphan(round, living));
            orphans.back()->moveToThread(loop.thread());
        }
    }
    for (Orphan* const orphan : orphans)
        orphan->destroy();
    round.await("objects that were left to go", [&] { return living == 0; });
    round.ledger().add(Figure::objects, orphans.size());
    round.ledger().add(Figure::threads);
}

// A component in C, on a thread that the library did not start.
void liveAsAForeigner(Round& round)
{
    std::thread([] {
        plain_c_lives();
        Murn::Application::UnregisterExternalThread();
    }).join();
    round.ledger().add(Figure::threadsForeign);
}

}  // namespace

std::int64_t Threads::Uncollected()
{
    return uncollected;
}

void Threads::live(Round& round, Dice& dice)
{
    for (; !round.isOver(); round.rest()) {
        startAndJoin(round, dice);
        startAndForget(round, dice);
        leaveToTheCollector(round, static_cast<int>(dice.between(1, 4)), dice.oneIn(3));
        leaveObjects(round, dice);
        liveAsAForeigner(round);
    }
    // One more, which ends by itself, has those before it collected, and waits for the next round or for the
    // application's end.
    leaveToTheCollector(round, 1, true);
    round.ledger().same("threads that wait for the collector", 1, static_cast<std::uint64_t>(Uncollected()));
}
