// Plug-ins in shared objects: the platform's loader.
#include <dlfcn.h>

#include <string>

#include "Check.h"
#include "Logger.h"
#include "Plugin.h"

namespace Murn {

namespace {

// The loader would end a text with such a byte there: a path may become another one, and no path at all the program.
bool hasZeroByte(const std::string& text)
{
    return text.find('\0') != std::string::npos;
}

// What the loader says of the last failure, in a copy: a message that is under way may load something itself, such as a
// character set, and the loader frees its own text then. Others' loaders may have nothing to say.
std::string loaderError()
{
    const char* const text = ::dlerror();
    return text != nullptr ? text : "(null)";
}

}  // namespace

void* Plugin::PlatformLoad(const std::string& path)
{
    MURN_CHECK(!path.empty());
    const bool isPath = !hasZeroByte(path);
    void* const handle = isPath ? ::dlopen(path.c_str(), RTLD_LAZY) : nullptr;
    if (handle == nullptr)
        Logger::Warning("PAL", "Shared library \"%s\" failed to open with error: %s!", path.c_str(),
                        isPath ? loaderError().c_str() : "zero byte in the path");
    else
        Logger::Message("PAL", "Shared library \"%s\" opened successfully.", path.c_str());
    return handle;
}

bool Plugin::PlatformUnload(void* handle)
{
    MURN_CHECK(handle);
    const bool closed = ::dlclose(handle) == 0;
    if (closed)
        Logger::Message("PAL", "Shared library closed successfully.");
    else
        Logger::Warning("PAL", "Shared library failed to close with error: %s!", loaderError().c_str());
    return closed;
}

void* Plugin::FindSymbol(void* handle, const std::string& name)
{
    MURN_CHECK(handle);
    return hasZeroByte(name) ? nullptr : ::dlsym(handle, name.c_str());
}

}  // namespace Murn
