// A plug-in outside the project.
#include <kxPAL/PluginEntry.h>

#include <cstdio>

namespace acme {

class Greeter : public Murn::Plugin {
public:
    ~Greeter() override { std::printf("The greeter is gone.\n"); }

    const char* name() const override { return "greeter"; }

    bool start() override
    {
        std::printf("Hello from a plug-in.\n");
        return true;
    }

    void stop() override { std::printf("Good-bye.\n"); }
};

}  // namespace acme

MURN_PLUGIN(acme::Greeter)
