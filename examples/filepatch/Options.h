// The command line of filepatch.
#ifndef FILEPATCH_OPTIONS_H
#define FILEPATCH_OPTIONS_H

#include <optional>
#include <string>

/// What the command line asks for.
struct Options {
    enum class Command { Insert, Erase, Show };

    Command command = Command::Show;
    std::string file;
    long offset = 0;                  // not negative
    long length = 0;                  // to erase or show; above 0
    std::optional<std::string> text;  // to insert: either this or the bytes of a file
    std::optional<std::string> from;
};

/// Reads the command line. Says what is wrong with it on standard error, or what it may be on standard output when
/// asked for help.
/// @param options  gets what was asked for
/// @return the status to end the process with; none when there is something to do
std::optional<int> readOptions(int argc, char** argv, Options& options);

#endif
