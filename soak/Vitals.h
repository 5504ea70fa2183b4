// What the process holds at a moment.
#ifndef SOAK_VITALS_H
#define SOAK_VITALS_H

#include <cstddef>

/// Memory, descriptors and threads of this process.
struct Vitals {
    std::size_t residentKiB;  ///< What the system has given it.
    std::size_t heapKiB;      ///< What the allocator has given out of that and not taken back.
    std::size_t descriptors;
    std::size_t threads;

    static Vitals Now();
    /// @return whether a sanitizer holds memory of its own, so that what is resident says nothing of the host
    static bool AreSanitized();
};

#endif
