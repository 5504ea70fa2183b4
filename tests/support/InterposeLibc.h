// Replaceable functions: backtraces, clocks, memory and the dynamic loader. See Interpose.h.
//
// dlsym() is not among them, since Interpose.h itself finds the real functions with it; nor is dlerror(), whose text
// that search would change.
#ifndef KXPAL_TESTS_INTERPOSE_LIBC_H
#define KXPAL_TESTS_INTERPOSE_LIBC_H

#include <dlfcn.h>
#include <execinfo.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include "Interpose.h"

#define KXPAL_INTERPOSE_LIBC(X)                                                                                        \
    X(int, backtrace, (void** frames, int size), (frames, size), )                                                     \
    X(char**, backtrace_symbols, (void* const* frames, int size), (frames, size), noexcept)                            \
    X(time_t, time, (time_t * seconds), (seconds), noexcept)                                                           \
    X(tm*, localtime, (const time_t* seconds), (seconds), noexcept)                                                    \
    X(size_t, strftime, (char* buffer, size_t size, const char* format, const tm* time), (buffer, size, format, time), \
      noexcept)                                                                                                        \
    X(int, clock_gettime, (clockid_t clock, timespec * now), (clock, now), noexcept)                                   \
    X(int, gettimeofday, (timeval * now, void* zone), (now, zone), noexcept)                                           \
    X(int, usleep, (useconds_t microseconds), (microseconds), )                                                        \
    X(void*, mmap, (void* address, size_t length, int protection, int flags, int fd, off_t offset),                    \
      (address, length, protection, flags, fd, offset), noexcept)                                                      \
    X(int, munmap, (void* address, size_t length), (address, length), noexcept)                                        \
    X(void*, dlopen, (const char* path, int flags), (path, flags), noexcept)                                           \
    X(int, dlclose, (void* handle), (handle), noexcept)

namespace interpose {
KXPAL_INTERPOSE_LIBC(KXPAL_INTERPOSE_DECLARE)
}  // namespace interpose

#endif
