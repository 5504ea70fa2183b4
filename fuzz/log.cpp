// Fuzz target: log messages with all kinds of formats and values, on their way to the handlers that should get them.
#include <glib.h>
#include <kxPAL/LogHandler.h>
#include <kxPAL/Logger.h>

#include <cstdarg>
#include <list>
#include <optional>
#include <vector>

#include "Input.h"

namespace {

using Murn::Logger;

/// One message on its arrival.
struct Arrival {
    const void* handler;
    std::optional<std::string> domain;
    int level;
    std::string text;
};

std::vector<Arrival>& arrivals()
{
    static std::vector<Arrival> all;
    return all;
}

class Handler final : public Murn::LogHandler {
public:
    using LogHandler::LogHandler;

    void HandleLog(const char* domain, Logger::LogLevel level, const char* message) override
    {
        FUZZ_CHECK(message != nullptr);
        const std::string stamped(message);
        arrivals().push_back(
            {this, domain != nullptr ? std::optional<std::string>(domain) : std::nullopt, level, stamped});
    }

    /// Whether the handler was installed for messages of this domain and level.
    bool takes(const char* domain, unsigned int level) const
    {
        return _domain == (domain != nullptr ? domain : "") && (_levelMask & level) != 0;
    }
};

/// The handler for what no other one takes. It stays for the rest of the process.
Handler& fallback()
{
    static Handler& handler = []() -> Handler& {
        static Handler made("", 0);
        Logger::InstallDefaultHandler(&made);
        return made;
    }();
    return handler;
}

/// A message: as the library is given it, and as printf writes it.
class Message {
public:
    Message(const char* domain, unsigned int level, unsigned int way) : _domain(domain), _level(level), _way(way) {}

    void log(const char* format, ...) __attribute__((format(printf, 2, 3)))
    {
        va_list args;
        va_list again;
        va_start(args, format);
        va_copy(again, args);
        const int length = std::vsnprintf(nullptr, 0, format, args);
        va_end(args);
        va_start(args, format);
        if (length >= 0) {
            std::vector<char> text(static_cast<std::size_t>(length) + 1);
            std::vsnprintf(text.data(), text.size(), format, args);
            expected = text.data();  // up to a zero byte, which ends any message
        }
        va_end(args);
        Logger::Logv(_domain, _level, format, again);
        va_end(again);
    }

    /// The same by the operation with the level's name, where there is one.
    void logText(const char* text)
    {
        expected = text;
        if (_way == 0 || _level == Logger::LevelError)
            return Logger::Log(_domain, _level, "%s", text);
        switch (_level) {
            case Logger::LevelCritical:
                return _way % 2 == 0 ? Logger::Critical(_domain, "%s", text) : Logger::Error(_domain, "%s", text);
            case Logger::LevelWarning:
                return Logger::Warning(_domain, "%s", text);
            case Logger::LevelMessage:
                return Logger::Message(_domain, "%s", text);
            case Logger::LevelInfo:
                return Logger::Info(_domain, "%s", text);
            case Logger::LevelDebug:
                return Logger::Debug(_domain, "%s", text);
            default:
                return Logger::Log(_domain, _level, "%s", text);  // a level of the host's own
        }
    }

