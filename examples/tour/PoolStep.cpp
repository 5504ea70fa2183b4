// Step: a pool of threads shares the work.
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>
#include <kxPAL/Runnable.h>
#include <kxPAL/Thread.h>
#include <kxPAL/ThreadPool.h>

#include <atomic>
#include <set>

#include "Pump.h"
#include "Steps.h"

namespace {

using Murn::Application;

constexpr int workers = 4;
constexpr long units = 2000;

/// Brings the result of one unit, and says which worker ran it.
class Answer : public Murn::Event {
public:
    enum : unsigned int { Type = 2 };

    Answer(long square, Murn::Thread* worker) : Event(Type, nullptr), _square(square), _worker(worker) {}

    const long _square;
    Murn::Thread* const _worker;
};

/// Lives on the main thread and adds up what it gets.
class Sum : public Murn::Object {
public:
    void event(Murn::Event* event) override
    {
        if (event->_type != Answer::Type) {
            Object::event(event);
            return;
        }
        const auto* const answer = static_cast<Answer*>(event);
        _total += answer->_square;
        _workers.insert(answer->_worker);
        ++_answers;
    }

    long answers() const { return _answers; }
    long total() const { return _total; }
    const std::set<Murn::Thread*>& workers() const { return _workers; }

private:
    long _answers = 0;
    long _total = 0;
    std::set<Murn::Thread*> _workers;
};

/// Squares a number.
class SquareUnit : public Murn::Runnable {
public:
    SquareUnit(long number, Sum& sum, std::atomic<long>& deleted) : _number(number), _sum(sum), _deleted(deleted) {}
    ~SquareUnit() override { ++_deleted; }

    void run() override { Application::PostEvent(&_sum, new Answer(_number * _number, Murn::Thread::CurrentThread())); }

private:
    const long _number;
    Sum& _sum;
    std::atomic<long>& _deleted;
};

Findings walk(Murn::Application&)
{
    Findings findings;
    std::atomic<long> deleted{0};
    Sum sum;
    {
        Murn::ThreadPool pool(workers);
        say("%d workers take units of work from one queue. Here come %ld of them, each with a number to", workers,
            units);
        say("square; the results are posted to an object of the main thread, which adds them up.");
        for (long number = 1; number <= units; ++number)
            pool.run(new SquareUnit(number, sum, deleted));
        findings.check(pumpUntil([&] { return sum.answers() == units; }), "all of them were answered");
    }
    findings.check(deleted == units, "the pool has deleted every unit");
    findings.check(sum.total() == units * (units + 1) * (2 * units + 1) / 6, "the sum is right");
    findings.check(sum.workers().count(Application::MainApplicationThread()) == 0 &&
                       sum.workers().count(nullptr) == 0 && sum.workers().size() <= workers,
                   "none but the workers did the work");
    findings.figure(sum.answers(), "units of work");
    return findings;
}

}  // namespace

const Step poolStep = {"Sharing work among the threads of a pool", walk};
