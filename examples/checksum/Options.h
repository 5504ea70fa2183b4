// The command line of the checksum program.
#ifndef CHECKSUM_OPTIONS_H
#define CHECKSUM_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

/// What the command line asks for.
struct Options {
    int jobs = 1;  ///< how many files are read at a time
    std::vector<std::string> files;
};

/// Reads the command line. Says what is wrong with it on standard error, or what it may be on standard output when
/// asked for help.
/// @param options  gets what was asked for
/// @return the status to end the process with; none when files are to be hashed
std::optional<int> readOptions(int argc, char** argv, Options& options);

#endif
