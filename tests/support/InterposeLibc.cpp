// Defines the replaceable functions for backtraces, clocks, memory and the dynamic loader.
#include "InterposeLibc.h"

KXPAL_INTERPOSE_LIBC(KXPAL_INTERPOSE_DEFINE)
