// The command line of the list of interfaces.
#ifndef INTERFACES_OPTIONS_H
#define INTERFACES_OPTIONS_H

#include <optional>

/// What the command line asks for.
struct Options {
    bool json = false;
};

/// Reads the command line. Says what is wrong with it on standard error, or what it may be on standard output when
/// asked for help.
/// @param options  gets what was asked for
/// @return the status to end the process with; none when there is something to list
std::optional<int> readOptions(int argc, char** argv, Options& options);

#endif
