// The command line of the list of interfaces.
#include "Options.h"

#include <CLI/CLI.hpp>

std::optional<int> readOptions(int argc, char** argv, Options& options)
{
    CLI::App app("Lists the network interfaces of this machine, the loopback device left out.", "interfaces");
    app.add_flag("--json", options.json, "print JSON, for programs");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const bool wantsHelp = app.exit(error) == 0;
        return wantsHelp ? 0 : 2;
    }
    return std::nullopt;
}
