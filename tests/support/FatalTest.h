// Tests of what ends the process: a fatal check with its exact text, in a child process.
#ifndef KXPAL_TESTS_FATAL_TEST_H
#define KXPAL_TESTS_FATAL_TEST_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <string>

extern "C" void __lsan_disable() __attribute__((weak));

namespace fataltest {

/// Prepares the child: GoogleTest looks at standard error only, but fatal checks print to standard output. And
/// `exit(-1)` leaves live objects behind on purpose, for which LeakSanitizer would change the status 255.
inline void prepareChild()
{
    std::fflush(stdout);
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    if (__lsan_disable != nullptr)
        __lsan_disable();
}

/// Matches an output that holds, at the start of a line, `before` and right after it a whole fatal-check line
/// with exactly the expression and the source file given, and no other fatal-check line.
class FatalOutputMatcher : public ::testing::MatcherInterface<const std::string&> {
public:
    FatalOutputMatcher(std::string before, const std::string& expression, const std::string& source)
        : _before(std::move(before)), _start("FATAL ERROR " + expression + " File: " + source + " line ")
    {
    }

    bool MatchAndExplain(const std::string& output, ::testing::MatchResultListener*) const override
    {
        const std::string wanted = _before + _start;
        const std::size_t fatal = output.find("FATAL ERROR ");
        if (fatal == std::string::npos || fatal < _before.size())
            return false;
        const std::size_t begin = fatal - _before.size();
        if (begin != 0 && output[begin - 1] != '\n')
            return false;
        if (output.compare(begin, wanted.size(), wanted) != 0)
            return false;
        const std::size_t digits = begin + wanted.size();
        const std::size_t end = output.find('\n', digits);
        return end != std::string::npos && end > digits &&
               std::all_of(output.begin() + static_cast<std::ptrdiff_t>(digits),
                           output.begin() + static_cast<std::ptrdiff_t>(end),
                           [](char c) { return c >= '0' && c <= '9'; }) &&
               output.find("FATAL ERROR ", end) == std::string::npos;
    }

    void DescribeTo(std::ostream* os) const override { *os << "has the line \"" << _before << _start << "<number>\""; }

private:
    std::string _before;
    std::string _start;
};

inline ::testing::Matcher<const std::string&> fatalOutput(const std::string& before, const std::string& expression,
                                                          const std::string& source)
{
    return ::testing::Matcher<const std::string&>(new FatalOutputMatcher(before, expression, source));
}

}  // namespace fataltest

/// The statement ends the process with status 255 through a fatal check, which prints exactly
/// "FATAL ERROR <expression> File: <source> line <number>". The source is named as "src/core/Object.cpp".
#define EXPECT_FATAL(statement, expression, source) EXPECT_FATAL_AFTER(statement, "", expression, source)

/// The same, with the text `before` printed directly in front of the fatal check's line.
#define EXPECT_FATAL_AFTER(statement, before, expression, source) \
    EXPECT_EXIT(                                                  \
        {                                                         \
            fataltest::prepareChild();                            \
            statement;                                            \
        },                                                        \
        ::testing::ExitedWithCode(255), fataltest::fatalOutput(before, expression, source))

#endif
