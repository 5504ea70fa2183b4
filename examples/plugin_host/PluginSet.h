// The plug-ins that a host has loaded.
#ifndef PLUGIN_HOST_PLUGIN_SET_H
#define PLUGIN_HOST_PLUGIN_SET_H

#include <kxPAL/Plugin.h>

#include <string>
#include <vector>

#include "LastWarning.h"

/// Plug-ins in the order in which they were loaded. One thread, whose loop has not ended before they are unloaded.
/// What happens is printed; what goes wrong goes to standard error, and is counted.
class PluginSet {
public:
    PluginSet() = default;
    ~PluginSet() { unload(); }

    PluginSet(const PluginSet&) = delete;
    PluginSet& operator=(const PluginSet&) = delete;

    /// Loads each file of a folder whose name ends in ".so", in the order of the names. A broken one is skipped.
    /// @param folder  an absolute path, or one below the directory of the program
    /// @return false when there is no such folder
    bool load(const std::string& folder);
    /// Starts them in the order in which they were loaded. One that does not start is unloaded.
    void start();
    /// Stops all of them, and then unloads them, both in the opposite order: the last one first.
    void unload();

    bool isEmpty() const { return _plugins.empty(); }
    unsigned int problems() const { return _problems; }

private:
    void loadFile(const std::string& path);
    void unloadOne(Murn::Plugin* plugin);

    LastWarning _lastWarning;
    std::vector<Murn::Plugin*> _plugins;
    unsigned int _problems = 0;
};

#endif
