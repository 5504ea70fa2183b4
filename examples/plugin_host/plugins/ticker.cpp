// A plug-in that ticks on its host's event loop.
#include <kxPAL/PluginEntry.h>
#include <kxPAL/Timer.h>

#include <cstdio>

namespace {

class Ticker : public Murn::Plugin {
public:
    const char* name() const override { return "ticker"; }

    bool start() override
    {
        std::printf("ticker: a tick every %u ms\n", intervalMs);
        _ticks.start(intervalMs, thread());
        return true;
    }

    void stop() override
    {
        _ticks.stop();  // no call may come from here on: the code is about to go
        std::printf("ticker: %d ticks\n", _ticks.count());
    }

private:
    static constexpr unsigned int intervalMs = 20;

    class Ticks : public Murn::Timer {
    public:
        void timeout() override { ++_count; }
        int count() const { return _count; }

    private:
        int _count = 0;
    };

    Ticks _ticks;
};

}  // namespace

MURN_PLUGIN(Ticker)
