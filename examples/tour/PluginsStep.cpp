// Step: a plug-in is loaded, refuses to go while it is in use, and is unloaded.
#include <kxPAL/Application.h>
#include <kxPAL/Dir.h>
#include <kxPAL/File.h>
#include <kxPAL/LogHandler.h>
#include <kxPAL/Logger.h>
#include <kxPAL/Plugin.h>

#include <string>
#include <vector>

#include "Steps.h"

namespace {

/// Keeps what the loader logs, without date and time.
class LoaderLog final : public Murn::LogHandler {
public:
    LoaderLog() : LogHandler("PAL", 63) { Murn::Logger::InstallHandler(this); }
    ~LoaderLog() { Murn::Logger::UninstallHandler(this); }

    LoaderLog(const LoaderLog&) = delete;
    LoaderLog& operator=(const LoaderLog&) = delete;

    void HandleLog(const char*, Murn::Logger::LogLevel, const char* message) override
    {
        const std::string stamped = message;
        texts.push_back(stamped.substr(stamped.find(']') + 1));
    }

    std::vector<std::string> texts;
};

/// The path of a plug-in in the folder beside the program.
std::string besideTheProgram(const std::string& name)
{
    const Murn::Dir plugins("plugins");  // relative, so from the directory of the program
    return Murn::File::safeConcatenate(plugins.path(), name);
}

void useAndUnload(Murn::Plugin* plugin, Findings& findings)
{
    say("It calls itself \"%s\", and says:", plugin->name());
    findings.check(plugin->start(), "its code runs in this process");
    plugin->stop();

    plugin->ref();
    findings.check(!plugin->canUnload() && !Murn::Plugin::Unload(plugin), "it stays while somebody refers to it");
    plugin->deref();
    findings.check(Murn::Plugin::Unload(plugin), "after that it can be unloaded");
}

Findings walk(Murn::Application&)
{
    Findings findings;
    LoaderLog log;
    const std::string path = besideTheProgram("greeter.so");

    say("A plug-in is loaded from a file beside the program.");
    Murn::Plugin* const plugin = Murn::Plugin::Load(path);
    findings.check(plugin != nullptr, "there is one");
    if (plugin != nullptr)
        useAndUnload(plugin, findings);
    const std::vector<std::string>& texts = log.texts;
    findings.check(texts.size() == 4 && texts[2] == "Unloading plugin \"" + path + "\"" &&
                       texts[3] == "Shared library closed successfully.",
                   "the plug-in goes first, and its code after it");

    findings.check(Murn::Plugin::Load(besideTheProgram("missing.so")) == nullptr, "a missing file is no plug-in");
    return findings;
}

}  // namespace

const Step pluginsStep = {"Loading and unloading a plug-in", walk};
