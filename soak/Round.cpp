// The time in which all activities go on at once.
#include "Round.h"

#include <cstdlib>
#include <ctime>
#include <thread>

namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;

constexpr minutes patience(3);  // sanitizers and others on the machine included

double cpuSeconds()
{
    timespec used{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);  // always there
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

}  // namespace

Round::Round(Ledger& ledger, Clock::duration duration, double share)
    : _ledger(ledger), _start(Clock::now()), _end(_start + duration), _share(share), _cpuAtStart(cpuSeconds())
{
}

bool Round::isOver() const
{
    return Clock::now() >= _end || _ledger.complaints() != 0;
}

bool Round::isAhead() const
{
    const std::chrono::duration<double> elapsed = Clock::now() - _start;
    return cpuSeconds() - _cpuAtStart > _share * elapsed.count();
}

void Round::rest()
{
    do
        std::this_thread::sleep_for(milliseconds(2));
    while (isAhead() && !isOver());
}

void Round::await(const char* what, const std::function<bool()>& holds)
{
    const Clock::time_point limit = Clock::now() + patience;
    while (!holds()) {
        if (Clock::now() > limit) {
            _ledger.complain("waited in vain for %s", what);
            std::abort();
        }
        std::this_thread::sleep_for(milliseconds(1));
    }
}
