// The descriptor of a socket that one thread closes while others use it. Private.
#ifndef MURN_DESCRIPTOR_H
#define MURN_DESCRIPTOR_H

#include <atomic>
#include <shared_mutex>

namespace Murn {

class Socket;

/// The descriptor in a socket's field, which another thread may be closing: -1 from then on. The field is a plain
/// number, since hosts know the layout, and so each access by itself is an atomic one.
inline int readDescriptor(int& field)
{
    return std::atomic_ref<int>(field).load(std::memory_order_relaxed);
}

/// Takes the descriptor out of the field before it is closed, so that nobody else begins to use it, or closes it too.
inline int takeDescriptor(int& field)
{
    return std::atomic_ref<int>(field).exchange(-1, std::memory_order_relaxed);
}

/// Keeps a socket from being closed between the moment when its descriptor is read and the call that it is read for.
/// Without it that call could meet the descriptor of somebody else, who opened one meanwhile and got the same number.
/// Several threads may use a socket at once. Sockets share a fixed set of locks by address.
class DescriptorUse {
public:
    explicit DescriptorUse(const Socket& socket);
    ~DescriptorUse();

    DescriptorUse(const DescriptorUse&) = delete;
    DescriptorUse& operator=(const DescriptorUse&) = delete;

private:
    std::shared_mutex& _lock;
};

/// What a thread holds that closes a socket which others may be using. It waits until they are done. Who stays for more
/// than a moment waits within its call, which a `shutdown` ends.
class DescriptorEnd {
public:
    /// @param descriptor  the socket's; -1 when it is closed already
    DescriptorEnd(const Socket& socket, int descriptor);
    ~DescriptorEnd();

    DescriptorEnd(const DescriptorEnd&) = delete;
    DescriptorEnd& operator=(const DescriptorEnd&) = delete;

private:
    std::shared_mutex& _lock;
};

}  // namespace Murn

#endif
