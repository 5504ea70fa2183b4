// Logging, crash reports, plug-ins, date-times and clocks: each of their calls that fails, and a system time that
// jumps.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/Check.h>
#include <kxPAL/DateTime.h>
#include <kxPAL/Logger.h>
#include <kxPAL/Plugin.h>
#include <kxPAL/kxClock.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "FatalTest.h"
#include "Fault.h"
#include "InterposeGlib.h"
#include "InterposeLibc.h"
#include "LogCapture.h"
#include "PluginFiles.h"

namespace {

using Murn::DateTime;
using Murn::Logger;
using Murn::Plugin;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::MatchesRegex;

class LoggerFaultTable : public ::testing::Test {
protected:
    // Logs a text that is made at run time.
    static void log(const std::string& format)
    {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
        Logger::Message("Test", format.c_str());
#pragma GCC diagnostic pop
    }

    std::string logged() const
    {
        return _log.messages().back().stamped;
    }

    const LogCapture _log;
};

FAULT_TEST(LoggerFaultTable, logsWithoutADate, localtime, "`Logger`", "logs with the milliseconds alone", EOVERFLOW)
{
    Logger::Message("Test", "text");
    EXPECT_THAT(logged(), MatchesRegex("-[0-9][0-9][0-9]]text"));
}

FAULT_TEST(LoggerFaultTable, logsWithoutWhatHasNoRoom, strftime, "`Logger`", "logs with the milliseconds alone", ERANGE)
{
    Logger::Message("Test", "text");
    EXPECT_THAT(logged(), MatchesRegex("-[0-9][0-9][0-9]]text"));
}

FAULT_TEST_BY_HAND(LoggerFaultTable, logsWithoutAStamp, mmap, "`Logger`, for a format of more than 64 kB",
                   "logs without a stamp", ENOMEM, EAGAIN)
{
    const std::string text(100000, 'x');
    {
        const Interposed mapping(interpose::mmap, [this](auto, auto...) {
            errno = error();
            return MAP_FAILED;
        });
        errno = 0;
        log(text);
        EXPECT_EQ(errno, 0);
    }
    EXPECT_EQ(logged(), text);
}

FAULT_TEST(LoggerFaultTable, logsAllTheSame, munmap, "`Logger`, for a format of more than 64 kB", "goes on", EINVAL,
           ENOMEM)
{
    const std::string text(100000, 'x');
    log(text);
    EXPECT_THAT(logged(), EndsWith("]" + text));
}

// Each step on the way of a message sets errno as it likes.
TEST_F(LoggerFaultTable, keepsTheErrorOfItsCaller)
{
    const auto spoiled = [](auto* real, auto... arguments) {
        const auto result = real(arguments...);
        errno = EBADF;
        return result;
    };
    const Interposed time(interpose::time, spoiled);
    const Interposed localtime(interpose::localtime, spoiled);
    const Interposed strftime(interpose::strftime, spoiled);
    const Interposed mapping(interpose::mmap, spoiled);
    const Interposed unmapping(interpose::munmap, spoiled);
    const Interposed taking(interpose::g_logv, [](auto* real, auto... arguments) {
        real(arguments...);
        errno = EBADF;
    });
    for (const std::string& blanks : {std::string(), std::string(100000, ' ')}) {
        errno = ENOSPC;
        log(blanks + "%m");
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_THAT(logged(), EndsWith(blanks + std::strerror(ENOSPC))) << "%m is of the caller's error";
    }
}

class CrashFaultTable : public ::testing::Test {};

FAULT_TEST(CrashFaultTable, reportsNothing, backtrace_symbols, "`CrashHook`",
           "prints no frames and ends the process with status 255", ENOMEM)
{
    EXPECT_EXIT(
        {
            fataltest::prepareChild();
            CrashHook();
        },
        ::testing::ExitedWithCode(255), ::testing::Eq(std::string()));
}

FAULT_TEST_FOR_REAL(CrashFaultTable, knowsNoFrames, backtrace, "`CrashHook`",
                    "prints no frames and ends the process with status 255", "no frame can be found")
{
    EXPECT_EXIT(
        {
            const Interposed none(interpose::backtrace, [](auto, auto...) { return 0; });
            fataltest::prepareChild();
            CrashHook();
        },
        ::testing::ExitedWithCode(255), ::testing::Eq(std::string()));
}

class PluginFaultTable : public RuntimeTest {};

FAULT_TEST_FOR_REAL(PluginFaultTable, isNotLoaded, dlopen, "`Plugin::Load`",
                    "logs `Shared library ... failed to open with error: ...` and returns null",
                    "no such file, no descriptor, not a shared object")
{
    EXPECT_EQ(Plugin::Load("/there/is/no/such/file.so"), nullptr);
    EXPECT_EQ(Plugin::Load("/etc/passwd"), nullptr);
    EXPECT_EQ(logged().size(), 2U);
    EXPECT_THAT(logged().back().text, ::testing::StartsWith("Shared library \"/etc/passwd\" failed to open with"));
}

FAULT_TEST_FOR_REAL(PluginFaultTable, isNoPlugin, dlsym, "`Plugin::Load`",
                    "logs `... is not a valid PAL plugin !`, closes the shared object and returns null",
                    "no such symbol")
{
    EXPECT_EQ(Plugin::Load(pluginPath("without_entry")), nullptr);
    EXPECT_FALSE(isOpen(pluginPath("without_entry")));
    EXPECT_EQ(logged().at(1).text, "The shared object " + pluginPath("without_entry") + " is not a valid PAL plugin !");
}

FAULT_TEST_FOR_REAL(PluginFaultTable, isNotClosed, dlclose, "`Plugin::Unload`",
                    "logs `Shared library failed to close with error: ...` and returns false; the object is gone",
                    "the loader refuses")
{
    Plugin* const plugin = Plugin::Load(pluginPath("good"));
    ASSERT_NE(plugin, nullptr);
    void* handle = nullptr;
    {
        const Interposed closing(interpose::dlclose, [&](auto, void* asked) {
            handle = asked;
            return -1;
        });
        EXPECT_FALSE(Plugin::Unload(plugin));
    }
    EXPECT_THAT(logged().back().text, ::testing::StartsWith("Shared library failed to close with error: "));
    EXPECT_EQ(::dlclose(handle), 0);
}

class ClockFaultTable : public ::testing::Test {};

FAULT_TEST(ClockFaultTable, isTheEpoch, gettimeofday, "`getNowTime`", "returns 0", EFAULT, EINVAL)
{
    EXPECT_EQ(getNowTime(), 0U);
}

FAULT_TEST_FOR_REAL(ClockFaultTable, isNoDate, g_date_time_new_utc, "`DateTime(year, ...)`",
                    "makes no date-time; each operation on it is a usage error that GLib logs, and gives 0",
                    "no such date")
{
    const LogCapture glib("GLib");
    const DateTime none(2026, 2, 30, 0, 0, 0);
    EXPECT_EQ(none.toUNIX(), 0);
    EXPECT_FALSE(glib.messages().empty());
}

FAULT_TEST_FOR_REAL(ClockFaultTable, isNoMoment, g_date_time_new_from_unix_utc, "`DateTime(seconds)`",
                    "makes no date-time; each operation on it is a usage error that GLib logs, and gives 0",
                    "a time beyond the year 9999")
{
    const LogCapture glib("GLib");
    const DateTime none(300'000'000'000L);
    EXPECT_EQ(none.toUNIX(), 0);
    EXPECT_FALSE(glib.messages().empty());
}

FAULT_TEST_FOR_REAL(ClockFaultTable, isNoMomentNow, g_date_time_new_now_utc, "`DateTime()`",
                    "makes no date-time; each operation on it is a usage error that GLib logs, and gives 0",
                    "a system time beyond the year 9999")
{
    const LogCapture glib("GLib");
    const Interposed making(interpose::g_date_time_new_now_utc, [](auto, auto...) -> GDateTime* { return nullptr; });
    EXPECT_EQ(DateTime().toUNIX(), 0);
    EXPECT_FALSE(glib.messages().empty());
}

}  // namespace
