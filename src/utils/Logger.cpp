// Logging: stamps messages and hands them to GLib.
#include "Logger.h"

#include <alloca.h>
#include <glib.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "LogHandler.h"
#include "utils/LogHandlers.h"

namespace Murn {

static_assert(sizeof(std::atomic<unsigned int>) == 4, "hosts know the level mask as a plain 32-bit word");

std::atomic<unsigned int> Logger::__logLevelMask(63);

namespace {

// Room for the stamp in front of the format.
constexpr std::size_t stampRoom = 256;
// The limit of what strftime may write; it is the stamp's date and time.
constexpr std::size_t dateRoom = 80;
// Longer scratch texts would endanger the small stacks that hosts give their threads.
constexpr std::size_t largestOnStack = 65536;

// Writes "[date time-mmm]" and the format behind it. The milliseconds come from a second reading of the clock and
// may belong to the next second already; that is accepted.
void writeStampedFormat(char* scratch, const char* format, std::size_t formatLength)
{
    const std::time_t seconds = std::time(nullptr);
    const std::tm* const local = std::localtime(&seconds);
    std::size_t length = 0;
    if (local != nullptr) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-y2k"  // the locale's own date, two digits of the year or four
        length = std::strftime(scratch, dateRoom, "[%x %X", local);
#pragma GCC diagnostic pop
    }
    const auto milliseconds = static_cast<int>(g_get_real_time() / 1000 % 1000);
    length += static_cast<std::size_t>(std::snprintf(scratch + length, stampRoom - length, "-%03d]", milliseconds));
    std::memcpy(scratch + length, format, formatLength + 1);
}

// Hands a format made at run time to GLib, which expands the caller's values against it.
void handToGlib(const char* domain, unsigned int level, const char* scratch, va_list args)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    g_logv(domain, static_cast<GLogLevelFlags>(level << 2), scratch, args);
#pragma GCC diagnostic pop
}

/// Keeps `errno` as it is: callers log about a failure before they look at it or hand it on, and a format may ask for
/// its text with "%m". Each step in between sets it as it likes.
class KeptError {
public:
    KeptError() : _error(errno) {}
    ~KeptError() { restore(); }

    KeptError(const KeptError&) = delete;
    KeptError& operator=(const KeptError&) = delete;

    void restore() const { errno = _error; }

private:
    const int _error;
};

// Apart from the test of the mask, so that a suppressed message does not pay for its frame.
[[gnu::noinline]] void produce(const char* domain, unsigned int level, const char* format, va_list args)
{
    const KeptError error;
    const std::size_t formatLength = std::strlen(format);
    const std::size_t scratchSize = formatLength + stampRoom;
    if (scratchSize <= largestOnStack) {
        auto* const scratch = static_cast<char*>(alloca(scratchSize));
        writeStampedFormat(scratch, format, formatLength);
        error.restore();
        handToGlib(domain, level, scratch, args);
        return;
    }

    // Pages of its own, neither stack nor heap. Without them the message goes out unstamped rather than not at all.
    void* const pages = ::mmap(nullptr, scratchSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) {
        error.restore();
        handToGlib(domain, level, format, args);
        return;
    }
    writeStampedFormat(static_cast<char*>(pages), format, formatLength);
    error.restore();
    handToGlib(domain, level, static_cast<char*>(pages), args);
    ::munmap(pages, scratchSize);
}

// Held while GLib numbers a handler: it reads the number again when its own lock is gone, and would return that of a
// handler that another thread installs meanwhile. Zeroed memory is a free mutex.
GMutex installing;

// GLib leaves the bits above its own levels to its users, which the compiler knows nothing of. There is no message
// where printf refused the values, such as wide letters that the locale does not have.
__attribute__((no_sanitize("enum"))) void dispatchToHandler(const gchar* domain, GLogLevelFlags glibLevel,
                                                            const gchar* message, gpointer handler)
{
    // The shift drops GLib's two flag bits for recursion and fatality.
    const auto level = static_cast<Logger::LogLevel>(static_cast<int>(glibLevel) >> 2);
    const LogHandlers::Call call(static_cast<LogHandler*>(handler));
    if (call.handler() != nullptr)
        call.handler()->HandleLog(domain, level, message != nullptr ? message : "");
    else
        g_log_default_handler(domain, glibLevel, message, nullptr);
}

}  // namespace

void Logger::Logv(const char* domain, unsigned int level, const char* format, va_list args)
{
    if ((level & __logLevelMask.load(std::memory_order_relaxed)) != 0)
        produce(domain, level, format, args);
}

void Logger::Log(const char* domain, unsigned int level, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Logv(domain, level, format, args);
    va_end(args);
}

void Logger::Critical(const char* domain, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Logv(domain, LevelCritical, format, args);
    va_end(args);
}

void Logger::Error(const char* domain, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    // Critical on purpose: GLib would end the process at its own error level.
    Logv(domain, LevelCritical, format, args);
    va_end(args);
}

void Logger::Warning(const char* domain, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Logv(domain, LevelWarning, format, args);
    va_end(args);
}

void Logger::Message(const char* domain, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Logv(domain, LevelMessage, format, args);
    va_end(args);
}

void Logger::Info(const char* domain, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Logv(domain, LevelInfo, format, args);
    va_end(args);
}

void Logger::Debug(const char* domain, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Logv(domain, LevelDebug, format, args);
    va_end(args);
}

void Logger::SetMinimumLogLevel(LogLevel level)
{
    unsigned int mask = 0;
    for (int bit = 0; bit < 31 && (1 << bit) <= static_cast<int>(level); ++bit)
        mask |= 1U << bit;
    // Stored in one step, so that no thread finds the mask empty in between.
    __logLevelMask.store(mask, std::memory_order_relaxed);
}

void Logger::InstallHandler(LogHandler* handler)
{
    const KeptError error;
    const char* const domain = handler->_domain.empty() ? nullptr : handler->_domain.c_str();
    const unsigned int levels = handler->_levelMask << 2;
    // GLib refuses a handler without levels and logs a critical meanwhile. Whoever hears of it may install another one.
    const bool isRefused = levels == 0;
    if (!isRefused) {
        LogHandlers::Add(handler);
        g_mutex_lock(&installing);
    }
    handler->_handlerId = g_log_set_handler(domain, static_cast<GLogLevelFlags>(levels), dispatchToHandler, handler);
    if (!isRefused)
        g_mutex_unlock(&installing);
}

void Logger::UninstallHandler(LogHandler* handler)
{
    const KeptError error;
    // GLib takes the empty text and a null domain for the same one.
    g_log_remove_handler(handler->_domain.c_str(), handler->_handlerId);
    // No id, no installation: an earlier one, which has its own, stays.
    if (handler->_handlerId != 0)
        LogHandlers::Remove(handler);
}

void Logger::InstallDefaultHandler(LogHandler* handler)
{
    const KeptError error;
    LogHandlers::SetDefault(handler);
    g_log_set_default_handler(dispatchToHandler, handler);
}

LogHandler::LogHandler(const std::string& domain, unsigned int levelMask) : _domain(domain), _levelMask(levelMask) {}

}  // namespace Murn
