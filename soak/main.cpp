// A host that lives as hosts do for as long as it is told, accounts for everything, and must not grow.
#include <kxPAL/Application.h>
#include <kxPAL/Murn_c.h>
#include <kxPAL/NetworkInterface.h>
#include <kxPAL/Timer.h>
#include <sys/resource.h>

#include <algorithm>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <optional>
#include <thread>
#include <utility>

#include "Conductor.h"
#include "Connections.h"
#include "Events.h"
#include "ExpectedLog.h"
#include "Files.h"
#include "Folder.h"
#include "Folders.h"
#include "ForeignThreads.h"
#include "Locks.h"
#include "Logs.h"
#include "Multicast.h"
#include "Options.h"
#include "OwnNetwork.h"
#include "Plugins.h"
#include "Pools.h"
#include "Sockets.h"
#include "Threads.h"
#include "Timers.h"

namespace {

constexpr int doesNotAddUp = 1;
constexpr int cannotRun = 2;

/// Starts the conductor from within the main loop, which is there to be ended then, and has the loop something to do.
class Heart : public Murn::Timer {
public:
    Heart(Conductor& conductor, Ledger& ledger) : _conductor(conductor), _ledger(ledger)
    {
        constexpr unsigned int beatMs = 50;
        start(beatMs, nullptr);
    }
    ~Heart() override { _thread.join(); }

    void timeout() override
    {
        _ledger.add(Figure::timerFires);
        if (_thread.joinable())
            return;
        _thread = std::thread([this] {
            _conductor.run();
            Murn::Application::Quit();
        });
    }

private:
    Conductor& _conductor;
    Ledger& _ledger;
    std::thread _thread;
};

// The clients of the crowd have their descriptors above 2048.
bool raiseDescriptorLimit()
{
    constexpr rlim_t wanted = 4096;
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_max < wanted)
        return false;
    limit.rlim_cur = wanted;
    return ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

// Adds the activity unless others alone were asked for.
template <typename Kind, typename... Arguments>
void add(Conductor::Activities& activities, const Options& options, Arguments&&... arguments)
{
    auto activity = std::make_unique<Kind>(std::forward<Arguments>(arguments)...);
    if (options.only.empty() || std::count(options.only.begin(), options.only.end(), activity->name()) > 0)
        activities.push_back(std::move(activity));
}

Conductor::Activities makeActivities(const Options& options, const Folder& folder, bool hasOwnNetwork)
{
    Conductor::Activities activities;
    add<Connections>(activities, options, options.connections);
    add<Events>(activities, options);
    add<Threads>(activities, options);
    add<ForeignThreads>(activities, options);
    add<Pools>(activities, options);
    add<Timers>(activities, options);
    add<Plugins>(activities, options, options.plugins);
    add<Files>(activities, options, folder);
    add<Folders>(activities, options, folder);
    add<Locks>(activities, options);
    add<Logs>(activities, options);
    add<Sockets>(activities, options);
    if (hasOwnNetwork)
        add<Multicast>(activities, options);
    return activities;
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    if (const std::optional<int> status = readOptions(argc, argv, options))
        return *status;

    std::signal(SIGPIPE, SIG_IGN);  // clients go while they are written to
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    if (!raiseDescriptorLimit()) {
        std::fprintf(stderr, "soak: this system does not allow 4096 open descriptors\n");
        return cannotRun;
    }
    const std::string obstacle = enterOwnNetwork();  // before there are threads
    if (!obstacle.empty())
        std::printf("Without multicast: %s.\n", obstacle.c_str());
    std::printf("%g minutes with seed %" PRIu64 "\n", options.minutes, options.seed);

    const Folder folder;
    Ledger ledger(options.seed);
    ExpectedLog log(ledger);
    const Murn::NetworkInterface asksTheSystem;  // once, before other threads look at the lists
    Murn_C_application_init(argc, argv);
    Conductor conductor(options, makeActivities(options, folder, obstacle.empty()), ledger);
    {
        const Heart heart(conductor, ledger);
        Murn_Application_Exec();
    }
    Murn_C_application_shutdown();
    ledger.same("threads that the application's end did not collect", 0,
                static_cast<std::uint64_t>(Threads::Uncollected()));
    conductor.close();
    if (ledger.complaints() == 0) {
        std::printf("\nEverything adds up.\n");
        return 0;
    }
    std::printf("\n%" PRIu64 " MISMATCHES with seed %" PRIu64 "\n", ledger.complaints(), options.seed);
    return doesNotAddUp;
}
