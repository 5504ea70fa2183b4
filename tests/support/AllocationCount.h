// How often a piece of code asks for heap memory. A program that uses it lists AllocationCount.cpp in its sources.
#ifndef KXPAL_TESTS_ALLOCATION_COUNT_H
#define KXPAL_TESTS_ALLOCATION_COUNT_H

/// Counts what the calling thread allocates on the heap, with `new`, `malloc`, `calloc` or `realloc`, from the
/// construction of the object on. Stays on one thread.
class AllocationCount {
public:
    AllocationCount() : _before(ofThisThread()) {}

    /// The number of allocations until now.
    unsigned long allocations() const { return ofThisThread() - _before; }

private:
    static unsigned long ofThisThread();

    unsigned long _before;
};

#endif
