// The shared objects that the tests of plug-ins load, and what the system knows of them.
#ifndef KXPAL_TESTS_UTILS_PLUGIN_FILES_H
#define KXPAL_TESTS_UTILS_PLUGIN_FILES_H

#include <dlfcn.h>
#include <kxPAL/Plugin.h>

#include <string>

#include "Runtime.h"

/// The path of a shared object of tests/plugins.
inline std::string pluginPath(const std::string& name)
{
    return std::string(KXPAL_TEST_PLUGINS) + "/" + name + ".so";
}

/// The handle of a shared object that somebody has open; null when nobody has.
inline void* handleOf(const std::string& path)
{
    void* const handle = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr)
        ::dlclose(handle);
    return handle;
}

inline bool isOpen(const std::string& path)
{
    return handleOf(path) != nullptr;
}

/// What the system says when it is asked to open something that it cannot open.
inline std::string openingError(const std::string& path)
{
    return ::dlopen(path.c_str(), RTLD_LAZY) == nullptr ? ::dlerror() : "it was opened";
}

/// Keeps a shared object open that somebody else closes, so that a test may do what runs into closed code otherwise.
class KeptOpen {
public:
    explicit KeptOpen(const std::string& path) : _handle(::dlopen(path.c_str(), RTLD_LAZY)) {}
    ~KeptOpen() { ::dlclose(_handle); }

    KeptOpen(const KeptOpen&) = delete;
    KeptOpen& operator=(const KeptOpen&) = delete;

private:
    void* _handle;
};

// Matchers of the messages, where each of them is logged.

inline auto isWarning(const std::string& text)
{
    return IsLogged("PAL", warningLevel, text);
}

inline auto isMessage(const std::string& text)
{
    return IsLogged("PAL", messageLevel, text);
}

inline auto isOpened(const std::string& path)
{
    return isMessage("Shared library \"" + path + "\" opened successfully.");
}

inline auto isUnloading(const std::string& path)
{
    return isMessage("Unloading plugin \"" + path + "\"");
}

inline auto isClosed()
{
    return isMessage("Shared library closed successfully.");
}

/// The good plug-in's own word at its end.
inline auto isDestroyed()
{
    return IsLogged("good", messageLevel, std::string("destroyed"));
}

#endif
