// Handlers, levels and plug-ins that come and go while other threads log.
#include <kxPAL/LogHandler.h>
#include <kxPAL/Logger.h>

#include "PluginFiles.h"
#include "Stress.h"
#include "ThreadGroup.h"

using Murn::Logger;
using Murn::Plugin;

namespace {

/// Threads that log in a domain, at all levels, for as long as the object lives.
class Loggers {
public:
    explicit Loggers(const char* domain) : _threads(3, [this, domain](int thread) { log(domain, thread); })
    {
        while (_messages < 10)
            std::this_thread::yield();
    }
    ~Loggers()
    {
        _finished = true;
        _threads.join();
    }

    Loggers(const Loggers&) = delete;
    Loggers& operator=(const Loggers&) = delete;

private:
    void log(const char* domain, int thread)
    {
        for (unsigned int number = 0; !_finished; ++number, ++_messages)
            Logger::Log(domain, 2U << number % 5, "thread %d, message %u", thread, number);
    }

    std::atomic<bool> _finished{false};
    std::atomic<unsigned int> _messages{0};
    ThreadGroup _threads;  // last, since the threads use what is above
};

/// Counts what comes when nothing may. The objects outlive the test's interest in them, which makes this no crash.
class Guest final : public Murn::LogHandler {
public:
    Guest() : LogHandler("Stress", 63) {}

    void HandleLog(const char*, Logger::LogLevel, const char*) override
    {
        ++calls;
        if (gone)
            ++lateCalls;
        std::this_thread::yield();
        if (gone)
            ++lateCalls;
    }

    std::atomic<bool> gone{false};
    std::atomic<int> calls{0};
    std::atomic<int> lateCalls{0};
};

/// Takes what no other handler does, and keeps it from the terminal.
class Rest final : public Murn::LogHandler {
public:
    Rest() : LogHandler("", 0) { Logger::InstallDefaultHandler(this); }

    void HandleLog(const char* domain, Logger::LogLevel level, const char* message) override
    {
        if (domain == nullptr || message[0] != '[' || level > least)
            ++unwanted;
    }

    std::atomic<int> least{Logger::LevelDebug};  // severe of what may come
    std::atomic<int> unwanted{0};
};

Rest rest;  // a default handler must live until the process ends

TEST(LoggerStress, noHandlerIsCalledOnceItIsUninstalled)
{
    const Loggers loggers("Stress");
    std::vector<std::unique_ptr<Guest>> guests;
    for (int round = 0; round < stressRounds(1000); ++round) {
        guests.push_back(std::make_unique<Guest>());
        Guest& guest = *guests.back();
        Logger::InstallHandler(&guest);
        while (round % 3 != 0 && guest.calls == 0)
            std::this_thread::yield();
        Logger::UninstallHandler(&guest);
        guest.gone = true;
    }

    int lateCalls = 0;
    for (const std::unique_ptr<Guest>& guest : guests)
        lateCalls += guest->lateCalls;
    EXPECT_EQ(lateCalls, 0);
}

TEST(LoggerStress, handlersMayBeDeletedAtOnceByAnyThread)
{
    const Loggers loggers("Stress");
    ThreadGroup owners(3, [](int) {
        for (int round = 0; round < stressRounds(1000); ++round) {
            const auto guest = std::make_unique<Guest>();
            Logger::InstallHandler(guest.get());
            while (round % 10 == 0 && guest->calls == 0) {
                Logger::Info("Stress", "one of one's own");
                std::this_thread::yield();
            }
            Logger::UninstallHandler(guest.get());
        }
    });
    owners.join();
    EXPECT_EQ(rest.unwanted, 0) << "GLib has no handler to remove";
}

TEST(LoggerStress, levelsMayChangeWhileOthersLog)
{
    Logger::SetMinimumLogLevel(Logger::LevelMessage);
    rest.least = Logger::LevelMessage;
    {
        const Loggers loggers("Unhandled");
        for (int round = 0; round < stressRounds(20000); ++round)
            Logger::SetMinimumLogLevel((round & 1) != 0 ? Logger::LevelMessage : Logger::LevelWarning);
    }
    rest.least = Logger::LevelDebug;
    Logger::SetMinimumLogLevel(Logger::LevelDebug);
    EXPECT_EQ(rest.unwanted, 0) << "no message is torn, and none is at a level that neither mask lets through";
}

TEST(LoggerStress, pluginsAreLoadedAndUnloadedWhileOthersLog)
{
    const Loggers loggers("good");  // the plug-in's own domain
    const std::string path = pluginPath("good");
    for (int round = 0; round < stressRounds(200); ++round) {
        Plugin* const plugin = Plugin::Load(path);
        ASSERT_NE(plugin, nullptr);
        Logger::Info("good", "%s", plugin->name());
        ASSERT_TRUE(Plugin::Unload(plugin));
    }
    EXPECT_FALSE(isOpen(path));
}

}  // namespace
