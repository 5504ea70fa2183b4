// A host outside the project: loads the plug-in whose path it is given, runs it, and lets go of it.
#include <kxPAL/Logger.h>
#include <kxPAL/Plugin.h>

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    Murn::Logger::SetMinimumLogLevel(Murn::Logger::LevelWarning);
    Murn::Plugin* const plugin = Murn::Plugin::Load(argv[1]);
    if (plugin == nullptr)
        return 1;
    std::printf("Loaded: %s\n", plugin->name());
    const bool started = plugin->start();
    plugin->stop();
    return Murn::Plugin::Unload(plugin) && started ? 0 : 1;
}
