// A host that writes the mask of log levels, by its name in the header and as the 32-bit word under its symbol's name.
// The library hears it, and the host sees what the library writes.
#include <kxPAL/LogHandler.h>
#include <kxPAL/Logger.h>
#include <kxPAL/Timer.h>

#include <dlfcn.h>

#include <cstdio>

using Murn::Logger;

namespace {

class Counter : public Murn::LogHandler {
public:
    Counter() : LogHandler("PAL", 63), count(0) {}

    void HandleLog(const char* /*domain*/, Logger::LogLevel /*level*/, const char* /*message*/) override { ++count; }

    int count;
};

}  // namespace

int main()
{
    auto* const word = static_cast<volatile unsigned int*>(::dlsym(RTLD_DEFAULT, "_ZN4Murn6Logger14__logLevelMaskE"));
    if (word == nullptr)
        return 1;
    Counter counter;
    Logger::InstallHandler(&counter);
    Murn::Timer timer;
    std::printf("at first %u\n", *word);

    timer.timeout();
    std::printf("heard %d\n", counter.count);

    Logger::__logLevelMask = 63U & ~static_cast<unsigned int>(Logger::LevelMessage);
    timer.timeout();
    std::printf("heard %d\n", counter.count);

    *word = Logger::LevelMessage;
    timer.timeout();
    std::printf("heard %d\n", counter.count);

    Logger::SetMinimumLogLevel(Logger::LevelWarning);
    std::printf("at last %u, %u\n", Logger::__logLevelMask.load(), *word);
    Logger::UninstallHandler(&counter);
    return 0;
}
