// A plug-in that calls a function that is nowhere defined, when it is started.
#include <kxPAL/PluginEntry.h>

extern "C" bool definedNowhere();

namespace {

class MissingFunction : public Murn::Plugin {
public:
    const char* name() const override { return "missing_function"; }
    bool start() override { return definedNowhere(); }
    void stop() override {}
};

}  // namespace

MURN_PLUGIN(MissingFunction)
