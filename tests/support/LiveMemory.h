// How much heap memory is in use. A program that uses it lists LiveMemory.cpp in its sources.
#ifndef KXPAL_TESTS_LIVE_MEMORY_H
#define KXPAL_TESTS_LIVE_MEMORY_H

namespace livememory {

/// The blocks of the process that were taken from the heap and not given back. Under a sanitizer always none: leaks are
/// its own business.
long blocks();

/// How many blocks each of many calls of the function leaves behind. What only the first calls leave does not count.
template <typename Function>
long leftBehindBy(Function function)
{
    constexpr long calls = 50;
    for (int i = 0; i < 3; ++i)
        function();
    const long before = blocks();
    for (long i = 0; i < calls; ++i)
        function();
    return (blocks() - before) / calls;
}

}  // namespace livememory

#endif
