// The command line.
#include "Options.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <random>

std::optional<int> readOptions(int argc, char** argv, Options& options)
{
    CLI::App app("Lives as hosts do for a while, and says what does not add up or grows.", "soak");
    options.seed = std::random_device()();
    options.share = 0.5;
    options.connections = 500;
    options.plugins = (std::filesystem::canonical("/proc/self/exe").parent_path() / "plugins").string();
    app.add_option("MINUTES", options.minutes, "how long")->required()->check(CLI::Range(0.01, 100000.0));
    app.add_option("--seed", options.seed, "what chance begins with; a new one each time by default");
    app.add_option("--share", options.share, "the part of one processor that it may take; 0.5 by default")
        ->check(CLI::Range(0.05, 64.0));
    app.add_option("--connections", options.connections, "how many are open at a time; 500 by default")
        ->check(CLI::Range(1, 800));
    app.add_option("--only", options.only, "the activities that go on, to hunt for what one of them leaves behind");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const bool wantsHelp = app.exit(error) == 0;
        return wantsHelp ? 0 : 2;
    }
    return std::nullopt;
}
