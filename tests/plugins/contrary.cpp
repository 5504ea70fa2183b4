// A plug-in that says the opposite of whether it can be unloaded.
#include <kxPAL/PluginEntry.h>

namespace {

class Contrary : public Murn::Plugin {
public:
    bool canUnload() override { return !Murn::Plugin::canUnload(); }

    const char* name() const override { return "contrary"; }
    bool start() override { return false; }
    void stop() override {}
};

}  // namespace

MURN_PLUGIN(Contrary)
