// Loads all plug-ins of a folder, runs them for a moment on its event loop, and unloads them.
#include <kxPAL/Application.h>
#include <kxPAL/Timer.h>

#include <cstdio>

#include "Options.h"
#include "PluginSet.h"

namespace {

constexpr unsigned int momentMs = 200;

/// Ends the run: first the plug-ins, then the loop that they belong to.
class End final : public Murn::Timer {
public:
    explicit End(PluginSet& plugins) : _plugins(plugins) {}

    void timeout() override
    {
        stop();
        _plugins.unload();
        Murn::Application::Quit();
    }

private:
    PluginSet& _plugins;
};

int run(Murn::Application& application, const std::string& folder)
{
    PluginSet plugins;
    if (!plugins.load(folder)) {
        std::fprintf(stderr, "plugin_host: there is no folder %s\n", folder.c_str());
        return 2;
    }
    if (plugins.isEmpty())
        std::printf("no plug-ins in %s\n", folder.c_str());
    plugins.start();
    if (!plugins.isEmpty()) {
        End end(plugins);
        end.start(momentMs, nullptr);
        application.exec();
    }
    return plugins.problems() == 0 ? 0 : 1;
}

}  // namespace

/// Ends with 0 when all went well, 1 when a plug-in was at fault, and 2 when there was nothing to look at.
int main(int argc, char** argv)
{
    Options options;
    if (const std::optional<int> status = readOptions(argc, argv, options))
        return *status;

    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // in step with standard error
    Murn::Application application(argc, argv);
    // The library takes a relative path from the directory of the program.
    return run(application, options.folder.empty() ? "plugins" : options.folder);
}
