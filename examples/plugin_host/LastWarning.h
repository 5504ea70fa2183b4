// Why a plug-in was not loaded or unloaded, in the library's words.
#ifndef PLUGIN_HOST_LAST_WARNING_H
#define PLUGIN_HOST_LAST_WARNING_H

#include <kxPAL/LogHandler.h>
#include <kxPAL/Logger.h>

#include <string>

/// Takes the library's log while it lives, and keeps the newest warning of its loader. For one thread.
class LastWarning final : public Murn::LogHandler {
public:
    LastWarning() : LogHandler("PAL", 63) { Murn::Logger::InstallHandler(this); }
    ~LastWarning() { Murn::Logger::UninstallHandler(this); }

    LastWarning(const LastWarning&) = delete;
    LastWarning& operator=(const LastWarning&) = delete;

    void HandleLog(const char*, Murn::Logger::LogLevel level, const char* message) override
    {
        if (level != Murn::Logger::LevelWarning)
            return;
        const std::string stamped = message;
        _text = stamped.substr(stamped.find(']') + 1);
    }

    /// The newest warning, without its date and time.
    const std::string& text() const { return _text; }

private:
    std::string _text;
};

#endif
