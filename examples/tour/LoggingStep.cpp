// Step: log messages reach a handler of the host's own.
#include <kxPAL/LogHandler.h>
#include <kxPAL/Logger.h>

#include <string>
#include <vector>

#include "Steps.h"

namespace {

using Murn::Logger;

constexpr char domain[] = "tour";

const char* nameOf(Logger::LogLevel level)
{
    switch (level) {
        case Logger::LevelError:
            return "error";
        case Logger::LevelCritical:
            return "critical";
        case Logger::LevelWarning:
            return "warning";
        case Logger::LevelMessage:
            return "message";
        case Logger::LevelInfo:
            return "info";
        case Logger::LevelDebug:
            return "debug";
    }
    return "unknown";
}

/// Shows and keeps the messages of the tour's own domain.
class TourLog final : public Murn::LogHandler {
public:
    TourLog() : LogHandler(domain, 63) {}

    void HandleLog(const char* from, Logger::LogLevel level, const char* message) override
    {
        say("  %s, %s: %s", from, nameOf(level), message);
        messages.emplace_back(message);
    }

    std::vector<std::string> messages;
};

bool endsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

Findings walk(Murn::Application&)
{
    Findings findings;
    TourLog log;

    say("A handler of ours takes whatever is logged in the domain \"%s\".", domain);
    Logger::InstallHandler(&log);
    Logger::Message(domain, "The tour begins with %d words.", 6);
    Logger::Warning(domain, "Mind the step.");
    findings.check(log.messages.size() == 2, "the handler got both messages");
    findings.check(!log.messages.empty() && log.messages[0].front() == '[' &&
                       endsWith(log.messages[0], "]The tour begins with 6 words."),
                   "each begins with a stamp of date, time and milliseconds");

    say("The mask of levels lets through what is severe enough: warnings, from now on.");
    const unsigned int oldMask = Logger::__logLevelMask;
    Logger::SetMinimumLogLevel(Logger::LevelWarning);
    Logger::Info(domain, "Nobody reads this.");
    Logger::Critical(domain, "Only what matters is said now.");
    Logger::__logLevelMask = oldMask;
    findings.check(log.messages.size() == 3 && endsWith(log.messages[2], "Only what matters is said now."),
                   "the information was suppressed, the critical message was not");

    Logger::UninstallHandler(&log);
    findings.figure(static_cast<long>(log.messages.size()), "log messages");
    return findings;
}

}  // namespace

const Step loggingStep = {"Logging through a handler of your own", walk};
