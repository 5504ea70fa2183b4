// What the process holds at a moment.
#include "Vitals.h"

#include <dirent.h>
#include <malloc.h>
#include <unistd.h>

#include <fstream>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SOAK_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SOAK_SANITIZED 1
#endif
#endif

#ifdef SOAK_SANITIZED
// Of the sanitizers' own interface, which not every compiler brings a header for.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace {

std::size_t entriesOf(const char* path)
{
    DIR* const folder = ::opendir(path);
    if (folder == nullptr)
        return 0;
    std::size_t count = 0;
    while (::readdir(folder) != nullptr)
        ++count;
    ::closedir(folder);
    return count - 2;  // "." and ".."
}

std::size_t memoryKiB()
{
    std::size_t size = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) / 1024;
}

std::size_t heapBytes()
{
#ifdef SOAK_SANITIZED
    return __sanitizer_get_current_allocated_bytes();
#else
    const struct mallinfo2 info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

}  // namespace

bool Vitals::AreSanitized()
{
#ifdef SOAK_SANITIZED
    return true;
#else
    return false;
#endif
}

Vitals Vitals::Now()
{
    // The folder that is looked through is itself open meanwhile.
    return {memoryKiB(), heapBytes() / 1024, entriesOf("/proc/self/fd") - 1, entriesOf("/proc/self/task")};
}
