// A plug-in that cannot be made.
#include <kxPAL/PluginEntry.h>

extern "C" MURN_API Murn::Plugin* __Ormet_PAL_PluginLoad();
extern "C" MURN_API Murn::Plugin* __Ormet_PAL_PluginLoad()
{
    return nullptr;
}
