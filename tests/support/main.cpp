// The main function of every test program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    // Children of death tests start afresh: forked from a process with several threads they could hang in a lock.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ::testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
