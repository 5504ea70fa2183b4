// Requests per second of the echo server, against an echo server on bare system calls.
#include <getopt.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "FloorServer.h"
#include "Load.h"
#include "ServerProcess.h"

namespace {

constexpr char usage[] =
    "usage: echo_load [OPTION...]\n"
    "\n"
    "Has clients on this machine send messages to the echo server, each waiting for its echo before the next, and to\n"
    "a server on bare poll(), read() and write(), by turns in one run. Prints what both do and the ratio of the two.\n"
    "\n"
    "  --connections N   clients at a time; may be given several times (1, 50 and 1000)\n"
    "  --size BYTES      the length of a message (64)\n"
    "  --seconds N       how long each server is under load, for each number of clients (5)\n"
    "  --threads N       how many threads each server has (2)\n"
    "  --stuck N         besides those, clients that send to the echo server and never read (0)\n"
    "  --server PROGRAM  the echo server\n"
    "  --floor           only run the other server, until it is killed\n";

struct Options {
    std::vector<std::size_t> connections;
    std::size_t size = 64;
    unsigned int seconds = 5;
    unsigned int threads = 2;
    std::size_t stuck = 0;
    std::string server = ECHO_SERVER_PROGRAM;
    bool floor = false;
};

[[noreturn]] void explain(int status)
{
    static_cast<void>(std::fputs(usage, status == 0 ? stdout : stderr));
    std::exit(status);
}

unsigned int number(const char* text, unsigned int least)
{
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (end == text || *end != '\0' || value < least || value > 1000000)
        explain(2);
    return static_cast<unsigned int>(value);
}

Options readOptions(int argc, char** argv)
{
    static const option known[] = {{"connections", required_argument, nullptr, 'c'},
                                   {"size", required_argument, nullptr, 's'},
                                   {"seconds", required_argument, nullptr, 'd'},
                                   {"threads", required_argument, nullptr, 't'},
                                   {"stuck", required_argument, nullptr, 'k'},
                                   {"server", required_argument, nullptr, 'e'},
                                   {"floor", no_argument, nullptr, 'f'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
    Options options;
    for (int letter = 0; (letter = ::getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        switch (letter) {
            case 'c':
                options.connections.push_back(number(optarg, 1));
                break;
            case 's':
                options.size = number(optarg, 1);
                break;
            case 'd':
                options.seconds = number(optarg, 1);
                break;
            case 't':
                options.threads = number(optarg, 1);
                break;
            case 'k':
                options.stuck = number(optarg, 0);
                break;
            case 'e':
                options.server = optarg;
                break;
            case 'f':
                options.floor = true;
                break;
            default:
                explain(letter == 'h' ? 0 : 2);
        }
    }
    if (optind != argc)
        explain(2);
    if (options.connections.empty())
        options.connections = {1, 50, 1000};
    return options;
}

void raiseDescriptorLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);  // the servers inherit it
}

// Both servers are under load by turns, in short slices, so that whatever else the machine does hits both.
void compare(const Options& options, std::size_t connections, unsigned short serverPort, unsigned short floorPort)
{
    constexpr std::chrono::milliseconds slice(250);
    Load server(serverPort, connections, options.size);
    Load floor(floorPort, connections, options.size);
    server.run(slice, true);
    floor.run(slice, true);
    for (unsigned int slices = 0; slices < options.seconds * (std::chrono::seconds(1) / slice); ++slices) {
        server.run(slice);
        floor.run(slice);
    }
    std::printf("%11zu  %10.0f %7.0f %7.0f  %10.0f %7.0f %7.0f  %5.2f\n", connections, server.requestsPerSecond(),
                server.microseconds(0.5), server.microseconds(0.99), floor.requestsPerSecond(), floor.microseconds(0.5),
                floor.microseconds(0.99), server.requestsPerSecond() / floor.requestsPerSecond());
    static_cast<void>(std::fflush(stdout));
}

}  // namespace

int main(int argc, char** argv)
{
    const Options options = readOptions(argc, argv);
    raiseDescriptorLimit();
    if (options.floor)
        return serveFloor(options.threads);

    const std::string threads = std::to_string(options.threads);
    const ServerProcess server({options.server, "--port", "0", "--threads", threads});
    const ServerProcess floor({"/proc/self/exe", "--floor", "--threads", threads});
    if (server.port() == 0 || floor.port() == 0) {
        static_cast<void>(std::fprintf(stderr, "echo_load: %s does not start\n",
                                       server.port() == 0 ? options.server.c_str() : "the floor"));
        return 1;
    }
    std::printf("Messages of %zu bytes, %u threads in each server, %zu clients that never read.\n", options.size,
                options.threads, options.stuck);
    std::printf(
        "             -------- echo server --------  ----------- floor -----------\n"
        "connections  requests/s  p50 us  p99 us  requests/s  p50 us  p99 us  ratio\n");
    for (const std::size_t connections : options.connections) {
        std::optional<StuckClients> stuck;
        if (options.stuck > 0)
            stuck.emplace(server.port(), options.stuck);
        compare(options, connections, server.port(), floor.port());
    }
    return 0;
}
