// The logging facade: levels, the level mask, and where messages go.
#ifndef MURN_LOGGER_H
#define MURN_LOGGER_H

#include <atomic>
#include <cstdarg>

#include "Export.h"

namespace Murn {

class LogHandler;

/// Stamps messages with the local date, time and milliseconds and hands them to GLib's logging.
///
/// A message reads, in the C locale, "[11/15/26 13:45:02-042]Shared library closed successfully." and reaches
/// whatever takes its domain: a LogHandler installed for it, the default handler, or GLib's own output. All
/// operations are static, and leave `errno` as it was. The library itself logs under the domains "PAL", "Thread",
/// "Stream", "IStream", "PAL/IStream", "NetworkInterfac", "NetworkIf", "Multicast", "UdpMulticast", "MultiCastUdp"
/// and, with an empty domain, in the list of conditions behind "No handler for data!!!".
class MURN_API Logger {
public:
    Logger() = delete;

    /// Severities, one bit each; the smaller value is the more severe. Each is GLib's level shifted right by two.
    enum LogLevel : int {
        LevelError = 1,     ///< `G_LOG_LEVEL_ERROR`: GLib aborts the process after the handlers ran.
        LevelCritical = 2,  ///< `G_LOG_LEVEL_CRITICAL`; Error() logs here too.
        LevelWarning = 4,   ///< `G_LOG_LEVEL_WARNING`.
        LevelMessage = 8,   ///< `G_LOG_LEVEL_MESSAGE`.
        LevelInfo = 16,     ///< `G_LOG_LEVEL_INFO`.
        LevelDebug = 32     ///< `G_LOG_LEVEL_DEBUG`.
    };

    /// The set of LogLevel bits that are produced; 63 at the start, which is all of them. Any thread may read and
    /// write it at any time; a change takes effect at each thread's next message.
    static std::atomic<unsigned int> __logLevelMask;

    /// Any thread. Produces one message; every other operation ends up here. The stamp is put in front of
    /// `format`, and GLib expands `args` against the whole, as printf does.
    /// @param domain  the log domain, or null for none
    /// @param level   one LogLevel bit; a message whose bit is not in `__logLevelMask` costs that one test, and
    ///                neither a clock is read nor anything formatted
    /// @param format  a printf format of any length. One of more than 65280 bytes takes memory for the time of the
    ///                call; where there is none, the message goes out without its stamp.
    /// @param args    the values for it; as with vprintf, the caller calls `va_end`
    static void Logv(const char* domain, unsigned int level, const char* format, va_list args) MURN_PRINTF(3, 0);

    /// Any thread. Logv() at the level given. LevelError ends the process: GLib treats it as always fatal.
    /// @param domain  the log domain, or null for none
    /// @param level   one LogLevel bit
    /// @param format  a printf format, followed by its values
    static void Log(const char* domain, unsigned int level, const char* format, ...) MURN_PRINTF(3, 4);

    /// Any thread. Logs at LevelCritical.
    /// @param domain  the log domain, or null for none
    /// @param format  a printf format, followed by its values
    static void Critical(const char* domain, const char* format, ...) MURN_PRINTF(2, 3);

    /// Any thread. Logs at LevelCritical as well, on purpose: an error is reported and survived, whereas GLib ends
    /// the process at its own error level.
    /// @param domain  the log domain, or null for none
    /// @param format  a printf format, followed by its values
    static void Error(const char* domain, const char* format, ...) MURN_PRINTF(2, 3);

    /// Any thread. Logs at LevelWarning.
    /// @param domain  the log domain, or null for none
    /// @param format  a printf format, followed by its values
    static void Warning(const char* domain, const char* format, ...) MURN_PRINTF(2, 3);

    /// Any thread. Logs at LevelMessage.
    /// @param domain  the log domain, or null for none
    /// @param format  a printf format, followed by its values
    static void Message(const char* domain, const char* format, ...) MURN_PRINTF(2, 3);

    /// Any thread. Logs at LevelInfo.
    /// @param domain  the log domain, or null for none
    /// @param format  a printf format, followed by its values
    static void Info(const char* domain, const char* format, ...) MURN_PRINTF(2, 3);

    /// Any thread. Logs at LevelDebug.
    /// @param domain  the log domain, or null for none
    /// @param format  a printf format, followed by its values
    static void Debug(const char* domain, const char* format, ...) MURN_PRINTF(2, 3);

    /// Any thread. Lets through `level` and everything more severe: sets every bit of the mask whose value is at
    /// most `level` (LevelWarning gives 7, LevelDebug 63). Below 1 nothing is logged any more. A value that is not
    /// one bit counts by its magnitude: 5 gives 7, 100 gives 127.
    /// @param level  the least severe level to be logged
    static void SetMinimumLogLevel(LogLevel level);

    /// Any thread. Routes the messages of the handler's domain and levels to it (`g_log_set_handler`) and stores
    /// GLib's id in its `_handlerId`. Install a handler once: after a second time only the second id is known, and
    /// the first stays installed for good. GLib refuses a handler without levels: a critical of its own is logged here
    /// and in UninstallHandler(), the id is 0, and nothing is routed.
    /// @param handler  stays the caller's; must live until it is uninstalled
    static void InstallHandler(LogHandler* handler);

    /// Any thread. Ends what InstallHandler() began (`g_log_remove_handler`). The handler may go afterwards, whatever
    /// other threads log: this waits for those who are in its LogHandler::HandleLog() at this moment. It does so for a
    /// second at most, since they may wait for something that the caller holds, and not at all within that call.
    /// @param handler  a handler that is installed
    static void UninstallHandler(LogHandler* handler);

    /// Any thread. Routes every message that no domain's handler takes to this one, whatever its own domain and
    /// levels (`g_log_set_default_handler`). The handler before it is forgotten and cannot be brought back.
    /// @param handler  stays the caller's; must live for the rest of the process
    static void InstallDefaultHandler(LogHandler* handler);
};

}  // namespace Murn

#endif
