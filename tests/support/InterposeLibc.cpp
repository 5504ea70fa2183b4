// Defines the replaceable functions for backtraces, clocks and memory.
#include "InterposeLibc.h"

KXPAL_INTERPOSE_LIBC(KXPAL_INTERPOSE_DEFINE)
