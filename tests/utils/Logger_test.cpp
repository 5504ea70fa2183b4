// Logging: levels and their mask, the stamp, what reaches GLib, and where handlers get it.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <link.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <kxPAL/LogHandler.h>
#include <kxPAL/Logger.h>

#include "AllocationCount.h"
#include "FatalTest.h"
#include "InterposeGlib.h"
#include "InterposeLibc.h"
#include "LogCapture.h"
#include "Sanitizers.h"
#include "ThreadGroup.h"
#include "ThreadState.h"
#include "VirtualTable.h"
#include "Wait.h"

namespace {

using Murn::Logger;
using Murn::LogHandler;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

// Taken before any test could change it.
const unsigned int maskAtStart = Logger::__logLevelMask;

constexpr const char* maskSymbol = "_ZN4Murn6Logger14__logLevelMaskE";

class LoggerTest : public ::testing::Test {
protected:
    ~LoggerTest() override
    {
        Logger::__logLevelMask = maskAtStart;
        g_log_set_default_handler(g_log_default_handler, nullptr);
    }
};

// Logs a format that is made at run time, which the compiler cannot check.
void logMade(const char* domain, unsigned int level, const char* format, ...)
{
    va_list args;
    va_start(args, format);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    Logger::Logv(domain, level, format, args);
#pragma GCC diagnostic pop
    va_end(args);
}

std::string expanded(const char* format, va_list args)
{
    va_list again;
    va_copy(again, args);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::string text(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, format, again)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, args);
#pragma GCC diagnostic pop
    va_end(again);
    return text;
}

// Takes the place of g_logv and keeps what it was given.
class GlibStub {
public:
    const char* domain = nullptr;
    int level = 0;
    std::string format;
    std::string text;
    int calls = 0;
    int error = 0;  ///< What `errno` was, of which a format may ask with %m.

private:
    Interposed<void(const gchar*, GLogLevelFlags, const gchar*, va_list)> _replaced{
        interpose::g_logv,
        [this](auto*, const gchar* itsDomain, GLogLevelFlags itsLevel, const gchar* itsFormat, va_list args) {
            error = errno;
            domain = itsDomain;
            level = itsLevel;
            format = itsFormat;
            text = expanded(itsFormat, args);
            ++calls;
        }};
};

// Makes the first clock say 15 November 2026, 13:45:02, and the second whatever the test sets.
class FakeClocks {
public:
    explicit FakeClocks(gint64 realTime) : _realTime(realTime)
    {
        _brokenDown.tm_year = 126;
        _brokenDown.tm_mon = 10;
        _brokenDown.tm_mday = 15;
        _brokenDown.tm_hour = 13;
        _brokenDown.tm_min = 45;
        _brokenDown.tm_sec = 2;
    }

private:
    static constexpr time_t seconds = 1794750302;

    tm _brokenDown{};
    gint64 _realTime;
    Interposed<time_t(time_t*)> _time{interpose::time, [](auto*, time_t* result) {
                                          if (result != nullptr)
                                              *result = seconds;
                                          return seconds;
                                      }};
    Interposed<tm*(const time_t*)> _localtime{interpose::localtime, [this](auto* real, const time_t* given) {
                                                  return *given == seconds ? &_brokenDown : real(given);
                                              }};
    Interposed<gint64()> _realClock{interpose::g_get_real_time, [this](auto*) { return _realTime; }};
};

// One call of a handler.
struct Handled {
    std::optional<std::string> domain;
    int level;
    std::string message;
    std::thread::id thread;
};

class RecordingHandler final : public LogHandler {
public:
    using LogHandler::LogHandler;

    void HandleLog(const char* domain, Logger::LogLevel level, const char* message) override
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        _calls.push_back({domain != nullptr ? std::optional<std::string>(domain) : std::nullopt, level, message,
                          std::this_thread::get_id()});
    }

    std::vector<Handled> calls() const
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _calls;
    }

    // The texts without their stamps.
    std::vector<std::string> texts() const
    {
        std::vector<std::string> result;
        for (const Handled& call : calls())
            result.push_back(call.message.substr(call.message.find(']') + 1));
        return result;
    }

private:
    mutable std::mutex _mutex;
    std::vector<Handled> _calls;  // guarded by _mutex
};

// A recording handler that is installed for its domain as long as it lives.
class InstalledHandler {
public:
    InstalledHandler(const std::string& domain, unsigned int levels) : _handler(domain, levels)
    {
        Logger::InstallHandler(&_handler);
    }
    ~InstalledHandler() { Logger::UninstallHandler(&_handler); }

    InstalledHandler(const InstalledHandler&) = delete;
    InstalledHandler& operator=(const InstalledHandler&) = delete;

    RecordingHandler* operator->() { return &_handler; }

private:
    RecordingHandler _handler;
};

// Calls the function on a thread whose stack is far smaller than the longest messages of these tests.
void onSmallStack(const std::function<void()>& function)
{
    pthread_attr_t attributes;
    ASSERT_EQ(0, ::pthread_attr_init(&attributes));
    ASSERT_EQ(0, ::pthread_attr_setstacksize(&attributes, 262144));
    pthread_t thread = 0;
    const auto run = [](void* data) -> void* {
        (*static_cast<std::function<void()>*>(data))();
        return nullptr;
    };
    std::function<void()> copy = function;
    ASSERT_EQ(0, ::pthread_create(&thread, &attributes, run, &copy));
    ASSERT_EQ(0, ::pthread_join(thread, nullptr));
    ::pthread_attr_destroy(&attributes);
}

// A format of this length, which ends with a conversion if there is room for it.
std::string formatOfLength(std::size_t length)
{
    return length < 2 ? std::string(length, 'a') : std::string(length - 2, 'a') + "%d";
}

// What formatOfLength() gives with the value 12345.
std::string textOfLength(std::size_t length)
{
    return length < 2 ? std::string(length, 'a') : std::string(length - 2, 'a') + "12345";
}

constexpr std::size_t lengths[] = {0, 1, 2, 79, 80, 255, 256, 1024, 65279, 65280, 65281, 65535, 65536, 65537, 1 << 20};

bool endedByAbort(int status)
{
    // GLib ends the process through a breakpoint, or through abort() where it has none.
    return WIFSIGNALED(status) && (WTERMSIG(status) == SIGTRAP || WTERMSIG(status) == SIGABRT);
}

}  // namespace

// Levels and their mask

