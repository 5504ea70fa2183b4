// A network of the process's own.
#ifndef SOAK_OWN_NETWORK_H
#define SOAK_OWN_NETWORK_H

#include <string>

/// Moves the process, which must have one thread, to a network of its own, with a loopback device and two interfaces.
/// @return why it cannot; empty when it did
std::string enterOwnNetwork();

#endif
