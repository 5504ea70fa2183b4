// Defines the replaceable functions for sockets, descriptors and name resolution.
#include "InterposeSockets.h"

#include <cstdarg>

KXPAL_INTERPOSE_SOCKETS(KXPAL_INTERPOSE_DEFINE)

constinit interpose::Slot<int(int, int, void*)> interpose::fcntl("__interceptor_fcntl", "fcntl");

extern "C" __attribute__((visibility("default"))) int fcntl(int fd, int command, ...)
{
    va_list rest;
    va_start(rest, command);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    return interpose::fcntl.call(fd, command, argument);
}

constinit interpose::Slot<int(int, unsigned long, void*)> interpose::ioctl("__interceptor_ioctl", "ioctl");

extern "C" __attribute__((visibility("default"))) int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list rest;
    va_start(rest, request);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    return interpose::ioctl.call(fd, request, argument);
}