TEST_F(LoggerTest, levelsAreGlibsShiftedRightByTwo)
{
    EXPECT_EQ(1, Logger::LevelError);
    EXPECT_EQ(2, Logger::LevelCritical);
    EXPECT_EQ(4, Logger::LevelWarning);
    EXPECT_EQ(8, Logger::LevelMessage);
    EXPECT_EQ(16, Logger::LevelInfo);
    EXPECT_EQ(32, Logger::LevelDebug);

    EXPECT_EQ(G_LOG_LEVEL_ERROR, Logger::LevelError << 2);
    EXPECT_EQ(G_LOG_LEVEL_CRITICAL, Logger::LevelCritical << 2);
    EXPECT_EQ(G_LOG_LEVEL_WARNING, Logger::LevelWarning << 2);
    EXPECT_EQ(G_LOG_LEVEL_MESSAGE, Logger::LevelMessage << 2);
    EXPECT_EQ(G_LOG_LEVEL_INFO, Logger::LevelInfo << 2);
    EXPECT_EQ(G_LOG_LEVEL_DEBUG, Logger::LevelDebug << 2);
}

TEST_F(LoggerTest, hasNoInstances)
{
    EXPECT_FALSE(std::is_default_constructible_v<Logger>);
}

TEST_F(LoggerTest, letsEveryLevelThroughAtTheStart)
{
    EXPECT_EQ(63U, maskAtStart);
    const GlibStub glib;
    for (unsigned int level = 1; level <= 32; level <<= 1)
        Logger::Log("Test", level, "x");
    EXPECT_EQ(6, glib.calls);
}

