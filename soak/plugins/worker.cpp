// A plug-in that does what a plug-in may: it has a timer on its host's loop, and a thread of its own.
#include <kxPAL/PluginEntry.h>
#include <kxPAL/Thread.h>
#include <kxPAL/Timer.h>

#include "../PluginCounts.h"

namespace {

class Ticks : public Murn::Timer {
public:
    void timeout() override { soak_plugin_tells(soakPluginTicked); }
};

class Body : public Murn::Thread {
public:
    void run() override { soak_plugin_tells(soakPluginTicked); }
};

class Worker : public Murn::Plugin {
public:
    Worker() { soak_plugin_tells(soakPluginMade); }
    ~Worker() override { soak_plugin_tells(soakPluginGone); }

    const char* name() const override { return "worker"; }

    bool start() override
    {
        soak_plugin_tells(soakPluginStarted);
        _body.setJoinable(true);
        _body.start();
        _ticks.start(1, thread());
        return true;
    }

    void stop() override
    {
        _ticks.stop();
        _body.join();
        soak_plugin_tells(soakPluginStopped);
    }

private:
    Ticks _ticks;
    Body _body;
};

}  // namespace

MURN_PLUGIN(Worker)
