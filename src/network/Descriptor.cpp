// The descriptor of a socket that one thread closes while others use it.
#include "network/Descriptor.h"

#include <sys/socket.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>

namespace Murn {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds patience(100);  // calls that do not wait take a tiny part of this
constexpr std::chrono::microseconds pause(50);

constexpr std::size_t lockCount = 64;
constinit std::array<std::shared_mutex, lockCount> locks;

std::shared_mutex& lockOf(const Socket& socket)
{
    return locks[reinterpret_cast<std::uintptr_t>(&socket) / alignof(std::max_align_t) % lockCount];
}

bool lockWithin(std::shared_mutex& lock, Clock::duration limit)
{
    const Clock::time_point end = Clock::now() + limit;
    while (!lock.try_lock()) {
        if (Clock::now() >= end)
            return false;
        std::this_thread::sleep_for(pause);
    }
    return true;
}

}  // namespace

DescriptorUse::DescriptorUse(const Socket& socket) : _lock(lockOf(socket))
{
    _lock.lock_shared();
}

DescriptorUse::~DescriptorUse()
{
    _lock.unlock_shared();
}

DescriptorEnd::DescriptorEnd(const Socket& socket, int descriptor) : _lock(lockOf(socket))
{
    if (lockWithin(_lock, patience))
        return;
    ::shutdown(descriptor, SHUT_RDWR);  // ends calls that wait, although the system denies it for want of a connection
    _lock.lock();
}

DescriptorEnd::~DescriptorEnd()
{
    _lock.unlock();
}

}  // namespace Murn
