// Waiting on the main thread without holding up its loop.
#include "Pump.h"

#include <kxPAL/Application.h>
#include <kxPAL/Timer.h>

#include <chrono>

namespace {

constexpr std::chrono::seconds limit(8);

/// Makes the loop turn now and then even if nothing else happens, because other threads change what is waited for.
class Heartbeat : public Murn::Timer {
public:
    Heartbeat() { start(5, nullptr); }
    void timeout() override {}
};

}  // namespace

bool pumpUntil(const std::function<bool()>& done)
{
    const Heartbeat heartbeat;
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        Murn::Application::ProcessEvents(true);
    }
    return true;
}