    std::optional<std::string> expected;  ///< Nothing when printf refuses the values.

private:
    const char* _domain;
    unsigned int _level;
    unsigned int _way;
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
// A format that is all of the message: the bytes themselves, again and again, with their per cent signs doubled.
void logAsFormat(Message& message, const std::string& bytes, std::size_t times)
{
    std::string once;
    for (const char byte : bytes)
        once += byte == '%' ? std::string("%%") : std::string(1, byte);
    std::string format;
    for (std::size_t i = 0; i < times; ++i)
        format += once;
    message.log(format.c_str());
}
#pragma GCC diagnostic pop

void logSomehow(Input& input, Message& message)
{
    const std::uint8_t kind = input.byte();
    const std::string text = input.text();
    const auto number = input.awkward(0);
    switch (kind % 9) {
        case 0:
            return message.logText(text.c_str());
        case 1:
            return message.log("%d %u %ld %lx|%%", static_cast<int>(number), static_cast<unsigned int>(number), number,
                               static_cast<unsigned long>(number));
        case 2:
            return message.log("%.*s!", static_cast<int>(number), text.c_str());
        case 3:
            return message.log("<%*d>", static_cast<int>(number % 100000), kind);
        case 4:
            return message.log("%c%c%s", static_cast<char>(number), kind, text.c_str());
        case 5:
            return message.log("%g %5.2f %p", static_cast<double>(number) / 3, static_cast<double>(kind),
                               static_cast<const void*>(text.c_str()));
        case 6: {
            // Beyond the C locale's letters printf refuses the whole text.
            const std::wstring wide(text.begin(), text.end());
            return message.log("%s %ls", "wide:", wide.c_str());
        }
        case 7:
            return logAsFormat(message, text, input.upTo(2));
        default:
            return logAsFormat(message, text, input.upTo(1000));
    }
}

bool isStamp(const std::string& text)
{
    return text.size() > 6 && text.front() == '[' && text[text.size() - 5] == '-' && text.back() == ']';
}

void checkArrival(const Message& message, const std::list<Handler>& handlers, const char* domain, unsigned int level)
{
    if ((level & Logger::__logLevelMask) == 0) {
        FUZZ_CHECK(arrivals().empty());
        return;
    }
    FUZZ_CHECK(arrivals().size() == 1);
    const Arrival& arrival = arrivals().front();
    const Handler* taker = &fallback();
    for (const Handler& handler : handlers) {
        if (handler.takes(domain, level))
            taker = &handler;  // of several the last one
    }
    FUZZ_CHECK(arrival.handler == taker);
    FUZZ_CHECK(arrival.level == static_cast<int>(level));
    FUZZ_CHECK(arrival.domain.has_value() == (domain != nullptr) &&
               arrival.domain.value_or("") == (domain ? domain : ""));
    if (!message.expected)
        return;
    const std::size_t end = arrival.text.size() - std::min(arrival.text.size(), message.expected->size());
    FUZZ_CHECK(arrival.text.substr(end) == *message.expected && isStamp(arrival.text.substr(0, end)));
}

// The bits whose value is at most the level.
unsigned int maskUpTo(int level)
{
    unsigned int mask = 0;
    for (unsigned int bit = 1; bit <= 0x40000000 && level > 0 && bit <= static_cast<unsigned int>(level); bit <<= 1)
        mask |= bit;
    return mask;
}

void setMask(Input& input)
{
    if (input.flag()) {
        const auto level = static_cast<int>(input.awkward(32));
        Logger::SetMinimumLogLevel(static_cast<Logger::LogLevel>(level));
        FUZZ_CHECK(Logger::__logLevelMask == maskUpTo(level));
    } else {
        Logger::__logLevelMask = input.number<unsigned int>();
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fallback();
    Input input(data, size);
    const std::string odd = input.text(20).c_str();
    const std::array<const char*, 4> domains = {nullptr, "", "PAL", odd.c_str()};
    Logger::__logLevelMask = 63;

    std::list<Handler> handlers;
    for (std::size_t count = input.upTo(3); count > 0; --count) {
        const char* const domain = input.oneOf(domains);
        const unsigned int levels = 1 + static_cast<unsigned int>(input.upTo(62)) + 64 * input.byte();
        Logger::InstallHandler(&handlers.emplace_back(domain != nullptr ? domain : "", levels));
    }
    while (!input.isEmpty()) {
        const std::uint8_t head = input.byte();
        if (head % 8 == 0)
            setMask(input);
        const char* const domain = domains[head % 4];
        const unsigned int level = 2U << (head / 8 % 6);
        Message message(domain, level, head / 64);
        logSomehow(input, message);
        checkArrival(message, handlers, domain, level);
        arrivals().clear();
    }
    for (Handler& handler : handlers)
        Logger::UninstallHandler(&handler);
    Logger::__logLevelMask = 63;
    return 0;
}
