// Waiting for what another thread or the kernel is about to do.
#ifndef KXPAL_TESTS_WAIT_H
#define KXPAL_TESTS_WAIT_H

#include <chrono>
#include <thread>

/// Waits until the predicate holds, looking every millisecond.
/// @param limit  how long to wait at most; generous, since it passes only when the test fails
/// @return whether the predicate held
template <typename Predicate>
[[nodiscard]] bool waitUntil(Predicate predicate, std::chrono::milliseconds limit = std::chrono::seconds(30))
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() >= end)
            return predicate();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

#endif
