// Activity: plug-ins are loaded, used and unloaded.
#include "Plugins.h"

#include <dlfcn.h>
#include <kxPAL/Application.h>
#include <kxPAL/Plugin.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <vector>

#include "PluginCounts.h"

namespace {

std::array<std::atomic<std::uint64_t>, soakPluginGone + 1> moments;

// What is still open of a shared object would be found by opening it without loading it.
bool isClosed(const std::string& path)
{
    void* const handle = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr)
        ::dlclose(handle);
    return handle == nullptr;
}

// Loads a plug-in as often as dice say, so that the instances share the object, and lets all of them work.
void loadAndUse(Round& round, const std::string& path, Dice& dice)
{
    Ledger& ledger = round.ledger();
    std::vector<Murn::Plugin*> plugins;
    for (unsigned int count = dice.between(1, 3); count > 0; --count)
        plugins.push_back(Murn::Plugin::Load(path));
    const std::uint64_t ticked = moments[soakPluginTicked];
    for (Murn::Plugin* const plugin : plugins)
        ledger.check(plugin != nullptr && plugin->name() == std::string("worker") && plugin->start(),
                     "a plug-in is loaded and starts");
    for (unsigned int turns = 0; turns < dice.between(1, 3) || moments[soakPluginTicked] == ticked; ++turns)
        Murn::Application::ProcessEvents(true);
    for (Murn::Plugin* const plugin : plugins) {
        plugin->stop();
        plugin->ref();
        ledger.check(!plugin->canUnload() && !Murn::Plugin::Unload(plugin), "a plug-in that is in use stays");
        plugin->deref();
        ledger.check(plugin->canUnload() && Murn::Plugin::Unload(plugin), "a plug-in is unloaded");
    }
    ledger.check(isClosed(path), "the shared object of plug-ins that are gone is closed");
    ledger.add(Figure::pluginLoads, plugins.size());
}

}  // namespace

extern "C" void soak_plugin_tells(SoakPluginMoment moment)
{
    ++moments[moment];
}

void Plugins::live(Round& round, Dice& dice)
{
    Ledger& ledger = round.ledger();
    Murn::Application::RegisterExternalThread();  // which plug-ins and their timers belong to
    const std::uint64_t before = ledger.total(Figure::pluginLoads);
    const std::uint64_t madeBefore = moments[soakPluginMade];
    for (; !round.isOver(); round.rest()) {
        loadAndUse(round, _folder + "/soak_worker.so", dice);
        for (const char* const bad : {"/soak_refuser.so", "/soak_stranger.so", "/soak_nothing.so"}) {
            ledger.check(Murn::Plugin::Load(_folder + bad) == nullptr, "what is no plug-in is not loaded");
            ledger.check(isClosed(_folder + bad), "what is no plug-in does not stay open");
        }
    }
    Murn::Application::UnregisterExternalThread();

    ledger.same("plug-ins made", ledger.total(Figure::pluginLoads) - before, moments[soakPluginMade] - madeBefore);
    for (const SoakPluginMoment moment : {soakPluginStarted, soakPluginStopped, soakPluginGone})
        ledger.same("plug-ins started, stopped and gone", moments[soakPluginMade], moments[moment]);
}
