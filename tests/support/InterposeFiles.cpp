// Defines the replaceable functions for files and directories.
#include "InterposeFiles.h"

KXPAL_INTERPOSE_FILES(KXPAL_INTERPOSE_DEFINE)
