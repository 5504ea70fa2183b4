// The command line of the echo server.
#ifndef ECHO_SERVER_OPTIONS_H
#define ECHO_SERVER_OPTIONS_H

#include <kxPAL/HostAddress.h>

#include <optional>

/// What the command line asks for.
struct Options {
    Murn::HostAddress address{Murn::HostAddress::LoopbackIPv4};
    unsigned short port = 7007;
    unsigned int threads = 2;
};

/// Reads the command line. Says what is wrong with it on standard error, or what it may be on standard output when
/// asked for help.
/// @param options  gets what was asked for
/// @return the status to end the process with; none when the server is to run
std::optional<int> readOptions(int argc, char** argv, Options& options);

#endif
