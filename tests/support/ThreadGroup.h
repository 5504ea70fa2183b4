// Several threads that do the same.
#ifndef KXPAL_TESTS_THREAD_GROUP_H
#define KXPAL_TESTS_THREAD_GROUP_H

#include <cstddef>
#include <thread>
#include <vector>

/// Runs function(0), function(1) and so on, each on a thread of its own.
class ThreadGroup {
public:
    template <typename Function>
    ThreadGroup(int count, Function function)
    {
        _threads.reserve(static_cast<std::size_t>(count));
        for (int number = 0; number < count; ++number)
            _threads.emplace_back(function, number);
    }

    ~ThreadGroup() { join(); }

    ThreadGroup(const ThreadGroup&) = delete;
    ThreadGroup& operator=(const ThreadGroup&) = delete;

    /// Waits until every thread has ended.
    void join()
    {
        for (std::thread& thread : _threads)
            thread.join();
        _threads.clear();
    }

private:
    std::vector<std::thread> _threads;
};

#endif
