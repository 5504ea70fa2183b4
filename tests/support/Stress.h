// How long the stress tests go on, and how their threads begin.
#ifndef KXPAL_TESTS_STRESS_H
#define KXPAL_TESTS_STRESS_H

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <thread>

/// The share of so many rounds that is asked for: KXPAL_STRESS_PERCENT in the environment, or else all. At least one.
inline int stressRounds(int full)
{
    const char* const percent = std::getenv("KXPAL_STRESS_PERCENT");
    if (percent == nullptr)
        return full;
    return static_cast<int>(std::max(1L, full * std::strtol(percent, nullptr, 10) / 100));
}

/// Lets several threads go on at the same moment: each of them waits until all have come. Serves one round.
class StartingLine {
public:
    explicit StartingLine(int threads) : _missing(threads) {}

    void wait()
    {
        --_missing;
        while (_missing > 0)
            std::this_thread::yield();
    }

private:
    std::atomic<int> _missing;
};

#endif
