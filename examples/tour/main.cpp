// A tour of the library: one program that shows and checks what a host does with it, step by step.
#include <kxPAL/Application.h>
#include <kxPAL/LogHandler.h>
#include <kxPAL/Logger.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <vector>

#include "Steps.h"
#include "Summary.h"

namespace {

const Step* const steps[] = {
    &loggingStep,   &eventsStep, &cInterfaceStep, &timersStep, &poolStep,    &addressesStep, &interfacesStep,
    &multicastStep, &serverStep, &valuesStep,     &filesStep,  &pluginsStep, &leavingStep,
};

/// Takes what no other handler takes: complaints of the library and of GLib, of which a good host causes none.
class Complaints final : public Murn::LogHandler {
public:
    Complaints() : LogHandler("", 63) {}

    void HandleLog(const char* domain, Murn::Logger::LogLevel, const char* message) override
    {
        say("  %s complains: %s", domain != nullptr ? domain : "somebody", message);
        ++count;
    }

    std::atomic<long> count{0};
};

Complaints complaints;  // a default handler must live until the process ends

std::vector<Findings> walkAll(int argc, char** argv)
{
    Murn::Application application(argc, argv);
    std::vector<Findings> found;
    for (const Step* const step : steps) {
        std::printf("\n%zu. %s\n", found.size() + 1, step->title);
        found.push_back(step->walk(application));
    }
    return found;
}

}  // namespace

int main(int argc, char** argv)
{
    const auto begin = std::chrono::steady_clock::now();
    std::signal(SIGPIPE, SIG_IGN);                  // a write to a peer that is gone fails instead
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // in step with what threads say
    Murn::Logger::InstallDefaultHandler(&complaints);

    std::printf("A tour of kxPAL, in %zu steps.\n", std::size(steps));
    std::vector<Findings> found = walkAll(argc, argv);
    found.back().check(Murn::Application::CurrentThread() == nullptr, "the application is gone, and its threads too");
    found.back().check(complaints.count == 0, "nobody had anything to complain about");

    std::printf("\n");
    return summarise(found, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
}
