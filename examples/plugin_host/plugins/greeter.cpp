// A plug-in that says hello and good-bye.
#include <kxPAL/PluginEntry.h>

#include <cstdio>

namespace {

class Greeter : public Murn::Plugin {
public:
    const char* name() const override { return "greeter"; }

    bool start() override
    {
        std::printf("greeter: hello\n");
        return true;
    }

    void stop() override { std::printf("greeter: good-bye\n"); }
};

}  // namespace

MURN_PLUGIN(Greeter)
