// A plug-in that fails to come into being.
#include <kxPAL/PluginEntry.h>

extern "C" MURN_API Murn::Plugin* __Ormet_PAL_PluginLoad();
extern "C" MURN_API Murn::Plugin* __Ormet_PAL_PluginLoad()
{
    return nullptr;
}
