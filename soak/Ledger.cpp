// The figures of a run, and what does not add up.
#include "Ledger.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

namespace {

constexpr std::uint64_t mostComplaintsShown = 50;  // more of the same help nobody

constexpr std::array<const char*, static_cast<std::size_t>(Figure::count)> names = {
    "rounds",
    "connections",
    "connections cut off",
    "bytes echoed",
    "stream moves",
    "events posted",
    "events handled",
    "events discarded",
    "objects",
    "object moves",
    "threads",
    "threads collected",
    "foreign threads",
    "pools",
    "pool units",
    "timer fires",
    "plug-in loads",
    "file operations",
    "folders",
    "datagrams",
    "groups joined",
    "look-ups",
    "socket exchanges",
    "log messages",
    "messages to nobody",
    "hand-overs under locks",
    "library's own warnings",
};

}  // namespace

const char* nameOf(Figure figure)
{
    return names[static_cast<std::size_t>(figure)];
}

Ledger::Ledger(std::uint64_t seed) : _seed(seed), _totals(), _complaints(0) {}

void Ledger::add(Figure figure, std::uint64_t count)
{
    _totals[static_cast<std::size_t>(figure)] += count;
}

std::uint64_t Ledger::total(Figure figure) const
{
    return _totals[static_cast<std::size_t>(figure)];
}

void Ledger::complain(const char* format, ...)
{
    if (++_complaints > mostComplaintsShown)
        return;
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    std::fprintf(stderr, "soak: MISMATCH (seed %" PRIu64 ", round %" PRIu64 "): %s\n", _seed, total(Figure::rounds) + 1,
                 text);
}

bool Ledger::same(const char* what, std::uint64_t expected, std::uint64_t actual)
{
    if (expected != actual)
        complain("%s: %" PRIu64 " expected, %" PRIu64 " seen", what, expected, actual);
    return expected == actual;
}

bool Ledger::check(bool holds, const char* what)
{
    if (!holds)
        complain("this does not hold: %s", what);
    return holds;
}
