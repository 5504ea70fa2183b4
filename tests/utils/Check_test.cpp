// The fatal check: what it prints, and how it ends the process.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <kxPAL/Check.h>

#include "Capture.h"
#include "FatalTest.h"
#include "Sanitizers.h"

namespace {

using ::testing::AllOf;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// When set, each call of printf writes its format to standard error, for the tests that look at the calls.
bool showFormats = false;

int evaluations = 0;

bool evaluatedTo(bool value)
{
    ++evaluations;
    return value;
}

void checkWithoutBlanks(const char* text)
{
    MURN_CHECK(text!=NULL&&text[0]=='a');
}

void checkWithQuotes(const char* text)
{
    MURN_CHECK(std::strcmp(text, "a\t") == 0);
}

// Unbraced on purpose: the else must belong to the if.
void checkOrElse(bool wanted, bool holds, bool& elsewhere)
{
    if (wanted)
        MURN_CHECK(holds);
    else
        elsewhere = true;
}

void printEvaluations()
{
    std::printf("evaluated %d times\n", evaluations);
}

}  // namespace

// Stands in front of the C library's printf, in the whole program.
extern "C" __attribute__((visibility("default"))) int printf(const char* format, ...)
{
    if (showFormats)
        std::fprintf(stderr, "format: %s", format);
    va_list args;
    va_start(args, format);
    const int written = std::vprintf(format, args);
    va_end(args);
    return written;
}

// Exported and never inlined, so that the backtrace can name it. The volatile pointer hides that the call does not
// return: the code behind it keeps the return address within this function.
extern "C" __attribute__((visibility("default"), noinline)) void crashFromHere();

void crashFromHere()
{
    void (*volatile hook)() = CrashHook;
    hook();
    std::fputs("CrashHook returned\n", stderr);
}

TEST(Check, letsATrueExpressionPassInSilence)
{
    EXPECT_EQ("", printedBy([] { MURN_CHECK(1 + 1 == 2); }));
}

TEST(Check, evaluatesATrueExpressionOnce)
{
    evaluations = 0;
    MURN_CHECK(evaluatedTo(true));
    EXPECT_EQ(1, evaluations);
}

TEST(Check, evaluatesAFalseExpressionOnce)
{
    EXPECT_EXIT(
        {
            fataltest::prepareChild();
            evaluations = 0;
            std::atexit(printEvaluations);
            MURN_CHECK(evaluatedTo(false));
        },
        ExitedWithCode(255), HasSubstr("evaluated 1 times\n"));
}

TEST(Check, printsExpressionFileAndLine)
{
    const int value = 1;
    const int line = __LINE__ + 4;
    EXPECT_EXIT(
        {
            fataltest::prepareChild();
            MURN_CHECK(value == 2);
        },
        ExitedWithCode(255),
        StartsWith("FATAL ERROR value == 2 File: tests/utils/Check_test.cpp line " + std::to_string(line) + "\n"));
}

TEST(Check, printsTheExpressionExactlyAsWritten)
{
    EXPECT_FATAL(checkWithoutBlanks("b"), "text!=NULL&&text[0]=='a'", "tests/utils/Check_test.cpp");
    EXPECT_FATAL(checkWithQuotes("b"), "std::strcmp(text, \"a\\t\") == 0", "tests/utils/Check_test.cpp");
}

TEST(Check, isASingleStatement)
{
    bool elsewhere = false;
    checkOrElse(false, false, elsewhere);
    EXPECT_TRUE(elsewhere);
    EXPECT_FATAL(checkOrElse(true, false, elsewhere), "holds", "tests/utils/Check_test.cpp");
}

TEST(Check, printsItsLineWithOnePrintfOfABuildTimeFormat)
{
    EXPECT_EXIT(
        {
            fataltest::prepareChild();
            showFormats = true;
            MURN_CHECK(!showFormats);
        },
        ExitedWithCode(255), HasSubstr("format: FATAL ERROR !showFormats File: tests/utils/Check_test.cpp line %d\n"));
}

TEST(Check, printsToStandardOutputAlone)
{
    EXPECT_EXIT(
        {
            fataltest::prepareChild();
            ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
            MURN_CHECK(false);
        },
        ExitedWithCode(255), ::testing::Eq(""));
}

TEST(Check, isFollowedByABacktrace)
{
    EXPECT_EXIT(
        {
            fataltest::prepareChild();
            MURN_CHECK(false);
        },
        ExitedWithCode(255), ::testing::ContainsRegex("^FATAL ERROR false [^\n]*\n01: <[^\n]*>\n02: <[^\n]*>\n"));
}

TEST(Check, flushesWhatStdioHeldBack)
{
    EXPECT_FATAL_AFTER(
        {
            std::printf("held back, ");
            MURN_CHECK(false);
        },
        "held back, ", "false", "tests/utils/Check_test.cpp");
}

TEST(Check, runsExitHandlersAfterItsOutput)
{
    EXPECT_EXIT(
        {
            fataltest::prepareChild();
            std::atexit([] { std::printf("exit handler\n"); });
            MURN_CHECK(false);
        },
        ExitedWithCode(255), ::testing::EndsWith(">\nexit handler\n"));
}

TEST(Check, cannotBeSurvived)
{
    EXPECT_EXIT(
        {
            fataltest::prepareChild();
            try {
                MURN_CHECK(false);
            } catch (...) {
                std::printf("caught\n");
            }
            std::printf("went on\n");
        },
        ExitedWithCode(255), AllOf(Not(HasSubstr("caught")), Not(HasSubstr("went on"))));
}

TEST(Check, leavesCrashHookItselfOutOfTheBacktrace)
{
    if (KXPAL_TESTS_ADDRESS_SANITIZER == 1 || KXPAL_TESTS_THREAD_SANITIZER == 1)
        GTEST_SKIP() << "the sanitizer's own backtrace function is frame 0 here";
    EXPECT_EXIT(
        {
            fataltest::prepareChild();
            crashFromHere();
        },
        ExitedWithCode(255),
        AllOf(StartsWith("01: <"), ::testing::ContainsRegex("^01: <[^\n]*crashFromHere"), Not(HasSubstr("CrashHook"))));
}

TEST(Check, exportsCrashHookUnderItsPlainName)
{
    void* const symbol = ::dlsym(RTLD_DEFAULT, "CrashHook");
    ASSERT_NE(nullptr, symbol);
    Dl_info where;
    ASSERT_NE(0, ::dladdr(symbol, &where));
    EXPECT_THAT(where.dli_fname, ::testing::EndsWith("libkxPAL_impl.so"));
}
