// The command line of the chat.
#include "Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>

namespace {

constexpr std::size_t longestName = 32;

std::string checkGroup(const std::string& text)
{
    unsigned char bytes[4] = {};
    std::size_t length = sizeof bytes;
    const bool isGroup = Murn::HostAddress(text).toBytes(bytes, length) && length == 4 && bytes[0] >> 4 == 14;
    return isGroup ? "" : "'" + text + "' is no IPv4 multicast address, such as 239.1.2.3";
}

std::string checkName(const std::string& text)
{
    const bool isPlain = std::none_of(text.begin(), text.end(), [](unsigned char c) { return std::iscntrl(c) != 0; });
    return !text.empty() && text.size() <= longestName && isPlain ? "" : "a name has 1 to 32 bytes and is one line";
}

}  // namespace

std::optional<int> readOptions(int argc, char** argv, Options& options)
{
    CLI::App app("Lets people on one network talk without a server: a line that one types, all others see.",
                 "multicast_chat");
    std::string group = options.group.toString();
    // Read as a wide signed number, so that -1 and 70000 are refused for what they are.
    long port = options.port;
    app.add_option("--group", group, "the multicast group to meet in, IPv4")->check(checkGroup)->capture_default_str();
    app.add_option("--port", port, "the port of that group")->check(CLI::Range(1L, 65535L))->capture_default_str();
    app.add_option("--name", options.name, "what the others see in front of each line")->check(checkName)->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const bool wantsHelp = app.exit(error) == 0;
        return wantsHelp ? 0 : 2;
    }
    options.group = Murn::HostAddress(group);
    options.port = static_cast<unsigned short>(port);
    return std::nullopt;
}
