// Tests of what a process can do only once, in a process of their own.
#ifndef KXPAL_TESTS_FRESH_PROCESS_H
#define KXPAL_TESTS_FRESH_PROCESS_H

#include <gtest/gtest.h>

#include <cstdlib>

/// Runs the statement in a child that was started anew, with one thread and with nothing done in it but what comes
/// before in the same test; expectations in it count.
#define EXPECT_IN_FRESH_PROCESS(statement)                                          \
    EXPECT_EXIT(                                                                    \
        {                                                                           \
            statement;                                                              \
            std::exit(::testing::Test::HasFailure() ? EXIT_FAILURE : EXIT_SUCCESS); \
        },                                                                          \
        ::testing::ExitedWithCode(EXIT_SUCCESS), "")

#endif
