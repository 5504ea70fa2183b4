// A plug-in, all of it.
// [plug-in]
#include <kxPAL/PluginEntry.h>
#include <kxPAL/Timer.h>

namespace acme {

class Heartbeat : public Murn::Plugin {
public:
    const char* name() const override { return "heartbeat"; }

    bool start() override
    {
        _pulse.start(10, thread());  // on the loop of the thread that loaded the plug-in
        return true;
    }

    void stop() override { _pulse.stop(); }  // nothing of it may be called any more after this

private:
    class Pulse : public Murn::Timer {
    public:
        void timeout() override { ++_beats; }

    private:
        int _beats = 0;
    };

    Pulse _pulse;
};

}  // namespace acme

MURN_PLUGIN(acme::Heartbeat)
// [end]
