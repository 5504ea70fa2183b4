// A shared object with a function, but not with the one that makes it a plug-in.
#include <kxPAL/Export.h>

extern "C" MURN_API int anotherEntry();
extern "C" MURN_API int anotherEntry()
{
    return 7;
}
