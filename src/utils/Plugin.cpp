// Plug-ins in shared objects: the portable part.
#include "Plugin.h"

#include "Check.h"
#include "Logger.h"
#include "core/PossiblyNull.h"

namespace Murn {

namespace {

constexpr const char* entryName = "__Ormet_PAL_PluginLoad";

using Entry = Plugin* (*)();

}  // namespace

Plugin::Plugin() : _handle(nullptr) {}

Plugin::~Plugin()
{
    if (_handle != nullptr) {
        Logger::Warning("PAL", "Performing late plugin cleanup !");
        PlatformUnload(_handle);
        _handle = nullptr;
    }
    Logger::Message("PAL", "Unloading plugin \"%s\"", _file.c_str());
}

// Without an object nothing happens, also for those who call this operation by its name, past the virtual table.
__attribute__((no_sanitize("undefined"))) void Plugin::destroy()
{
    delete possiblyNull(this);  // never later, by way of the loop: the code of this object is about to be closed
}

bool Plugin::canUnload()
{
    return refsCount() == 1;
}

const std::string& Plugin::pluginFile() const
{
    return _file;
}

Plugin* Plugin::Load(const std::string& path)
{
    void* const handle = PlatformLoad(path);
    if (handle == nullptr)
        return nullptr;

    const auto entry = reinterpret_cast<Entry>(FindSymbol(handle, entryName));
    if (entry == nullptr) {
        Logger::Warning("PAL", "The shared object %s is not a valid PAL plugin !", path.c_str());
        PlatformUnload(handle);
        return nullptr;
    }
    Plugin* const plugin = entry();
    if (plugin == nullptr) {
        Logger::Warning("PAL", "The plugin \"%s\" is broken !", path.c_str());
        PlatformUnload(handle);
        return nullptr;
    }

    plugin->ref();
    plugin->_handle = handle;
    plugin->_file = path;
    return plugin;
}

bool Plugin::Unload(Plugin* plugin)
{
    MURN_CHECK(plugin);
    void* const handle = plugin->_handle;
    MURN_CHECK(handle);
    // The count itself and not canUnload(), on purpose: no override may make the loader close a plug-in in use.
    if (plugin->refsCount() != 1) {
        Logger::Warning("PAL", "The plugin \"%s\" can not be unloaded because it is still referenced !",
                        plugin->pluginFile().c_str());
        return false;
    }
    plugin->_handle = nullptr;  // or the destructor would close the code that it runs in
    plugin->deref();
    return PlatformUnload(handle);
}

}  // namespace Murn
