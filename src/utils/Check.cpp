// The crash report that ends the process after a failed fatal check.
#include "Check.h"

#include <execinfo.h>

#include <cstdio>
#include <cstdlib>

void CrashHook()
{
    void* frames[20];
    const int count = ::backtrace(frames, 20);
    // The texts are not freed: the process ends here anyway.
    char** const texts = ::backtrace_symbols(frames, count);
    for (int frame = 1; texts != nullptr && frame < count; ++frame)
        std::printf("%02d: <%s>\n", frame, texts[frame]);
    std::exit(-1);
}
