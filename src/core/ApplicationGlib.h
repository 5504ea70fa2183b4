// The record behind Application. Private.
#ifndef MURN_APPLICATION_GLIB_H
#define MURN_APPLICATION_GLIB_H

#include <glib.h>

#include <list>
#include <string>
#include <vector>

#include "Mutex.h"

namespace Murn {

class Thread;

/// What the application keeps. The two mutexes are never held together.
class ApplicationGlib {
public:
    ApplicationGlib() : _threads(nullptr), _mainThread(nullptr) {}

    ApplicationGlib(const ApplicationGlib&) = delete;
    ApplicationGlib& operator=(const ApplicationGlib&) = delete;

    Mutex _registryMutex;  // guards _threads, the changes of the application's instance, and _arguments
    GHashTable* _threads;  // owned; from the GThread* of a system thread to its Thread*, neither of which it owns
    std::vector<std::string> _arguments;
    Thread* _mainThread;  // owned
    Mutex _garbageMutex;
    std::list<Thread*> _garbage;  // owned, in the order of the hand-overs, guarded by _garbageMutex
};

}  // namespace Murn

#endif
