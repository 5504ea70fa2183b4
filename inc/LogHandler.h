// A host's own receiver of log messages.
#ifndef MURN_LOG_HANDLER_H
#define MURN_LOG_HANDLER_H

#include <string>

#include "Export.h"
#include "Logger.h"

namespace Murn {

/// Receives log messages in the host's own way. Derive from it (a final class, since the destructor is not virtual),
/// then install the object with Logger::InstallHandler() or Logger::InstallDefaultHandler(). The host owns it and
/// uninstalls it before it goes, also while other threads log.
class MURN_API LogHandler {
public:
    /// A handler that is not installed yet.
    /// @param domain     the log domain to take; empty for messages logged without one
    /// @param levelMask  the Logger::LogLevel bits to take (not GLib's); not 0 where Logger::InstallHandler() is used
    LogHandler(const std::string& domain, unsigned int levelMask);

    LogHandler(const LogHandler&) = delete;
    LogHandler& operator=(const LogHandler&) = delete;

    /// Called on the thread that logs. GLib holds no lock meanwhile, so several threads may call at once. A handler
    /// that logs in turn ends the process: GLib takes the second message for an endless recursion and aborts. So does a
    /// message at a level that GLib was told to take for fatal, which only the default handler gets to see.
    /// @param domain   the domain of the message; null when it was logged without one
    /// @param level    the severity, without GLib's flag bits
    /// @param message  the stamped and formatted text, valid during the call; empty when printf refused the values,
    ///                 such as wide letters that the locale does not have
    virtual void HandleLog(const char* domain, Logger::LogLevel level, const char* message) = 0;

    std::string _domain;      ///< The domain given at construction.
    unsigned int _levelMask;  ///< The levels given at construction.
    /// GLib's id of the installed handler. The constructor leaves it alone on purpose: there is no id that stands
    /// for "not installed", and only Logger::InstallHandler() knows one.
    unsigned int _handlerId;

protected:
    /// Not virtual on purpose: the host that made a handler destroys it, and nobody does through this class.
    ~LogHandler() = default;
};

}  // namespace Murn

#endif
