// A TCP server that sends back whatever it gets: one loop accepts, and a number of threads serve the clients.
#include <kxPAL/Application.h>
#include <kxPAL/LogHandler.h>
#include <kxPAL/Logger.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "EchoServer.h"
#include "Options.h"
#include "Statistics.h"
#include "StopSignals.h"
#include "WorkerThread.h"

namespace {

constexpr int cannotServe = 2;

using WorkerThreads = std::vector<std::unique_ptr<WorkerThread>>;

/// Takes the warnings of streams, which come with each client that resets its connection: here that is daily life.
class StreamWarnings final : public Murn::LogHandler {
public:
    StreamWarnings() : LogHandler("Stream", Murn::Logger::LevelWarning) { Murn::Logger::InstallHandler(this); }
    ~StreamWarnings() { Murn::Logger::UninstallHandler(this); }

    void HandleLog(const char*, Murn::Logger::LogLevel, const char*) override {}
};

// Each client costs a descriptor, and the usual limit is far below what the system allows.
void raiseDescriptorLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);  // without it there is just room for fewer clients
}

// The library takes it for a mistake of the program when it cannot make a socket, so a machine without IPv6, say, is
// found out first. Returns 0 or the error number.
int tryToMakeSocket(const Murn::HostAddress& address)
{
    const int fd = ::socket(Murn::Socket::AddressFamily(address), SOCK_STREAM, 0);
    if (fd == -1)
        return errno;
    ::close(fd);
    return 0;
}

int failToListen(const Options& options, int error)
{
    std::fprintf(stderr, "echo_server: cannot listen on %s port %u: %s\n", options.address.toString().c_str(),
                 options.port, std::strerror(error));
    return cannotServe;
}

// Returns whether all threads run.
bool startWorkers(WorkerThreads& workers, unsigned int wanted)
{
    while (workers.size() < wanted) {
        workers.push_back(std::make_unique<WorkerThread>());
        if (!workers.back()->isRunning()) {
            std::fprintf(stderr, "echo_server: cannot start thread %zu of %u\n", workers.size(), wanted);
            return false;
        }
    }
    return true;
}

Totals takeTotals(const EchoServer& server, const WorkerThreads& workers)
{
    Totals totals;
    for (const auto& worker : workers) {
        const Counters& counters = worker->counters();
        totals.ended += counters.connectionsEnded.load(std::memory_order_relaxed);
        totals.dropped += counters.connectionsDropped.load(std::memory_order_relaxed);
        totals.bytes += counters.bytesEchoed.load(std::memory_order_relaxed);
    }
    totals.connections = server.accepted();
    return totals;
}

int serve(Murn::Application& application, const Options& options)
{
    if (const int error = tryToMakeSocket(options.address))
        return failToListen(options, error);

    StopSignals stopSignals;  // before any thread starts
    WorkerThreads workers;
    // Declared after the threads, so that it is gone before they are: a stream that it hands out needs one.
    EchoServer server(options.address, [&workers, next = std::size_t{0}](auto stream) mutable {
        workers[next++ % workers.size()]->serve(std::move(stream));
    });
    if (const int error = server.listenOn(options.address, options.port))
        return failToListen(options, error);
    if (!startWorkers(workers, options.threads))
        return cannotServe;

    server.acceptOn();
    StatisticsTimer statistics([&] { return takeTotals(server, workers); }, [&] { server.acceptOn(); });
    std::printf("Listening on %s port %u with %u threads; SIGINT (Ctrl-C) or SIGTERM ends it.\n",
                options.address.toString().c_str(), server.localPort(), options.threads);
    if (!stopSignals.begin()) {
        std::fprintf(stderr, "echo_server: cannot start the thread that waits for signals\n");
        return cannotServe;
    }
    application.exec();

    for (const auto& worker : workers)  // all of them begin to close before the first one is waited for
        worker->finish();
    for (const auto& worker : workers)
        worker->join();
    const Totals totals = takeTotals(server, workers);
    std::printf("Served %" PRIu64 " connections, %" PRIu64 " bytes.\n", totals.connections, totals.bytes);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    if (const std::optional<int> status = readOptions(argc, argv, options))
        return *status;

    std::signal(SIGPIPE, SIG_IGN);                  // a write to a client that is gone fails instead
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // whoever reads a pipe gets each line at once
    raiseDescriptorLimit();
    const StreamWarnings streamWarnings;
    Murn::Application application(argc, argv);
    return serve(application, options);
}
