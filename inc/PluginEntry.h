// The entry function of a plug-in. For sources of plug-ins; hosts have no use for it.
#ifndef MURN_PLUGIN_ENTRY_H
#define MURN_PLUGIN_ENTRY_H

#include "Export.h"
#include "Plugin.h"

/// Defines the function by which Murn::Plugin::Load() gets the plug-in out of its shared object. Write it once in a
/// plug-in, outside of all namespaces:
///
///     MURN_PLUGIN(acme::Greeter)
///
/// The class derives from Murn::Plugin and can be made without arguments. Its constructor must not throw. For another
/// way to make the object, define the function yourself; it returns an object made with `new`, or null on failure.
#define MURN_PLUGIN(Class)                                        \
    extern "C" MURN_API ::Murn::Plugin* __Ormet_PAL_PluginLoad(); \
    extern "C" MURN_API ::Murn::Plugin* __Ormet_PAL_PluginLoad()  \
    {                                                             \
        return new Class();                                       \
    }

#endif
