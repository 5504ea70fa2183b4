// The plug-ins that a host has loaded.
#include "PluginSet.h"

#include <kxPAL/Dir.h>
#include <kxPAL/File.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace {

bool isSharedObject(const std::string& name)
{
    static const std::string extension = ".so";
    return name.size() > extension.size() &&
           name.compare(name.size() - extension.size(), extension.size(), extension) == 0;
}

std::vector<std::string> sharedObjectsIn(const Murn::Dir& folder)
{
    std::vector<std::string> names;
    for (const Murn::EntryInfo& entry : folder.entries()) {
        if (entry.type == Murn::EntryInfo::FileEntry && isSharedObject(entry.name))
            names.push_back(entry.name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

bool PluginSet::load(const std::string& folder)
{
    const Murn::Dir dir(folder);
    if (!dir.exists())
        return false;
    for (const std::string& name : sharedObjectsIn(dir))
        loadFile(Murn::File::safeConcatenate(dir.path(), name));
    return true;
}

void PluginSet::loadFile(const std::string& path)
{
    Murn::Plugin* const plugin = Murn::Plugin::Load(path);
    if (plugin == nullptr) {
        std::fprintf(stderr, "skipped %s: %s\n", path.c_str(), _lastWarning.text().c_str());
        ++_problems;
        return;
    }
    std::printf("loaded %s from %s\n", plugin->name(), plugin->pluginFile().c_str());
    _plugins.push_back(plugin);
}

void PluginSet::start()
{
    std::vector<Murn::Plugin*> started;
    for (Murn::Plugin* const plugin : _plugins) {
        if (plugin->start()) {
            started.push_back(plugin);
            continue;
        }
        std::fprintf(stderr, "%s does not start\n", plugin->name());
        ++_problems;
        unloadOne(plugin);
    }
    _plugins = std::move(started);
}

void PluginSet::unload()
{
    std::reverse(_plugins.begin(), _plugins.end());
    for (Murn::Plugin* const plugin : _plugins)
        plugin->stop();
    for (Murn::Plugin* const plugin : _plugins)
        unloadOne(plugin);
    _plugins.clear();
}

void PluginSet::unloadOne(Murn::Plugin* plugin)
{
    const std::string name = plugin->name();  // a copy: the text goes with the plug-in
    if (Murn::Plugin::Unload(plugin)) {
        std::printf("unloaded %s\n", name.c_str());
    } else {
        std::fprintf(stderr, "%s is not unloaded: %s\n", name.c_str(), _lastWarning.text().c_str());
        ++_problems;
    }
}
