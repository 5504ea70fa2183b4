// Defines the replaceable functions of GLib.
#include "InterposeGlib.h"

KXPAL_INTERPOSE_GLIB(KXPAL_INTERPOSE_DEFINE)
