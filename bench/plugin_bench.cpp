// Plug-ins.
//
//   load and unload        Plugin::Load() and Unload()   against dlopen, dlsym, the entry function, delete and dlclose
//   the same, kept open    as above, of a shared object that somebody else keeps open, so that nothing is mapped
//
// Without the library's log, which takes three messages each time.
#include <dlfcn.h>
#include <kxPAL/Logger.h>
#include <kxPAL/Plugin.h>

#include "Ratio.h"

namespace {

constexpr const char* path = GREETER_PLUGIN;

void libraryLoads(benchmark::State& state)
{
    for (auto _ : state) {
        Murn::Plugin* const plugin = Murn::Plugin::Load(path);
        require(plugin != nullptr, "a plug-in was loaded");
        require(Murn::Plugin::Unload(plugin), "it was unloaded");
    }
}

void floorLoads(benchmark::State& state)
{
    using Entry = Murn::Plugin* (*)();
    for (auto _ : state) {
        void* const handle = ::dlopen(path, RTLD_LAZY);
        require(handle != nullptr, "a shared object was opened");
        const auto entry = reinterpret_cast<Entry>(::dlsym(handle, "__Ormet_PAL_PluginLoad"));
        require(entry != nullptr, "it has the entry function");
        delete entry();
        require(::dlclose(handle) == 0, "it was closed");
    }
}

/// Runs a benchmark while the shared object is kept open.
template <void (*function)(benchmark::State&)>
void keptOpen(benchmark::State& state)
{
    void* const handle = ::dlopen(path, RTLD_LAZY);
    require(handle != nullptr, "a shared object was opened");
    function(state);
    ::dlclose(handle);
}

}  // namespace

int main(int argc, char** argv)
{
    Murn::Logger::__logLevelMask = 0;
    RatioTable table;
    table.compare("Plugin: load and unload", libraryLoads, floorLoads);
    table.compare("Plugin: load and unload, kept open", keptOpen<libraryLoads>, keptOpen<floorLoads>);
    return table.run(argc, argv);
}
