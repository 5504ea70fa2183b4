// Fatal checks: how a broken contract ends the process.
#ifndef MURN_CHECK_H
#define MURN_CHECK_H

#include <cstdio>

#include "Export.h"

/// Any thread. Prints a backtrace of at most 20 frames to standard output, its own frame left out, one frame a
/// line as "%02d: <%s>", and ends the process with `exit(-1)`, so that the status is 255, `atexit` handlers run
/// and stdio buffers are flushed. Does not return. Uses `backtrace` and `backtrace_symbols` of the C library;
/// hosts that want their own function names in it link with `-rdynamic`.
extern "C" MURN_API void CrashHook() __attribute__((noreturn));

/// Any thread. Ends the process when `expression` is false: prints one line to standard output, "FATAL ERROR ",
/// the expression as it is written, " File: ", the source file, " line " and the line number, then calls
/// CrashHook(). The expression is evaluated once, in every build, and must not contain a per cent sign, because
/// its text becomes part of a printf format.
// The text is behaviour that callers see, so the blanks of an expression must stay as they were written.
#define MURN_CHECK(expression)                                                                 \
    do {                                                                                       \
        if (!(expression)) {                                                                   \
            std::printf("FATAL ERROR " #expression " File: " __FILE__ " line %d\n", __LINE__); \
            CrashHook();                                                                       \
        }                                                                                      \
    } while (false)

#endif
