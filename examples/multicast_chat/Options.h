// The command line of the chat.
#ifndef MULTICAST_CHAT_OPTIONS_H
#define MULTICAST_CHAT_OPTIONS_H

#include <kxPAL/HostAddress.h>

#include <optional>
#include <string>

/// What the command line asks for.
struct Options {
    Murn::HostAddress group{std::string("239.1.2.3")};
    unsigned short port = 5000;
    std::string name;
};

/// Reads the command line. Says what is wrong with it on standard error, or what it may be on standard output when
/// asked for help.
/// @param options  gets what was asked for
/// @return the status to end the process with; none when the talk is to begin
std::optional<int> readOptions(int argc, char** argv, Options& options);

#endif
