// Plug-ins in shared objects: what they derive from, and how a host loads them.
#ifndef MURN_PLUGIN_H
#define MURN_PLUGIN_H

#include <string>

#include "Export.h"
#include "Object.h"

namespace Murn {

/// A plug-in: an object that lives in a shared object of its own, which is found at run time.
///
/// An author derives a class from this one, implements name(), start() and stop(), and writes MURN_PLUGIN(Class) of
/// PluginEntry.h once; the CMake function murn_add_plugin() makes the shared object. A host calls Load(), uses the
/// object, and hands it back to Unload(). The library keeps no list of what is loaded, and calls none of the three
/// itself: what they mean is agreed between the host and its plug-ins.
///
/// **Let go of a plug-in with Unload(), never with deref() of the last reference, destroy() or delete.** The object's
/// code lies in its shared object. Unload() closes that once the object is gone; any other way the object's destructor
/// has to close it, with a warning, and then returns into code that is not there any more, unless somebody else keeps
/// the shared object open. For the same reason no event, timer, thread or function of a plug-in may outlast it.
///
/// Being an Object, a plug-in belongs to the thread that loads it and goes before the loop of this thread ends, and its
/// references are counted: Load() takes one, the host's own parts may take more, and Unload() refuses until they are
/// released.
class MURN_API Plugin : public Object {
public:
    /// A plug-in that is not loaded: without file and handle.
    Plugin();
    /// Logs "Unloading plugin" with the file. A plug-in that was not let go of with Unload() closes its shared object
    /// here; see above.
    ~Plugin() override;

    /// Deletes the plug-in at once, on the thread of the caller and without an event, unlike other objects: the shared
    /// object is to be closed right after it. For Unload() and deref(). A null `this` does nothing.
    void destroy() override;
    /// Any thread. For the host to ask; Unload() does not, so an override changes nothing for it.
    /// @return whether only the reference of Load() is left
    virtual bool canUnload();

    /// @return what the plug-in calls itself; it stays the plug-in's
    virtual const char* name() const = 0;
    /// Begins whatever the plug-in is for.
    /// @return whether it could
    virtual bool start() = 0;
    /// Ends it, so that nothing of the plug-in is in use any more and it can be unloaded.
    virtual void stop() = 0;

    /// @return the path that Load() was given; empty before
    const std::string& pluginFile() const;

    /// Any thread that is to own the plug-in. Opens a shared object (PlatformLoad()), calls its entry function, the
    /// undecorated "__Ormet_PAL_PluginLoad", and takes a reference on the object that this returns. Nothing else is
    /// looked at: a shared object that was built against other headers may do anything.
    /// @param path  as `dlopen` takes it: one without "/" is searched for in the system's folders. An empty one ends
    ///              the process through a fatal check.
    /// @return the plug-in, to be handed to Unload(); null with a warning in the log when the shared object cannot be
    ///         opened, has no entry function, or this returns null
    static Plugin* Load(const std::string& path);
    /// The owning thread only. Releases the reference of Load(), which deletes the plug-in, and then closes its shared
    /// object. Ends the process through a fatal check for null and for a plug-in that Load() did not return.
    /// @param plugin  only its loader's: with further references nothing changes. Nobody may take one meanwhile.
    /// @return whether it is gone and closed; false with a warning when it is still referenced, or when the system does
    ///         not close the shared object, although the plug-in is gone then
    static bool Unload(Plugin* plugin);

    /// Any thread. Opens a shared object (`dlopen`): symbols are bound when they are first used, and stay its own.
    /// @param path  not empty, or a fatal check ends the process
    /// @return its handle, to be given to PlatformUnload(); null with a warning
    static void* PlatformLoad(const std::string& path);
    /// Any thread. Closes a shared object (`dlclose`).
    /// @param handle  not null, or a fatal check ends the process
    /// @return false with a warning when the system refuses
    static bool PlatformUnload(void* handle);
    /// Any thread. Looks up a symbol by its undecorated name (`dlsym`).
    /// @param handle  not null, or a fatal check ends the process
    /// @return its address; null when there is none
    static void* FindSymbol(void* handle, const std::string& name);

private:
    std::string _file;
    void* _handle;  // owned; null when not loaded, and during Unload()
};

}  // namespace Murn

#endif
