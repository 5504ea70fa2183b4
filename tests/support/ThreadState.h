// Whether another thread of the process waits in a system call.
#ifndef KXPAL_TESTS_THREAD_STATE_H
#define KXPAL_TESTS_THREAD_STATE_H

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

/// The calling thread's number, for others to ask about it.
inline long threadNumber()
{
    return ::syscall(SYS_gettid);
}

/// Whether a thread of this process sleeps: in a system call that waits, or for a lock.
inline bool isAsleep(long thread)
{
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string line;
    std::getline(file, line);
    // "number (name) state ...", where the name may have anything in it.
    const std::size_t name = line.rfind(") ");
    return name != std::string::npos && line.compare(name + 2, 1, "S") == 0;
}

/// Whether a thread of this process sleeps in a system call that waits for descriptors, and in no other; where the
/// system does not tell of the call, whether it sleeps.
inline bool waitsForDescriptors(long thread)
{
    if (!isAsleep(thread))
        return false;
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/syscall");
    std::string call;
    if (!(file >> call))
        return true;
    const long number = std::strtol(call.c_str(), nullptr, 10);
    return number == SYS_pselect6 || number == SYS_ppoll
#ifdef SYS_select
           || number == SYS_select || number == SYS_poll
#endif
        ;
}

#endif
