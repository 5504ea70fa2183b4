// A plug-in that uses a variable that is nowhere defined.
#include <kxPAL/PluginEntry.h>

extern "C" bool variableDefinedNowhere;

namespace {

class MissingData : public Murn::Plugin {
public:
    const char* name() const override { return "missing_data"; }
    bool start() override { return variableDefinedNowhere; }
    void stop() override {}
};

}  // namespace

MURN_PLUGIN(MissingData)
