// Counts allocations: through the sanitizer's hook where there is one, or else in front of the C library's own
// functions. A sanitizer must see every allocation, so its functions cannot be stood in front of.
#include "AllocationCount.h"

#include <cstddef>
#include <cstdlib>

#include "Sanitizers.h"

namespace {

thread_local unsigned long allocationsOfThisThread = 0;

}  // namespace

unsigned long AllocationCount::ofThisThread()
{
    return allocationsOfThisThread;
}

#if KXPAL_TESTS_ADDRESS_SANITIZER || KXPAL_TESTS_THREAD_SANITIZER

extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*allocated)(const volatile void*, std::size_t),
                                                         void (*freed)(const volatile void*));

namespace {

void countAllocation(const volatile void*, std::size_t)
{
    ++allocationsOfThisThread;
}

void ignoreRelease(const volatile void*) {}

[[maybe_unused]] const int installed = __sanitizer_install_malloc_and_free_hooks(countAllocation, ignoreRelease);

}  // namespace

#else

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

__attribute__((visibility("default"))) void* malloc(std::size_t size) noexcept
{
    ++allocationsOfThisThread;
    return __libc_malloc(size);
}

__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) noexcept
{
    ++allocationsOfThisThread;
    return __libc_calloc(count, size);
}

__attribute__((visibility("default"))) void* realloc(void* block, std::size_t size) noexcept
{
    ++allocationsOfThisThread;
    return __libc_realloc(block, size);
}
}

#endif
