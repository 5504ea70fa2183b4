// A plug-in without a fault. It logs in the domain "good" what happens to it.
#include <kxPAL/Event.h>
#include <kxPAL/Logger.h>
#include <kxPAL/PluginEntry.h>

namespace {

class Good : public Murn::Plugin {
public:
    ~Good() override { Murn::Logger::Message("good", "destroyed"); }

    void event(Murn::Event* event) override
    {
        Murn::Logger::Message("good", "event %u", event->_type);
        Murn::Plugin::event(event);
    }

    const char* name() const override { return "good"; }
    bool start() override { return true; }
    void stop() override {}
};

}  // namespace

MURN_PLUGIN(Good)
