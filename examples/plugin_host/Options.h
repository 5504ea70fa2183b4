// The command line of the plug-in host.
#ifndef PLUGIN_HOST_OPTIONS_H
#define PLUGIN_HOST_OPTIONS_H

#include <optional>
#include <string>

/// What the command line asks for.
struct Options {
    std::string folder;  ///< Absolute; empty for the one beside the program.
};

/// Reads the command line. Says what is wrong with it on standard error, or what it may be on standard output when
/// asked for help.
/// @param options  gets what was asked for
/// @return the status to end the process with; none when there is something to run
std::optional<int> readOptions(int argc, char** argv, Options& options);

#endif
