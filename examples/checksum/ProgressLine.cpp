// How far the work has come, for whoever sits at a terminal.
#include "ProgressLine.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

namespace {

constexpr unsigned int intervalMs = 100;
// Back to the beginning of the line; and forget what stands from here to its end.
#define TO_BEGIN "\r"
#define CLEAR_REST "\033[K"

}  // namespace

ProgressLine::ProgressLine(std::function<std::string()> text) : _text(std::move(text)), _isShown(false)
{
    if (::isatty(STDERR_FILENO) == 1)
        start(intervalMs, nullptr);
}

ProgressLine::~ProgressLine()
{
    clear();
}

void ProgressLine::clear()
{
    if (_isShown)
        std::fputs(TO_BEGIN CLEAR_REST, stderr);
    _isShown = false;
}

void ProgressLine::timeout()
{
    std::fprintf(stderr, TO_BEGIN "%s" CLEAR_REST, _text().c_str());
    _isShown = true;
}
