// The command line.
#ifndef SOAK_OPTIONS_H
#define SOAK_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct Options {
    double minutes;
    std::uint64_t seed;
    double share;                   ///< Of one processor.
    unsigned int connections;       ///< At a time.
    std::vector<std::string> only;  ///< The activities that go on; all when empty.
    std::string plugins;            ///< The folder that they are in.
};

/// @return the status to end with; nothing when the host is to run
std::optional<int> readOptions(int argc, char** argv, Options& options);

#endif
