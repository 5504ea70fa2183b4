// A plug-in with templates of the standard library, of which a program has one instance for all its shared objects:
// the compiler can mark them so that the shared object that brought the first one along is never closed.
#include <kxPAL/PluginEntry.h>

#include <memory>

namespace {

class SharedPointers : public Murn::Plugin {
public:
    const char* name() const override { return "shared_pointers"; }

    bool start() override
    {
        _number = std::make_shared<int>(7);
        return *_number == 7;
    }

    void stop() override { _number.reset(); }

private:
    std::shared_ptr<int> _number;
};

}  // namespace

MURN_PLUGIN(SharedPointers)
