// Step: timers on two loops.
#include <kxPAL/Application.h>
#include <kxPAL/Timer.h>

#include <atomic>
#include <chrono>

#include "LoopThread.h"
#include "Pump.h"
#include "Steps.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Fires a number of times on one thread and stops by itself.
class CountingTimer : public Murn::Timer {
public:
    CountingTimer(int wanted, unsigned int intervalMs, Murn::Thread* thread)
        : _wanted(wanted), _thread(thread), _begin(Clock::now())
    {
        start(intervalMs, thread);
    }

    void timeout() override
    {
        if (!_thread->isCurrentThread())
            _strayed = true;
        if (_fired + 1 == _wanted) {
            _tookMs = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - _begin).count();
            stop();
        }
        ++_fired;
    }

    int fired() const { return _fired; }
    bool isDone() const { return _fired >= _wanted; }
    bool strayed() const { return _strayed; }
    /// Once it is done.
    long tookMs() const { return _tookMs; }

private:
    const int _wanted;
    Murn::Thread* const _thread;
    const Clock::time_point _begin;
    std::atomic<bool> _strayed{false};
    std::atomic<long> _tookMs{0};
    std::atomic<int> _fired{0};
};

Findings walk(Murn::Application&)
{
    Findings findings;
    constexpr int wanted = 10;
    constexpr unsigned int mainMs = 20;
    constexpr unsigned int workerMs = 10;

    say("One timer fires every %u ms on the main loop, another every %u ms on a worker's.", mainMs, workerMs);
    LoopThread worker;
    CountingTimer onMain(wanted, mainMs, Murn::Application::MainApplicationThread());
    CountingTimer onWorker(wanted, workerMs, worker.thread());
    const bool done = pumpUntil([&] { return onMain.isDone() && onWorker.isDone(); });
    say("Each stops itself after %d times: %ld ms on the main loop, %ld ms on the worker's.", wanted, onMain.tookMs(),
        onWorker.tookMs());

    findings.check(done && onMain.fired() == wanted && onWorker.fired() == wanted,
                   "each fired " + std::to_string(wanted) + " times");
    findings.check(!onMain.strayed() && !onWorker.strayed(), "each fired on its own thread");
    findings.check(onMain.tookMs() >= wanted * static_cast<long>(mainMs) &&
                       onWorker.tookMs() >= wanted * static_cast<long>(workerMs),
                   "none fired early");
    findings.figure(onMain.fired() + onWorker.fired(), "timer ticks");
    return findings;
}

}  // namespace

const Step timersStep = {"Running timers on two loops", walk};
