// Defines the replaceable functions for files and directories.
#include "InterposeFiles.h"

#include <cstdlib>

KXPAL_INTERPOSE_FILES(KXPAL_INTERPOSE_DEFINE)

// What fread() becomes in a fortified library that knows how much room there is.
extern "C" __attribute__((visibility("default"))) size_t __fread_chk(void* data, size_t room, size_t size, size_t count,
                                                                     FILE* stream);
size_t __fread_chk(void* data, size_t room, size_t size, size_t count, FILE* stream)
{
    if (size * count > room)
        std::abort();
    return interpose::fread.call(data, size, count, stream);
}
