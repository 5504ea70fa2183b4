// What a step of the tour tells its reader, and what it found.
#include "Findings.h"

#include <cstdarg>
#include <cstdio>

void say(const char* format, ...)
{
    char line[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    std::printf("   %s\n", line);  // in one piece, since other threads speak too
}

bool Findings::check(bool holds, const std::string& what)
{
    ++_checks;
    std::printf("   %s %s\n", holds ? "[ok]" : "[NOT SO]", what.c_str());
    if (!holds)
        _failures.push_back(what);
    return holds;
}

void Findings::figure(long value, const std::string& unit)
{
    _figures.push_back(std::to_string(value) + " " + unit);
}
