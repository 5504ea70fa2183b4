// The hook for platforms whose threads need sources of their own.
#include "ThreadImpl.h"

// A port has its own version of this file. Nothing of this one's needs a source.
void Thread_attachPlatformSources(GMainContext* /*context*/) {}
