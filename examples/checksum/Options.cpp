// The command line of the checksum program.
#include "Options.h"

#include <glib.h>

#include <CLI/CLI.hpp>
#include <algorithm>

namespace {

constexpr int mostJobs = 256;  // more would only wait for each other

// The parser takes a value in brackets for a list, so that a file called "[a,b]" would be two. With something in front
// of the bracket it is one.
constexpr char guard = '\x1f';

// In the order that the parser wants, the last one first.
std::vector<std::string> guardedArguments(int argc, char** argv)
{
    std::vector<std::string> arguments;
    for (int index = argc - 1; index > 0; --index) {
        const std::string argument = argv[index];
        const bool needsGuard = argument.starts_with('[') || argument.starts_with(guard);
        arguments.push_back(needsGuard ? guard + argument : argument);
    }
    return arguments;
}

void takeGuardOff(std::string& name)
{
    if (name.starts_with(guard))
        name.erase(0, 1);
}

}  // namespace

std::optional<int> readOptions(int argc, char** argv, Options& options)
{
    CLI::App app("Prints the SHA-256 checksums of files, as sha256sum does, several files at a time.", "checksum");
    options.jobs = std::min(static_cast<int>(g_get_num_processors()), mostJobs);
    app.add_option("-j,--jobs", options.jobs, "how many files to read at a time; one for each processor by default")
        ->check(CLI::Range(1, mostJobs));
    app.add_option("FILE", options.files, "the files; -- in front of them lets names begin with -")->required();

    try {
        app.parse(guardedArguments(argc, argv));
    } catch (const CLI::ParseError& error) {
        const bool wantsHelp = app.exit(error) == 0;
        return wantsHelp ? 0 : 2;
    }
    std::for_each(options.files.begin(), options.files.end(), takeGuardOff);
    return std::nullopt;
}
