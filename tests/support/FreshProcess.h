// Tests of what a process can do only once, in a process of their own.
#ifndef KXPAL_TESTS_FRESH_PROCESS_H
#define KXPAL_TESTS_FRESH_PROCESS_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

namespace freshprocess {

/// Ends the child. What failed in it goes to standard error, which the parent quotes: the child has no printer.
[[noreturn]] inline void finish()
{
    const ::testing::TestResult& result = *::testing::UnitTest::GetInstance()->current_test_info()->result();
    for (int i = 0; i < result.total_part_count(); ++i) {
        const ::testing::TestPartResult& part = result.GetTestPartResult(i);
        if (part.failed())
            std::cerr << part.file_name() << ":" << part.line_number() << ": " << part.message() << std::endl;
    }
    std::exit(::testing::Test::HasFailure() ? EXIT_FAILURE : EXIT_SUCCESS);
}

}  // namespace freshprocess

/// Runs the statement in a child that was started anew, with one thread and with nothing done in it but what comes
/// before in the same test; expectations in it count.
#define EXPECT_IN_FRESH_PROCESS(statement) \
    EXPECT_EXIT(                           \
        {                                  \
            statement;                     \
            freshprocess::finish();        \
        },                                 \
        ::testing::ExitedWithCode(EXIT_SUCCESS), "")

#endif
