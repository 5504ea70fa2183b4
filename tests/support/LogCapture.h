// The log messages that reach GLib while a test runs.
#ifndef KXPAL_TESTS_LOG_CAPTURE_H
#define KXPAL_TESTS_LOG_CAPTURE_H

#include <glib.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// One message as GLib handed it over.
struct LogMessage {
    std::optional<std::string> domain;  ///< Empty for a message that was logged without a domain.
    int level = 0;                      ///< The library's level: GLib's, shifted right by two, without its flags.
    std::string stamped;                ///< The whole text, with the date and time in front.
    std::string text;                   ///< The text behind the stamp.
};

/// Takes the messages of one domain, or all that no domain's handler takes, as long as it lives. It speaks to
/// GLib directly, so that it can put back the default handler that it found.
class LogCapture {
public:
    /// Takes every message that no domain's handler takes.
    LogCapture() : _previous(g_log_set_default_handler(take, this)) {}

    /// The same; each message is told as it comes, on the thread that logs it.
    explicit LogCapture(std::function<void(const LogMessage&)> told)
        : _told(std::move(told)), _previous(g_log_set_default_handler(take, this))
    {
    }

    /// Takes the messages of one domain.
    explicit LogCapture(const std::string& domain)
        : _domain(domain),
          _handlerId(g_log_set_handler(
              _domain.c_str(), static_cast<GLogLevelFlags>(G_LOG_LEVEL_MASK | G_LOG_FLAG_FATAL | G_LOG_FLAG_RECURSION),
              take, this))
    {
    }

    ~LogCapture()
    {
        if (_handlerId != 0)
            g_log_remove_handler(_domain.c_str(), _handlerId);
        else
            g_log_set_default_handler(_previous, nullptr);
    }

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// What was logged until now, in order.
    std::vector<LogMessage> messages() const
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _messages;
    }

    /// The texts alone, without stamps.
    std::vector<std::string> texts() const
    {
        std::vector<std::string> result;
        for (const LogMessage& message : messages())
            result.push_back(message.text);
        return result;
    }

    /// How many messages have exactly this text behind the stamp.
    std::size_t count(const std::string& text) const
    {
        const std::vector<std::string> all = texts();
        return static_cast<std::size_t>(std::count(all.begin(), all.end(), text));
    }

private:
    static void take(const gchar* domain, GLogLevelFlags level, const gchar* message, gpointer self)
    {
        LogMessage taken;
        if (domain != nullptr)
            taken.domain = domain;
        taken.level = static_cast<int>(level) >> 2;
        taken.stamped = message;
        // Messages of others, GLib's own for one, come without a stamp.
        const std::size_t stampEnd = taken.stamped.starts_with("[") ? taken.stamped.find(']') : std::string::npos;
        taken.text = stampEnd == std::string::npos ? taken.stamped : taken.stamped.substr(stampEnd + 1);

        auto* const capture = static_cast<LogCapture*>(self);
        if (capture->_told)
            capture->_told(taken);
        const std::lock_guard<std::mutex> lock(capture->_mutex);
        capture->_messages.push_back(taken);
    }

    std::string _domain;
    guint _handlerId = 0;
    std::function<void(const LogMessage&)> _told;  // there before the first message comes
    GLogFunc _previous = nullptr;
    mutable std::mutex _mutex;
    std::vector<LogMessage> _messages;  // guarded by _mutex
};

#endif
