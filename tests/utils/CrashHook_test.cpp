// The crash report, with the C library's backtrace replaced.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>

#include <kxPAL/Check.h>

#include "FatalTest.h"
#include "InterposeLibc.h"

namespace {

using ::testing::Eq;
using ::testing::ExitedWithCode;

// Calls CrashHook() where the backtrace has this many frames, named "frame 0" and so on.
[[noreturn]] void crashWithFrames(int count)
{
    static std::array<std::string, 20> texts;
    static std::array<char*, 20> pointers;
    static std::array<char, 20> code;
    for (std::size_t frame = 0; frame < texts.size(); ++frame) {
        texts[frame] = "frame " + std::to_string(frame);
        pointers[frame] = texts[frame].data();
    }

    const Interposed captured(interpose::backtrace, [count](auto*, void** frames, int size) {
        if (size != 20)
            std::printf("backtrace was asked for %d frames\n", size);
        for (int frame = 0; frame < count; ++frame)
            frames[frame] = &code[static_cast<std::size_t>(frame)];
        return count;
    });
    const Interposed named(interpose::backtrace_symbols, [count](auto*, void* const* frames, int size) {
        if (size != count || (count > 0 && frames[count - 1] != &code[static_cast<std::size_t>(count - 1)]))
            std::printf("backtrace_symbols was given other frames\n");
        return pointers.data();
    });
    fataltest::prepareChild();
    CrashHook();
}

}  // namespace

TEST(CrashHook, printsFramesOneToNineteenOfTwenty)
{
    std::string expected;
    for (int frame = 1; frame < 20; ++frame)
        expected += (frame < 10 ? "0" : "") + std::to_string(frame) + ": <frame " + std::to_string(frame) + ">\n";
    EXPECT_EXIT(crashWithFrames(20), ExitedWithCode(255), Eq(expected));
}

TEST(CrashHook, printsTheSecondOfTwoFrames)
{
    EXPECT_EXIT(crashWithFrames(2), ExitedWithCode(255), Eq("01: <frame 1>\n"));
}

TEST(CrashHook, printsNothingForASingleFrame)
{
    EXPECT_EXIT(crashWithFrames(1), ExitedWithCode(255), Eq(""));
}

TEST(CrashHook, printsNothingWithoutABacktrace)
{
    EXPECT_EXIT(crashWithFrames(0), ExitedWithCode(255), Eq(""));
}

TEST(CrashHook, endsTheProcessEvenIfFramesCannotBeNamed)
{
    EXPECT_EXIT(
        {
            const Interposed unnamed(interpose::backtrace_symbols, [](auto*, auto...) -> char** { return nullptr; });
            fataltest::prepareChild();
            CrashHook();
        },
        ExitedWithCode(255), Eq(""));
}
