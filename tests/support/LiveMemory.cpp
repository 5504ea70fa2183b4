// Counts blocks in front of the C library's own functions.
#include "LiveMemory.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>

#include "Sanitizers.h"

#if KXPAL_TESTS_ADDRESS_SANITIZER || KXPAL_TESTS_THREAD_SANITIZER

long livememory::blocks()
{
    return 0;
}

#else

namespace {

std::atomic<long> liveBlocks{0};

}  // namespace

long livememory::blocks()
{
    return liveBlocks.load();
}

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);

__attribute__((visibility("default"))) void* malloc(std::size_t size) noexcept
{
    ++liveBlocks;
    return __libc_malloc(size);
}

__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) noexcept
{
    ++liveBlocks;
    return __libc_calloc(count, size);
}

__attribute__((visibility("default"))) void* realloc(void* block, std::size_t size) noexcept
{
    if (block == nullptr)
        ++liveBlocks;
    return __libc_realloc(block, size);
}

__attribute__((visibility("default"))) void free(void* block) noexcept
{
    if (block != nullptr)
        --liveBlocks;
    __libc_free(block);
}
}

#endif
