// A network that belongs to one process and its children, and ends with them.
#ifndef KXPAL_TESTS_PRIVATE_NETWORK_H
#define KXPAL_TESTS_PRIVATE_NETWORK_H

#include <string>

/// Private networks are made with the right of root, or in a user namespace where the system allows ordinary users to
/// have one. A test enters one in a child (see FreshProcess.h), so that nothing can be left behind, whatever happens.
namespace privatenetwork {

/// Tries in a child whether there can be one with virtual devices in it.
/// @return why not, for GTEST_SKIP(); empty when there can
std::string obstacle();

/// Moves the calling process, which must have one thread, to a new network that has nothing but a loopback device,
/// which is down. Throws std::runtime_error when that is not allowed.
void enter();

/// Configures the network that the process is in with the `ip` tool. Throws std::runtime_error when that fails.
/// @param command  the tool's arguments with a blank between each, such as "link set lo up"
void ip(const std::string& command);

/// Adds a device with a hardware address and its other end, which is called as `name` is with "far" in front.
void addDevice(const std::string& name, const std::string& hardwareAddress);

}  // namespace privatenetwork

#endif
