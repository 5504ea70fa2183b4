// The command line of the plug-in host.
#include "Options.h"

#include <CLI/CLI.hpp>
#include <filesystem>

std::optional<int> readOptions(int argc, char** argv, Options& options)
{
    CLI::App app("Runs the plug-ins of a folder for a moment.", "plugin_host");
    app.add_option("FOLDER", options.folder, "where they are (default: \"plugins\" beside the program)");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const bool wantsHelp = app.exit(error) == 0;
        return wantsHelp ? 0 : 2;
    }
    // Users mean their working directory by a relative path, the library the directory of the program.
    if (!options.folder.empty())
        options.folder = std::filesystem::absolute(options.folder);
    return std::nullopt;
}
