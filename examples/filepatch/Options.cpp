// The command line of filepatch.
#include "Options.h"

#include <CLI/CLI.hpp>
#include <limits>

namespace {

CLI::App* addCommand(CLI::App& app, Options& options, Options::Command command, const char* name, const char* text)
{
    CLI::App* const added = app.add_subcommand(name, text);
    added->callback([&options, command] { options.command = command; });
    added->add_option("FILE", options.file, "the file")->required();
    added->add_option("OFFSET", options.offset, "where, in bytes from the start of the file")
        ->required()
        ->check(CLI::Range(0L, std::numeric_limits<long>::max()));
    return added;
}

void addLength(CLI::App* command, Options& options)
{
    command->add_option("LENGTH", options.length, "how many bytes")
        ->required()
        ->check(CLI::Range(1L, std::numeric_limits<long>::max()));
}

}  // namespace

std::optional<int> readOptions(int argc, char** argv, Options& options)
{
    CLI::App app("Puts bytes into the middle of a file, takes bytes out of it, or shows some.", "filepatch");
    app.require_subcommand(1);
    using Command = Options::Command;
    CLI::App* const insert =
        addCommand(app, options, Command::Insert, "insert", "put bytes before the one at OFFSET, or at the end");
    CLI::Option_group* const bytes = insert->add_option_group("bytes", "What to put there");
    bytes->add_option("TEXT", options.text, "this text");
    bytes->add_option("--from", options.from, "the bytes of this file");
    bytes->require_option(1);
    addLength(addCommand(app, options, Command::Erase, "erase", "take bytes out"), options);
    addLength(addCommand(app, options, Command::Show, "show", "write bytes to standard output as they are"), options);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const bool wantsHelp = app.exit(error) == 0;
        return wantsHelp ? 0 : 2;
    }
    return std::nullopt;
}
