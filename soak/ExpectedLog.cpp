// What the library may say in the log while all goes well.
#include "ExpectedLog.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

struct Expected {
    const char* domain;
    const char* text;  // a part of it
};

constexpr std::array<Expected, 11> expected = {{
    {"Stream", "Error: Connection reset by peer"},                   // a peer that resets
    {"Stream", "Unknown error !"},                                   // the same, seen halfway through the reset
    {"Stream", "Error !"},                                           // a peer that hangs up
    {"Thread", "Thread deleted with objects still attached to it"},  // objects that are left on purpose
    {"PAL", "Can not stop Thread"},                                  // the collector, with a thread that has ended
    {"UdpMulticast", " select failed"},                              // a receiver that is closed before it waits
    {"PAL", "Shared library"},
    {"PAL", "Unloading plugin"},
    {"PAL", "can not be unloaded because it is still referenced"},
    {"PAL", "is not a valid PAL plugin"},
    {"PAL", "is broken"},
}};

}  // namespace

ExpectedLog::ExpectedLog(Ledger& ledger) : LogHandler("", Murn::Logger::LevelDebug), _ledger(ledger)
{
    Murn::Logger::InstallDefaultHandler(this);
}

void ExpectedLog::HandleLog(const char* domain, Murn::Logger::LogLevel level, const char* message)
{
    const auto fits = [&](const Expected& one) {
        return domain != nullptr && std::strcmp(domain, one.domain) == 0 && std::strstr(message, one.text) != nullptr;
    };
    if (std::strstr(message, "]to nobody") != nullptr) {  // from the activity that takes its handlers away
        _ledger.add(Figure::messagesToNobody);
        return;
    }
    _ledger.add(Figure::libraryWarnings);
    if (std::none_of(expected.begin(), expected.end(), fits))
        _ledger.complain("the log has an unexpected message of level %d in the domain \"%s\": %s", level,
                         domain != nullptr ? domain : "", message);
}
