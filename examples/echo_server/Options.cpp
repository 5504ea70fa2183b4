// The command line of the echo server.
#include "Options.h"

#include <CLI/CLI.hpp>
#include <string>

namespace {

constexpr unsigned int mostThreads = 256;  // more would only wait for each other

std::string checkAddress(const std::string& text)
{
    return Murn::HostAddress(text).isValid() ? ""
                                             : "'" + text + "' is no IPv4 or IPv6 address, such as 127.0.0.1 or ::1";
}

}  // namespace

std::optional<int> readOptions(int argc, char** argv, Options& options)
{
    CLI::App app("Sends back whatever its TCP clients send, until SIGINT or SIGTERM.", "echo_server");
    std::string address = options.address.toString();
    // Read as wide signed numbers, so that -1 and 70000 are refused for what they are.
    long port = options.port;
    long threads = options.threads;
    app.add_option("--address", address, "the address to listen on, IPv4 or IPv6")
        ->check(checkAddress)
        ->capture_default_str();
    app.add_option("--port", port, "the port to listen on; 0 for one that the system chooses")
        ->check(CLI::Range(0L, 65535L))
        ->capture_default_str();
    app.add_option("--threads", threads, "how many threads serve the clients")
        ->check(CLI::Range(1L, static_cast<long>(mostThreads)))
        ->capture_default_str();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const bool wantsHelp = app.exit(error) == 0;
        return wantsHelp ? 0 : 2;
    }
    options.address = Murn::HostAddress(address);
    options.port = static_cast<unsigned short>(port);
    options.threads = static_cast<unsigned int>(threads);
    return std::nullopt;
}