TEST_F(LoggerTest, exportsTheMaskAsA32BitWord)
{
    if (KXPAL_TESTS_ADDRESS_SANITIZER == 1)
        GTEST_SKIP() << "the sanitizer's red zone may count as part of the word";
    void* const library = ::dlopen("libkxPAL_impl.so", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(nullptr, library) << ::dlerror();
    void* const symbol = ::dlsym(library, maskSymbol);
    ASSERT_NE(nullptr, symbol) << ::dlerror();
    Dl_info where;
    void* entry = nullptr;
    ASSERT_NE(0, ::dladdr1(symbol, &where, &entry, RTLD_DL_SYMENT));
    EXPECT_STREQ(maskSymbol, where.dli_sname);
    EXPECT_EQ(4U, static_cast<const ElfW(Sym)*>(entry)->st_size);
    ::dlclose(library);
}

TEST_F(LoggerTest, obeysAMaskWrittenAsAPlainWord)
{
    auto* const mask = static_cast<unsigned int*>(::dlsym(RTLD_DEFAULT, maskSymbol));
    ASSERT_NE(nullptr, mask) << ::dlerror();
    EXPECT_EQ(63U, *mask);

    const GlibStub glib;
    *mask = Logger::LevelInfo;
    Logger::Warning("Test", "suppressed");
    EXPECT_EQ(0, glib.calls);
    Logger::Info("Test", "produced");
    EXPECT_EQ(1, glib.calls);
}

TEST_F(LoggerTest, producesAMessageOnlyIfItsBitIsSet)
{
    for (unsigned int allowed = 1; allowed <= 32; allowed <<= 1) {
        Logger::__logLevelMask = allowed;
        for (unsigned int level = 1; level <= 32; level <<= 1) {
            const GlibStub glib;
            Logger::Log("Test", level, "x");
            EXPECT_EQ(level == allowed ? 1 : 0, glib.calls) << "mask " << allowed << ", level " << level;
        }
    }
}

TEST_F(LoggerTest, setMinimumLogLevelAllowsTheLevelAndTheMoreSevere)
{
    const std::map<int, unsigned int> masks = {{INT_MIN, 0},
                                               {-1, 0},
                                               {0, 0},
                                               {1, 1},
                                               {2, 3},
                                               {3, 3},
                                               {4, 7},
                                               {5, 7},
                                               {7, 7},
                                               {8, 15},
                                               {16, 31},
                                               {31, 31},
                                               {32, 63},
                                               {63, 63},
                                               {64, 127},
                                               {100, 127},
                                               {1000, 1023},
                                               {0x3fffffff, 0x3fffffff},
                                               {0x40000000, 0x7fffffff},
                                               {INT_MAX, 0x7fffffff}};
    for (const auto& [level, mask] : masks) {
        Logger::__logLevelMask = 0xaaaaaaaa;
        Logger::SetMinimumLogLevel(static_cast<Logger::LogLevel>(level));
        EXPECT_EQ(mask, Logger::__logLevelMask) << "minimum level " << level;
    }
}

TEST_F(LoggerTest, logsNothingBelowMinimumLevelOne)
{
    const GlibStub glib;
    for (const int minimum : {0, -1}) {
        Logger::SetMinimumLogLevel(static_cast<Logger::LogLevel>(minimum));
        for (unsigned int level = 1; level <= 32; level <<= 1)
            Logger::Log("Test", level, "x");
    }
    EXPECT_EQ(0, glib.calls);
}

TEST_F(LoggerTest, maskChangeTakesEffectAtAnotherThreadsNextMessage)
{
    LogCapture capture("Test");
    std::atomic<int> turn{0};
    std::thread logging([&turn] {
        for (const int own : {1, 3, 5}) {
            while (turn != own)
                std::this_thread::yield();
            Logger::Info("Test", "turn %d", own);
            turn = own + 1;
        }
    });
    for (const unsigned int mask : {63U, 7U, 16U}) {
        Logger::__logLevelMask = mask;
        const int own = turn += 1;
        while (turn == own)
            std::this_thread::yield();
    }
    logging.join();
    EXPECT_THAT(capture.texts(), ElementsAre("turn 1", "turn 5"));
}

// What reaches GLib

TEST_F(LoggerTest, eachOperationHasItsGlibLevel)
{
    using Operation = void (*)(const char*, const char*, ...);
    const std::pair<Operation, GLogLevelFlags> operations[] = {
        {Logger::Critical, G_LOG_LEVEL_CRITICAL}, {Logger::Error, G_LOG_LEVEL_CRITICAL},
        {Logger::Warning, G_LOG_LEVEL_WARNING},   {Logger::Message, G_LOG_LEVEL_MESSAGE},
        {Logger::Info, G_LOG_LEVEL_INFO},         {Logger::Debug, G_LOG_LEVEL_DEBUG}};
    for (const auto& [operation, level] : operations) {
        const GlibStub glib;
        operation("Domain", "%s-%d", "text", 4);
        EXPECT_EQ(1, glib.calls);
        EXPECT_EQ(level, glib.level);
        EXPECT_STREQ("Domain", glib.domain);
        EXPECT_THAT(glib.text, EndsWith("]text-4"));
    }
}

TEST_F(LoggerTest, errorIsCriticalAndObeysTheCriticalBit)
{
    const GlibStub glib;
    Logger::__logLevelMask = 63 & ~static_cast<unsigned int>(Logger::LevelError);
    Logger::Error("Test", "x");
    EXPECT_EQ(1, glib.calls);
    Logger::__logLevelMask = Logger::LevelError;
    Logger::Error("Test", "x");
    EXPECT_EQ(1, glib.calls);
}

TEST_F(LoggerTest, logPassesTheGivenLevelAndDomainOn)
{
    static const char domain[] = "Domain";
    for (const unsigned int level : {1U, 2U, 4U, 8U, 16U, 32U}) {
        const GlibStub glib;
        Logger::Log(domain, level, "%s", "x");
        EXPECT_EQ(static_cast<int>(level << 2), glib.level);
        EXPECT_EQ(domain, glib.domain);
    }
}

TEST_F(LoggerTest, passesANullDomainOn)
{
    const GlibStub glib;
    Logger::Warning(nullptr, "x");
    ASSERT_EQ(1, glib.calls);
    EXPECT_EQ(nullptr, glib.domain);
}

TEST_F(LoggerTest, stampsWithDateTimeAndMilliseconds)
{
    const FakeClocks clocks(1794750302'042999);
    const LogCapture capture("PAL");
    Logger::Debug("PAL", "Shared library closed successfully.");
    ASSERT_EQ(1U, capture.messages().size());
    EXPECT_EQ("[11/15/26 13:45:02-042]Shared library closed successfully.", capture.messages()[0].stamped);
}

TEST_F(LoggerTest, millisecondsHaveThreeDigits)
{
    const std::map<gint64, std::string> stamps = {
        {1000'000000, "-000]x"}, {1000'000999, "-000]x"}, {1000'007000, "-007]x"}, {1000'007999, "-007]x"},
        {1000'070000, "-070]x"}, {1000'999999, "-999]x"}, {1001'000000, "-000]x"}};
    for (const auto& [realTime, stamp] : stamps) {
        const FakeClocks clocks(realTime);
        const GlibStub glib;
        Logger::Info("Test", "x");
        EXPECT_EQ("[11/15/26 13:45:02" + stamp, glib.text);
    }
}

TEST_F(LoggerTest, readsTheClockTwiceIndependently)
{
    interpose::CallLog log;
    const Interposed time(interpose::time, log.noting("time"));
    const Interposed localtime(interpose::localtime, log.noting("localtime"));
    const Interposed strftime(interpose::strftime, log.noting("strftime"));
    const Interposed realTime(interpose::g_get_real_time, log.noting("g_get_real_time"));
    const Interposed logv(interpose::g_logv, [&log](auto*, auto...) { log.note("g_logv"); });
    Logger::Info("Test", "x");
    EXPECT_THAT(log.calls(), ElementsAre("time", "localtime", "strftime", "g_get_real_time", "g_logv"));
}

TEST_F(LoggerTest, millisecondsMayBelongToAnotherSecond)
{
    // The second reading is taken as it comes, though the first one was ten minutes earlier.
    const FakeClocks clocks(1794750902'500000);
    const GlibStub glib;
    Logger::Info("Test", "x");
    EXPECT_EQ("[11/15/26 13:45:02-500]x", glib.text);
}

TEST_F(LoggerTest, asksForTheLocalesDateAndTimeInAtMost80Bytes)
{
    const FakeClocks clocks(0);
    const GlibStub glib;
    const Interposed strftime(interpose::strftime,
                              [](auto*, char* buffer, size_t size, const char* format, const tm* local) {
                                  EXPECT_EQ(80U, size);
                                  EXPECT_STREQ("[%x %X", format);
                                  EXPECT_EQ(126, local->tm_year);
                                  // The longest date that fits.
                                  std::memset(buffer, 'd', 79);
                                  buffer[79] = '\0';
                                  return size_t{79};
                              });
    Logger::Info("Test", "x");
    EXPECT_EQ(std::string(79, 'd') + "-000]x", glib.text);
}

TEST_F(LoggerTest, logsAlsoWhenTheDateCannotBeMade)
{
    const GlibStub glib;
    {
        const Interposed noRoom(interpose::strftime, [](auto*, auto...) { return size_t{0}; });
        Logger::Info("Test", "no room");
    }
    EXPECT_THAT(glib.text, MatchesRegex("-[0-9][0-9][0-9]]no room"));
    {
        const Interposed noDate(interpose::localtime, [](auto*, auto...) -> tm* { return nullptr; });
        Logger::Info("Test", "no date");
    }
    EXPECT_THAT(glib.text, MatchesRegex("-[0-9][0-9][0-9]]no date"));
    EXPECT_EQ(2, glib.calls);
}

TEST_F(LoggerTest, putsTheUnchangedFormatBehindTheStamp)
{
    const FakeClocks clocks(7000);
    const GlibStub glib;
    Logger::Warning("Test", " %5d%%|%-6s|%s\n", 42, "left", "100%d");
    EXPECT_EQ("[11/15/26 13:45:02-007] %5d%%|%-6s|%s\n", glib.format);
    EXPECT_EQ("[11/15/26 13:45:02-007]    42%|left  |100%d\n", glib.text);
}

TEST_F(LoggerTest, leavesTheEndOfTheListToTheCallerOfLogv)
{
    // A list that Logv() had ended could not be used for a copy; the copy must give the same values again.
    const GlibStub glib;
    const auto twice = [](const char* format, ...) {
        va_list args;
        va_start(args, format);
        va_list copy;
        va_copy(copy, args);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        Logger::Logv("Test", Logger::LevelInfo, format, args);
        Logger::Logv("Test", Logger::LevelInfo, format, copy);
#pragma GCC diagnostic pop
        va_end(copy);
        va_end(args);
    };
    twice("%d %s", 1, "one");
    EXPECT_EQ(2, glib.calls);
    EXPECT_THAT(glib.text, EndsWith("]1 one"));
}

TEST_F(LoggerTest, copesWithAnyLengthOfFormat)
{
    const LogCapture capture("Test");
    for (const std::size_t length : lengths)
        logMade("Test", Logger::LevelInfo, formatOfLength(length).c_str(), 12345);
    const std::vector<LogMessage> messages = capture.messages();
    ASSERT_EQ(std::size(lengths), messages.size());
    for (std::size_t i = 0; i < std::size(lengths); ++i) {
        EXPECT_TRUE(messages[i].text == textOfLength(lengths[i])) << "format of " << lengths[i] << " bytes";
        EXPECT_TRUE(messages[i].stamped.starts_with("[")) << "format of " << lengths[i] << " bytes";
    }
}

TEST_F(LoggerTest, copesWithLongFormatsOnASmallStack)
{
    const LogCapture capture("Test");
    onSmallStack([] {
        for (const std::size_t length : lengths)
            logMade("Test", Logger::LevelInfo, formatOfLength(length).c_str(), 12345);
    });
    const std::vector<std::string> texts = capture.texts();
    ASSERT_EQ(std::size(lengths), texts.size());
    for (std::size_t i = 0; i < std::size(lengths); ++i)
        EXPECT_TRUE(texts[i] == textOfLength(lengths[i])) << "format of " << lengths[i] << " bytes";
}

TEST_F(LoggerTest, copesWithAnyLengthOfText)
{
    const LogCapture capture("Test");
    const std::string value(1 << 20, 'v');
    Logger::Info("Test", "%s!", value.c_str());
    ASSERT_EQ(1U, capture.texts().size());
    EXPECT_TRUE(capture.texts()[0] == value + "!");
}

TEST_F(LoggerTest, allocatesNothingOnTheHeapOfItsOwn)
{
    // The C library's localtime() copies the name of the time zone at each call, and GLib makes the whole text: both
    // are replaced here.
    const FakeClocks clocks(0);
    const Interposed logv(interpose::g_logv, [](auto*, auto...) {});
    for (const std::size_t length : lengths) {
        const std::string format = formatOfLength(length);
        // The first message makes the interposition look functions up.
        logMade("Test", Logger::LevelInfo, format.c_str(), 12345);
        const AllocationCount count;
        logMade("Test", Logger::LevelInfo, format.c_str(), 12345);
        EXPECT_EQ(0U, count.allocations()) << "format of " << length << " bytes";
    }

    const AllocationCount proof;
    g_free(g_malloc(1));
    EXPECT_EQ(1U, proof.allocations()) << "the count itself does not work";
}

TEST_F(LoggerTest, makesNoPagesForAnOrdinaryMessage)
{
    interpose::CallLog log;
    const Interposed map(interpose::mmap, log.noting("mmap"));
    const Interposed logv(interpose::g_logv, [](auto*, auto...) {});
    logMade("Test", Logger::LevelInfo, formatOfLength(1024).c_str(), 12345);
    EXPECT_THAT(log.calls(), IsEmpty());

    // With the stamp's room, 64 KiB on the stack are the limit.
    logMade("Test", Logger::LevelInfo, formatOfLength(65280).c_str(), 12345);
    EXPECT_THAT(log.calls(), IsEmpty());
    logMade("Test", Logger::LevelInfo, formatOfLength(65281).c_str(), 12345);
    EXPECT_THAT(log.calls(), SizeIs(1));
}

TEST_F(LoggerTest, readsNoFurtherThanTheFormatsEnd)
{
    const auto size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    void* const pages = ::mmap(nullptr, 2 * size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    char* const forbidden = static_cast<char*>(pages) + size;
    ASSERT_EQ(::mprotect(forbidden, size, PROT_NONE), 0);
    const char text[] = "the end";
    char* const format = forbidden - sizeof text;
    std::memcpy(format, text, sizeof text);
    const LogCapture capture("Test");

    logMade("Test", Logger::LevelInfo, format);

    ASSERT_THAT(capture.messages(), SizeIs(1));
    EXPECT_EQ(capture.messages()[0].text, std::string(text));
    ::munmap(pages, 2 * size);
}

TEST_F(LoggerTest, givesThePagesOfALongMessageBack)
{
    std::map<void*, std::size_t> mapped;
    int mappings = 0;
    const Interposed logv(interpose::g_logv, [](auto*, auto...) {});
    const Interposed map(interpose::mmap, [&](auto* real, void* address, size_t length, auto... rest) {
        void* const pages = real(address, length, rest...);
        mapped[pages] = length;
        ++mappings;
        return pages;
    });
    const Interposed unmap(interpose::munmap, [&](auto* real, void* pages, size_t length) {
        EXPECT_EQ(1U, mapped.count(pages));
        EXPECT_EQ(mapped[pages], length);
        mapped.erase(pages);
        return real(pages, length);
    });
    logMade("Test", Logger::LevelInfo, formatOfLength(1 << 20).c_str(), 12345);
    EXPECT_EQ(1, mappings);
    EXPECT_THAT(mapped, IsEmpty());
}

TEST_F(LoggerTest, sendsALongMessageUnstampedWhenMemoryIsExhausted)
{
    const std::string format = formatOfLength(1 << 20);
    const GlibStub glib;
    {
        const Interposed map(interpose::mmap, [](auto*, auto...) {
            errno = ENOMEM;
            return MAP_FAILED;
        });
        errno = EOWNERDEAD;
        logMade("Test", Logger::LevelInfo, format.c_str(), 12345);
    }
    EXPECT_EQ(EOWNERDEAD, glib.error);
    EXPECT_EQ(1, glib.calls);
    EXPECT_EQ(G_LOG_LEVEL_INFO, glib.level);
    EXPECT_TRUE(glib.text == textOfLength(1 << 20));
}

TEST_F(LoggerTest, suppressedMessageCostsNothingButTheTest)
{
    interpose::CallLog log;
    const Interposed time(interpose::time, log.noting("time"));
    const Interposed localtime(interpose::localtime, log.noting("localtime"));
    const Interposed strftime(interpose::strftime, log.noting("strftime"));
    const Interposed realTime(interpose::g_get_real_time, log.noting("g_get_real_time"));
    const Interposed monotonic(interpose::g_get_monotonic_time, log.noting("g_get_monotonic_time"));
    const Interposed map(interpose::mmap, log.noting("mmap"));
    const Interposed logv(interpose::g_logv, log.noting("g_logv"));

    Logger::__logLevelMask = 63 & ~static_cast<unsigned int>(Logger::LevelInfo);
    Logger::Info("Test", "%s", "suppressed");
    // The format is not even looked at.
    logMade("Test", Logger::LevelInfo, nullptr);
    EXPECT_THAT(log.calls(), IsEmpty());
}

TEST_F(LoggerTest, threadsLogWhileTheMaskChanges)
{
    constexpr int threads = 4;
    constexpr int messagesEach = 1000;
    const LogCapture capture("Test");
    std::atomic<int> running{threads};
    ThreadGroup logging(threads, [&running](int thread) {
        for (int message = 0; message < messagesEach; ++message)
            Logger::Info("Test", "%d %d", thread, message);
        --running;
    });
    while (running > 0) {
        Logger::SetMinimumLogLevel(Logger::LevelWarning);
        Logger::SetMinimumLogLevel(Logger::LevelDebug);
        std::this_thread::yield();
    }
    logging.join();

    // Whatever got through is whole and in its thread's order.
    std::map<int, int> next;
    for (const std::string& text : capture.texts()) {
        std::size_t digits = 0;
        const int thread = std::stoi(text, &digits);
        const int message = std::stoi(text.substr(digits));
        EXPECT_EQ(std::to_string(thread) + " " + std::to_string(message), text);
        EXPECT_TRUE(thread >= 0 && thread < threads) << text;
        EXPECT_GE(message, next[thread]) << text;
        next[thread] = message + 1;
    }
}

TEST_F(LoggerTest, everyMessageOfManyThreadsArrives)
{
    constexpr int threads = 4;
    constexpr int messagesEach = 500;
    InstalledHandler handler("Test", Logger::LevelInfo);
    ThreadGroup(threads, [](int thread) {
        for (int message = 0; message < messagesEach; ++message)
            Logger::Info("Test", "%d", thread * messagesEach + message);
    }).join();

    std::vector<int> numbers;
    for (const std::string& text : handler->texts())
        numbers.push_back(std::stoi(text));
    std::sort(numbers.begin(), numbers.end());
    ASSERT_EQ(static_cast<std::size_t>(threads * messagesEach), numbers.size());
    for (int i = 0; i < threads * messagesEach; ++i)
        ASSERT_EQ(i, numbers[static_cast<std::size_t>(i)]);
}

// Level 1 through Log() is GLib's error level, which no handler survives.
TEST_F(LoggerTest, levelOneEndsTheProcessAfterTheHandlersRan)
{
    class PrintingHandler final : public LogHandler {
    public:
        PrintingHandler() : LogHandler("", 0) {}
        void HandleLog(const char* domain, Logger::LogLevel level, const char* message) override
        {
            std::fprintf(stderr, "domain %s, level %d: %s\n", domain, level, std::strchr(message, ']'));
        }
    };
    EXPECT_EXIT(
        {
            const rlimit noCoreFile{};
            ::setrlimit(RLIMIT_CORE, &noCoreFile);
            fataltest::prepareChild();
            PrintingHandler handler;
            Logger::InstallDefaultHandler(&handler);
            Logger::Log("Test", Logger::LevelError, "%s", "the end");
            std::fprintf(stderr, "went on\n");
        },
        endedByAbort,
        ::testing::AllOf(HasSubstr("domain Test, level 1: ]the end\n"), ::testing::Not(HasSubstr("went on"))));
}

// Handlers

TEST_F(LoggerTest, handlerTakesItsDomainAndLevels)
{
    const FakeClocks clocks(42000);
    RecordingHandler everythingElse("", 0);
    Logger::InstallDefaultHandler(&everythingElse);
    InstalledHandler handler("PAL", Logger::LevelWarning);

    Logger::Warning("PAL", "%s", "warned");
    Logger::Message("PAL", "other level");
    Logger::Warning("Other", "other domain");

    ASSERT_EQ(1U, handler->calls().size());
    const Handled call = handler->calls()[0];
    EXPECT_EQ("PAL", call.domain);
    EXPECT_EQ(4, call.level);
    EXPECT_EQ("[11/15/26 13:45:02-042]warned", call.message);
    EXPECT_THAT(everythingElse.texts(), ElementsAre("other level", "other domain"));
    ASSERT_EQ(2U, everythingElse.calls().size());
    EXPECT_EQ("PAL", everythingElse.calls()[0].domain);
    EXPECT_EQ(8, everythingElse.calls()[0].level);
}

TEST_F(LoggerTest, handlerGetsTheLibrarysLevels)
{
    InstalledHandler handler("Test", 63);
    Logger::Critical("Test", "x");
    Logger::Error("Test", "x");
    Logger::Warning("Test", "x");
    Logger::Message("Test", "x");
    Logger::Info("Test", "x");
    Logger::Debug("Test", "x");
    std::vector<int> levels;
    for (const Handled& call : handler->calls())
        levels.push_back(call.level);
    EXPECT_THAT(levels, ElementsAre(2, 2, 4, 8, 16, 32));
}

TEST_F(LoggerTest, handlerWithoutADomainTakesMessagesWithoutOne)
{
    RecordingHandler everythingElse("", 0);
    Logger::InstallDefaultHandler(&everythingElse);
    InstalledHandler handler("", 63);
    Logger::Info(nullptr, "no domain");
    Logger::Info("Test", "some domain");
    EXPECT_THAT(handler->texts(), ElementsAre("no domain"));
    EXPECT_EQ(std::nullopt, handler->calls().at(0).domain);
    EXPECT_THAT(everythingElse.texts(), ElementsAre("some domain"));
}

TEST_F(LoggerTest, defaultHandlerTakesTheRestWhateverItsDomainAndLevels)
{
    RecordingHandler handler("Another", Logger::LevelDebug);
    Logger::InstallDefaultHandler(&handler);
    Logger::Warning("Test", "a");
    Logger::Critical(nullptr, "b");
    Logger::Debug("Another", "c");
    EXPECT_THAT(handler.texts(), ElementsAre("a", "b", "c"));
}

TEST_F(LoggerTest, defaultHandlerReplacesTheOneBefore)
{
    RecordingHandler first("", 0);
    RecordingHandler second("", 0);
    Logger::InstallDefaultHandler(&first);
    Logger::InstallDefaultHandler(&second);
    Logger::Info("Test", "x");
    EXPECT_THAT(first.texts(), IsEmpty());
    EXPECT_THAT(second.texts(), ElementsAre("x"));
}

TEST_F(LoggerTest, handlerOfNoLevelsIsRefusedByGlib)
{
    RecordingHandler everythingElse("", 0);
    Logger::InstallDefaultHandler(&everythingElse);
    RecordingHandler handler("Test", 0);

    Logger::InstallHandler(&handler);
    EXPECT_EQ(0U, handler._handlerId);
    Logger::Info("Test", "x");
    Logger::UninstallHandler(&handler);

    EXPECT_THAT(handler.texts(), IsEmpty());
    const std::vector<Handled> calls = everythingElse.calls();
    ASSERT_EQ(3U, calls.size());
    for (const Handled& call : {calls[0], calls[2]}) {
        EXPECT_EQ("GLib", call.domain);
        EXPECT_EQ(Logger::LevelCritical, call.level);
    }
    EXPECT_EQ("Test", calls[1].domain);
}

// GLib logs its critical within the installation, and whoever hears of it may install a handler in turn.
TEST_F(LoggerTest, holdsNothingThatInstallsOthersWhileItIsRefused)
{
    class InstallingHandler final : public LogHandler {
    public:
        InstallingHandler() : LogHandler("", 0) {}

        void HandleLog(const char*, Logger::LogLevel, const char*) override
        {
            // On a thread of its own, so that the test fails rather than hangs.
            installing = std::thread([this] {
                Logger::InstallHandler(&other);
                installed = true;
            });
            EXPECT_TRUE(waitUntil([this] { return installed.load(); }));
        }

        RecordingHandler other{"Test", 63};
        std::atomic<bool> installed{false};
        std::thread installing;
    };
    InstallingHandler hearing;
    Logger::InstallDefaultHandler(&hearing);
    RecordingHandler refused("Test", 0);

    Logger::InstallHandler(&refused);
    ASSERT_TRUE(hearing.installing.joinable());
    hearing.installing.join();
    Logger::Info("Test", "x");

    EXPECT_EQ(0U, refused._handlerId);
    EXPECT_THAT(hearing.other.texts(), ElementsAre("x"));
    Logger::UninstallHandler(&hearing.other);
}

TEST_F(LoggerTest, handlerRunsOnTheThreadThatLogs)
{
    InstalledHandler handler("Test", 63);
    Logger::Info("Test", "here");
    std::thread::id other;
    std::thread logging([&other] {
        other = std::this_thread::get_id();
        Logger::Info("Test", "there");
    });
    logging.join();
    ASSERT_EQ(2U, handler->calls().size());
    EXPECT_EQ(std::this_thread::get_id(), handler->calls()[0].thread);
    EXPECT_EQ(other, handler->calls()[1].thread);
}

TEST_F(LoggerTest, uninstalledHandlerGetsNothing)
{
    for (const char* const domain : {"Test", ""}) {
        RecordingHandler everythingElse("", 0);
        Logger::InstallDefaultHandler(&everythingElse);
        RecordingHandler handler(domain, 63);
        Logger::InstallHandler(&handler);
        Logger::UninstallHandler(&handler);
        Logger::Info(*domain == '\0' ? nullptr : domain, "x");
        EXPECT_THAT(handler.texts(), IsEmpty());
        EXPECT_THAT(everythingElse.texts(), ElementsAre("x"));
    }
}

TEST_F(LoggerTest, handlerInstalledTwiceCanBeUninstalledOnce)
{
    RecordingHandler handler("Test", 63);
    Logger::InstallHandler(&handler);
    const unsigned int firstId = handler._handlerId;
    Logger::InstallHandler(&handler);
    EXPECT_NE(firstId, handler._handlerId);
    Logger::UninstallHandler(&handler);
    Logger::Info("Test", "still installed");
    EXPECT_THAT(handler.texts(), ElementsAre("still installed"));
    g_log_remove_handler("Test", firstId);
}

TEST_F(LoggerTest, uninstallingAHandlerWaitsForACallOnAnotherThread)
{
    class SlowHandler final : public LogHandler {
    public:
        SlowHandler() : LogHandler("Test", 63), _uninstaller(threadNumber()) {}

        void HandleLog(const char*, Logger::LogLevel, const char*) override
        {
            entered = true;
            EXPECT_TRUE(waitUntil([this] { return isAsleep(_uninstaller); }));
            left = true;
        }

        std::atomic<bool> entered{false};
        std::atomic<bool> left{false};

    private:
        const long _uninstaller;
    };
    SlowHandler handler;
    Logger::InstallHandler(&handler);
    std::thread logging([] { Logger::Info("Test", "x"); });
    while (!handler.entered)
        std::this_thread::yield();

    Logger::UninstallHandler(&handler);
    EXPECT_TRUE(handler.left);
    logging.join();
}

// The call may wait for something that the caller holds.
TEST_F(LoggerTest, uninstallingAHandlerWaitsNoLongerThanASecond)
{
    class StuckHandler final : public LogHandler {
    public:
        StuckHandler() : LogHandler("Test", 63) {}

        void HandleLog(const char*, Logger::LogLevel, const char*) override
        {
            entered = true;
            EXPECT_TRUE(waitUntil([this] { return uninstalled.load(); }));
        }

        std::atomic<bool> entered{false};
        std::atomic<bool> uninstalled{false};
    };
    StuckHandler handler;
    Logger::InstallHandler(&handler);
    std::thread logging([] { Logger::Info("Test", "x"); });
    while (!handler.entered)
        std::this_thread::yield();
    {
        const Interposed clock(interpose::g_get_monotonic_time, [](auto*) { return gint64{5'000'000}; });
        int waits = 0;
        const Interposed waiting(interpose::g_cond_wait_until, [&](auto*, GCond*, GMutex*, gint64 end) {
            EXPECT_EQ(6'000'000, end);
            ++waits;
            errno = ETIMEDOUT;
            return FALSE;
        });
        errno = EOWNERDEAD;
        Logger::UninstallHandler(&handler);
        EXPECT_EQ(EOWNERDEAD, errno);
        EXPECT_EQ(1, waits);
    }
    handler.uninstalled = true;
    logging.join();
}

TEST_F(LoggerTest, handlerMayUninstallItselfWhenItIsCalled)
{
    class OneCall final : public LogHandler {
    public:
        OneCall() : LogHandler("Test", 63) {}

        void HandleLog(const char*, Logger::LogLevel, const char*) override
        {
            ++calls;
            Logger::UninstallHandler(this);
        }

        int calls = 0;
    };
    RecordingHandler everythingElse("", 0);
    Logger::InstallDefaultHandler(&everythingElse);
    OneCall handler;
    Logger::InstallHandler(&handler);
    const Interposed waiting(interpose::g_cond_wait_until, [](auto*, auto...) {
        ADD_FAILURE() << "it waits for itself";
        return FALSE;
    });

    Logger::Info("Test", "first");
    Logger::Info("Test", "second");
    EXPECT_EQ(1, handler.calls);
    EXPECT_THAT(everythingElse.texts(), ElementsAre("second"));
}

// Callers log, and change who hears of it, before they look at a failure or hand it on.
TEST_F(LoggerTest, leavesErrnoAsItWas)
{
    RecordingHandler everythingElse("", 0);
    RecordingHandler handler("Test", 63);
    RecordingHandler refused("Test", 0);
    const auto spoil = [](auto* real, auto... arguments) {
        const auto result = real(arguments...);
        errno = ENOTTY;
        return result;
    };
    const Interposed time(interpose::time, spoil);
    const Interposed setDefault(interpose::g_log_set_default_handler, spoil);
    const Interposed set(interpose::g_log_set_handler, spoil);
    const Interposed remove(interpose::g_log_remove_handler, [](auto* real, auto... arguments) {
        real(arguments...);
        errno = ENOTTY;
    });
    const auto errorAfter = [](const auto& operation) {
        errno = EOWNERDEAD;
        operation();
        return errno;
    };

    EXPECT_EQ(EOWNERDEAD, errorAfter([&] { Logger::InstallDefaultHandler(&everythingElse); }));
    EXPECT_EQ(EOWNERDEAD, errorAfter([&] { Logger::InstallHandler(&handler); }));
    EXPECT_EQ(EOWNERDEAD, errorAfter([] { Logger::Info("Test", "%s", "x"); }));
    EXPECT_EQ(EOWNERDEAD, errorAfter([] { logMade("Test", Logger::LevelInfo, formatOfLength(1 << 20).c_str(), 1); }));
    EXPECT_EQ(EOWNERDEAD, errorAfter([&] { Logger::UninstallHandler(&handler); }));
    EXPECT_EQ(EOWNERDEAD, errorAfter([&] { Logger::InstallHandler(&refused); }));
    EXPECT_EQ(EOWNERDEAD, errorAfter([&] { Logger::UninstallHandler(&refused); }));
    EXPECT_EQ(EOWNERDEAD, errorAfter([] { Logger::SetMinimumLogLevel(Logger::LevelDebug); }));
}

// GLib looks up the handler of a message, lets go of its lock, and only then calls it.
class LateCall {
public:
    explicit LateCall(RecordingHandler& handler) : _handler(handler)
    {
        const Interposed set(interpose::g_log_set_handler,
                             [this](auto* real, auto domain, auto levels, GLogFunc function, gpointer data) {
                                 _function = function;
                                 return real(domain, levels, function, data);
                             });
        Logger::InstallHandler(&handler);
        Logger::UninstallHandler(&handler);
    }

    void make(const char* message) { _function("Test", G_LOG_LEVEL_WARNING, message, &_handler); }

private:
    RecordingHandler& _handler;
    GLogFunc _function = nullptr;
};

TEST_F(LoggerTest, messageOnItsWayToAnUninstalledHandlerGoesToTheDefaultOne)
{
    RecordingHandler everythingElse("", 0);
    Logger::InstallDefaultHandler(&everythingElse);
    RecordingHandler handler("Test", 63);
    LateCall late(handler);

    late.make("late");
    EXPECT_THAT(handler.calls(), IsEmpty());
    ASSERT_EQ(1U, everythingElse.calls().size());
    EXPECT_EQ("late", everythingElse.calls()[0].message);
    EXPECT_EQ("Test", everythingElse.calls()[0].domain);
    EXPECT_EQ(Logger::LevelWarning, everythingElse.calls()[0].level);
}

TEST_F(LoggerTest, messageOnItsWayToAnUninstalledHandlerGoesToGlibWithoutADefaultOne)
{
    EXPECT_EXIT(
        {
            RecordingHandler handler("Test", 63);
            LateCall late(handler);
            late.make("late");
            std::exit(handler.calls().empty() ? EXIT_SUCCESS : EXIT_FAILURE);
        },
        ::testing::ExitedWithCode(EXIT_SUCCESS), HasSubstr("Test-WARNING **: "));
}

TEST_F(LoggerTest, refusedHandlerDoesNotCountAsInstalled)
{
    RecordingHandler everythingElse("", 0);
    Logger::InstallDefaultHandler(&everythingElse);
    RecordingHandler handler("Test", 0);
    Logger::InstallHandler(&handler);

    handler._levelMask = 63;  // or another handler at the same address
    LateCall late(handler);
    late.make("late");

    EXPECT_THAT(handler.calls(), IsEmpty());
    EXPECT_THAT(everythingElse.calls(), SizeIs(2));  // GLib's critical, and the late one
}

TEST_F(LoggerTest, handlerStaysInstalledWhenItsSecondInstallationIsRefused)
{
    RecordingHandler everythingElse("", 0);
    Logger::InstallDefaultHandler(&everythingElse);
    RecordingHandler handler("Test", 63);
    Logger::InstallHandler(&handler);
    const unsigned int firstId = handler._handlerId;
    handler._levelMask = 0;
    Logger::InstallHandler(&handler);
    EXPECT_EQ(0U, handler._handlerId);

    Logger::Info("Test", "a");
    Logger::UninstallHandler(&handler);
    Logger::Info("Test", "b");
    EXPECT_THAT(handler.texts(), ElementsAre("a", "b"));
    EXPECT_THAT(everythingElse.calls(), SizeIs(2));  // GLib's criticals

    handler._handlerId = firstId;
    Logger::UninstallHandler(&handler);
}

// GLib may return one number twice when two threads install handlers at once.
TEST_F(LoggerTest, installsOneHandlerAtATime)
{
    std::atomic<int> calls{0};
    std::atomic<int> inside{0};
    std::atomic<bool> together{false};
    std::atomic<long> second{0};
    RecordingHandler handlers[] = {{"Test", 63}, {"Test", 63}};
    const Interposed set(interpose::g_log_set_handler, [&](auto* real, auto... arguments) {
        const bool isFirst = calls++ == 0;
        if (++inside > 1)
            together = true;
        if (isFirst) {
            EXPECT_TRUE(waitUntil([&] { return together || (second != 0 && isAsleep(second)); }));
        }
        const guint id = real(arguments...);
        --inside;
        return id;
    });
    std::thread other([&] {
        EXPECT_TRUE(waitUntil([&] { return inside != 0; }));
        second = threadNumber();
        Logger::InstallHandler(&handlers[1]);
    });
    Logger::InstallHandler(&handlers[0]);
    other.join();

    EXPECT_FALSE(together);
    EXPECT_NE(handlers[0]._handlerId, handlers[1]._handlerId);
    for (RecordingHandler& handler : handlers)
        Logger::UninstallHandler(&handler);
}

TEST_F(LoggerTest, installHandlerTellsGlibDomainLevelsAndHandler)
{
    struct Case {
        const char* domain;
        const char* expected;
        unsigned int levels;
    };
    for (const Case& tried :
         {Case{"PAL", "PAL", Logger::LevelWarning}, Case{"", nullptr, 63}, Case{"Zero", "Zero", 0}}) {
        RecordingHandler handler(tried.domain, tried.levels);
        const Interposed set(interpose::g_log_set_handler,
                             [&](auto*, const gchar* domain, GLogLevelFlags levels, GLogFunc, gpointer data) {
                                 EXPECT_STREQ(tried.expected, domain);
                                 EXPECT_EQ(tried.levels << 2, static_cast<unsigned int>(levels));
                                 EXPECT_EQ(&handler, data);
                                 return 4711U;
                             });
        Logger::InstallHandler(&handler);
        EXPECT_EQ(4711U, handler._handlerId);
    }
}

TEST_F(LoggerTest, uninstallHandlerTellsGlibDomainAndId)
{
    for (const char* const domain : {"PAL", ""}) {
        RecordingHandler handler(domain, 63);
        handler._handlerId = 4711;
        int calls = 0;
        const Interposed remove(interpose::g_log_remove_handler, [&](auto*, const gchar* itsDomain, guint id) {
            // The empty text stays one here and is no null pointer.
            EXPECT_STREQ(domain, itsDomain);
            EXPECT_EQ(4711U, id);
            ++calls;
        });
        Logger::UninstallHandler(&handler);
        EXPECT_EQ(1, calls);
    }
}

TEST_F(LoggerTest, handlerGetsAnEmptyTextWhenPrintfRefusesTheValues)
{
    RecordingHandler handler("Refused", 63);
    Logger::InstallHandler(&handler);
    Logger::Warning("Refused", "%ls", L"\xe9");  // no letter of the C locale
    Logger::UninstallHandler(&handler);
    EXPECT_THAT(handler.texts(), ElementsAre(""));
}

TEST_F(LoggerTest, handlerTakesLevelsOfTheHostsOwn)
{
    RecordingHandler handler("Own", 127);
    Logger::InstallHandler(&handler);
    Logger::SetMinimumLogLevel(static_cast<Logger::LogLevel>(100));
    Logger::Log("Own", 64, "beyond debug");
    Logger::UninstallHandler(&handler);
    ASSERT_THAT(handler.texts(), ElementsAre("beyond debug"));
    EXPECT_EQ(static_cast<int>(handler.calls().front().level), 64);
}

TEST_F(LoggerTest, keepsGlibsFlagsFromHandlers)
{
    RecordingHandler handler("Test", 63);
    std::vector<GLogFunc> functions;
    {
        const Interposed set(interpose::g_log_set_handler, [&](auto*, auto, auto, GLogFunc function, gpointer) {
            functions.push_back(function);
            return 1U;
        });
        const Interposed setDefault(interpose::g_log_set_default_handler, [&](auto*, GLogFunc function, gpointer data) {
            EXPECT_EQ(&handler, data);
            functions.push_back(function);
            return g_log_default_handler;
        });
        Logger::InstallHandler(&handler);
        Logger::InstallDefaultHandler(&handler);
    }
    ASSERT_EQ(2U, functions.size());
    // One static function serves both.
    EXPECT_EQ(functions[0], functions[1]);
    for (int level = 1; level <= 32; level <<= 1) {
        const int flags = G_LOG_FLAG_FATAL | G_LOG_FLAG_RECURSION;
        functions[0]("Test", static_cast<GLogLevelFlags>((level << 2) | flags), "as it is", &handler);
        EXPECT_EQ(level, handler.calls().back().level);
        EXPECT_EQ("as it is", handler.calls().back().message);
        EXPECT_EQ("Test", handler.calls().back().domain);
    }
}

TEST(LogHandler, keepsACopyOfDomainAndTheLevels)
{
    std::string domain = "PAL";
    const RecordingHandler handler(domain, 0xfffffff5U);
    domain = "changed";
    EXPECT_EQ("PAL", handler._domain);
    EXPECT_EQ(0xfffffff5U, handler._levelMask);
}

TEST(LogHandler, constructorLeavesTheIdUnset)
{
    alignas(RecordingHandler) unsigned char storage[sizeof(RecordingHandler)];
    std::memset(storage, 0xab, sizeof storage);
    // Keeps the compiler from dropping bytes that no constructor is supposed to read.
    __asm__ volatile("" : : "r"(storage) : "memory");
    auto* const handler = new (storage) RecordingHandler("Test", 1);
    EXPECT_EQ(0xababababU, handler->_handlerId);
    handler->~RecordingHandler();
}

TEST(LogHandler, hasItsFieldsInOrder)
{
    const RecordingHandler handler("Test", 1);
    const LogHandler& base = handler;
    const auto offset = [&base](const void* field) {
        return static_cast<const char*>(field) - static_cast<const char*>(static_cast<const void*>(&base));
    };
    EXPECT_EQ(8, offset(&base._domain));
    EXPECT_EQ(8 + static_cast<std::ptrdiff_t>(sizeof(std::string)), offset(&base._levelMask));
    EXPECT_EQ(12 + static_cast<std::ptrdiff_t>(sizeof(std::string)), offset(&base._handlerId));
    EXPECT_EQ(16 + sizeof(std::string), sizeof(LogHandler));
    EXPECT_TRUE((std::is_same_v<decltype(base._levelMask), unsigned int>));
    EXPECT_TRUE((std::is_same_v<decltype(base._handlerId), unsigned int>));
}

TEST(LogHandler, hasHandleLogAsItsOnlyVirtualOperation)
{
    EXPECT_TRUE(std::is_abstract_v<LogHandler>);
    EXPECT_FALSE(std::has_virtual_destructor_v<LogHandler>);
    RecordingHandler handler("Test", 1);
    callAddress(addressInSlot(&handler, 0), &handler, "domain", static_cast<int>(Logger::LevelInfo), "message");
    ASSERT_EQ(1U, handler.calls().size());
    EXPECT_EQ("domain", handler.calls()[0].domain);
    EXPECT_EQ(16, handler.calls()[0].level);
    EXPECT_EQ("message", handler.calls()[0].message);
}
